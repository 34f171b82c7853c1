#!/usr/bin/env bash
# Rewrites a small PDF built here (a full save, nothing else changed) and
# checks the result: clean structure, unused objects gone, pages intact, a
# stable body when rewritten again, and an untouched target when the input
# cannot be read.
#
#   test_roundtrip.sh TRIMORA_BINARY BUILD_DIR
set -u
export LC_ALL=C
build="${2:?usage: $0 TRIMORA_BINARY BUILD_DIR}"
tool="$build/tools/tminspect"
[ -x "$tool" ] || { echo "FAIL: $tool not built"; exit 1; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
fails=0
fail() { echo "FAIL: $*"; fails=$((fails + 1)); }

# A classic file with LF line ends, an object nothing refers to, an indirect
# stream length and an incremental update that replaces the content stream.
make_fixture() {
  local out="$1" body="" off=() n
  add() { off+=("${#body}"); body+="$1"; }
  body=$'%PDF-1.3\n'
  add $'1 0 obj\n<< /Type /Catalog /Pages 2 0 R >>\nendobj\n'
  add $'2 0 obj\n<< /Type /Pages /Kids [3 0 R] /Count 1 >>\nendobj\n'
  add $'3 0 obj\n<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /Contents 4 0 R /Resources << /Font << /F1 6 0 R >> >> >>\nendobj\n'
  add $'4 0 obj\n<< /Length 5 0 R >>\nstream\nBT /F1 24 Tf 10 40 Td (Old) Tj ET\nendstream\nendobj\n'
  add $'5 0 obj\n33\nendobj\n'
  add $'6 0 obj\n<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>\nendobj\n'
  add $'7 0 obj\n(UNUSED-OBJECT-MARK)\nendobj\n'
  local xref=${#body}
  body+=$'xref\n0 8\n0000000000 65535 f \n'
  for n in "${off[@]}"; do body+="$(printf '%010d 00000 n ' "$n")"$'\n'; done
  body+=$'trailer\n<< /Size 8 /Root 1 0 R >>\nstartxref\n'"$xref"$'\n%%EOF\n'
  local upd=${#body}
  body+=$'4 0 obj\n<< /Length 33 >>\nstream\nBT /F1 24 Tf 10 40 Td (New) Tj ET\nendstream\nendobj\n'
  local xref2=${#body}
  body+=$'xref\n4 1\n'"$(printf '%010d 00000 n ' "$upd")"$'\n'
  body+=$'trailer\n<< /Size 8 /Root 1 0 R /Prev '"$xref"$' >>\nstartxref\n'"$xref2"$'\n%%EOF\n'
  printf '%s' "$body" > "$out"
}

make_fixture "$work/in.pdf"
"$tool" "$work/in.pdf" > "$work/in.txt" 2>&1 || fail "fixture does not open: $(cat "$work/in.txt")"

if ! "$tool" --rewrite "$work/in.pdf" "$work/out.pdf" > "$work/rw.txt" 2>&1; then
  fail "rewrite failed: $(cat "$work/rw.txt")"
else
  # The written bytes themselves (header, end marker, what is dropped) are
  # checked by the save unit tests.
  grep -q '(New) Tj' "$work/out.pdf" || fail "the updated content stream is missing"
  grep -q '(Old) Tj' "$work/out.pdf" && fail "the replaced content stream was written"
  "$tool" "$work/out.pdf" > "$work/out.txt" 2>&1 || fail "output does not open: $(cat "$work/out.txt")"
  grep -q '^pages: 1$' "$work/out.txt" || fail "page count changed: $(grep pages "$work/out.txt")"
  grep -q '^objects: 6$' "$work/out.txt" || fail "expected objects 1-5 and the free entry: $(grep objects "$work/out.txt")"
  if command -v qpdf > /dev/null 2>&1; then
    qpdf --check "$work/out.pdf" > "$work/check.txt" 2>&1 || fail "qpdf --check: $(cat "$work/check.txt")"
    grep -qi 'warning' "$work/check.txt" && fail "qpdf --check warns: $(cat "$work/check.txt")"
  else
    echo "SKIP: qpdf not installed, structure check skipped"
  fi
  # A rewrite of the rewrite keeps every object body.
  "$tool" --rewrite "$work/out.pdf" "$work/out2.pdf" > /dev/null 2>&1 || fail "second rewrite failed"
  sed 's/\r/\n/g' "$work/out.pdf" | sed '/^trailer$/q' > "$work/b1"
  sed 's/\r/\n/g' "$work/out2.pdf" | sed '/^trailer$/q' > "$work/b2"
  cmp -s "$work/b1" "$work/b2" || fail "rewriting a rewritten file changed its body"
fi

# A bad input fails with a message and leaves an existing target alone.
printf 'not a pdf' > "$work/bad.pdf"
printf 'keep me' > "$work/target.pdf"
if "$tool" --rewrite "$work/bad.pdf" "$work/target.pdf" > "$work/bad.txt" 2>&1; then
  fail "rewrite of a non-PDF succeeded"
fi
[ -s "$work/bad.txt" ] || fail "no message for a bad input"
[ "$(cat "$work/target.pdf")" = "keep me" ] || fail "target changed after a failed rewrite"
[ "$(ls -A "$work" | grep -c '\.tm')" = 0 ] || fail "temporary files left behind"

if [ "$fails" -gt 0 ]; then exit 1; fi
echo "PASS: round trip"
