#!/usr/bin/env bash
# Encrypted output and encrypted input, checked with qpdf and pdftoppm.
#   test_encrypt.sh TRIMORA_BINARY BUILD_DIR
set -uo pipefail
trimora="$1"
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
data="$here/../data/security"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

for tool in qpdf pdftoppm; do
  command -v "$tool" > /dev/null || { echo "SKIP: $tool is not installed"; exit 0; }
done

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# run OUTPUT ARGS...: runs trimora, which must write OUTPUT.
run() {
  local out="$1"; shift
  "$trimora" "$@" > "$work/log.txt" 2>&1
  [ -s "$out" ] || { fail "no output for: $*"; cat "$work/log.txt"; return 1; }
}

cp "$data/plain.pdf" "$work/in.pdf"

# 128 bits, both passwords, printing disabled.
if run "$work/o128.pdf" -encrypt -keyLength 128 -ownerPass boss -userPass reader -noPrinting \
     -o "$work/o128.pdf" "$work/in.pdf"; then
  qpdf --password=reader --check "$work/o128.pdf" > "$work/check.txt" 2>&1 \
    || fail "qpdf --check with the user password: $(tail -n 3 "$work/check.txt")"
  enc="$(qpdf --password=boss --show-encryption "$work/o128.pdf" 2>&1)"
  grep -q 'R = 3' <<< "$enc" || fail "128-bit output is not revision 3: $enc"
  grep -q 'print low resolution: not allowed' <<< "$enc" || fail "printing not disabled: $enc"
  grep -q 'modify other: allowed' <<< "$enc" || fail "editing should stay allowed: $enc"
  grep -q 'Supplied password is owner password' <<< "$enc" || fail "owner password not recognised"
  qpdf --password=wrong --check "$work/o128.pdf" > /dev/null 2>&1 && fail "a wrong password opened the output"
  pdftoppm -upw reader -r 20 -png "$work/o128.pdf" "$work/u" > /dev/null 2>&1 || fail "pdftoppm -upw"
  pdftoppm -opw boss -r 20 -png "$work/o128.pdf" "$work/o" > /dev/null 2>&1 || fail "pdftoppm -opw"
fi

# 40 bits with only an owner password: opens without a password, revision 2.
if run "$work/o40.pdf" -encrypt -keyLength 40 -ownerPass boss -noEditing -noCopy \
     -o "$work/o40.pdf" "$work/in.pdf"; then
  qpdf --check "$work/o40.pdf" > "$work/check.txt" 2>&1 \
    || fail "owner-only output does not open without a password: $(tail -n 3 "$work/check.txt")"
  enc="$(qpdf --show-encryption "$work/o40.pdf" 2>&1)"
  grep -q 'R = 2' <<< "$enc" || fail "40-bit output is not revision 2: $enc"
  grep -q 'modify other: not allowed' <<< "$enc" || fail "editing not disabled: $enc"
  grep -q 'extract for any purpose: not allowed' <<< "$enc" || fail "copying not disabled: $enc"
  grep -q 'print low resolution: allowed' <<< "$enc" || fail "printing should stay allowed: $enc"
fi

# An encrypted input saved without -encrypt keeps its protection unless it
# was opened with the owner password.
if run "$work/kept.pdf" -openPass user -o "$work/kept.pdf" "$data/rc4-40.pdf"; then
  enc="$(qpdf --password=user --show-encryption "$work/kept.pdf" 2>&1)"
  grep -q 'R = 2' <<< "$enc" || fail "protection of a user-opened input was dropped: $enc"
  qpdf --check "$work/kept.pdf" > /dev/null 2>&1 && fail "kept output opens without the user password"
fi
if run "$work/freed.pdf" -openPass owner -o "$work/freed.pdf" "$data/rc4-40.pdf"; then
  enc="$(qpdf --show-encryption "$work/freed.pdf" 2>&1)"
  grep -q 'File is not encrypted' <<< "$enc" || fail "owner-opened input is still encrypted: $enc"
fi

# A wrong open password is reported, not crashed on.
"$trimora" -openPass nope -o "$work/wrong.pdf" "$data/rc4-40.pdf" > "$work/log.txt" 2>&1
grep -q 'this document requires a password' "$work/log.txt" \
  || fail "wrong open password not reported: $(tail -n 3 "$work/log.txt")"

[ "$failures" -eq 0 ] && echo "PASS" || exit 1
