#!/usr/bin/env bash
# The usage path: no arguments, -v, -h/-help and a bad option value all print
# the version (and the usage unless -v) and exit with status 1.
set -u
bin="$1"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
fail=0
check() { if [ "$2" != "$3" ]; then echo "FAIL: $1"; echo "--- expected"; printf '%s' "$3" | od -c | head -20; echo "--- got"; printf '%s' "$2" | od -c | head -20; fail=1; fi; }

run() {  # run ARGS...: leaves out, err, rc
  (cd "$work" && "$bin" "$@" >"$work/out" 2>"$work/err"); rc=$?
  out="$(od -An -c "$work/out")"
}

# The version line and the two notice lines come first on standard error.
run
check "no arguments: exit status" "$rc" "1"
check "no arguments: stdout is one blank line" "$out" "$(printf '\n' | od -An -c)"
head -n 1 "$work/err" | grep -Eq '^trimora version 2\.5, Build Date Apr 16 2004, Vellum [^ ]+$' || { echo "FAIL: version line"; head -n1 "$work/err"; fail=1; }
# The exact usage text is checked by the unit tests; here its frame.
sed -n 4p "$work/err" | grep -qx 'Usage: trimora \[options\] <PDF-file> \[<PDF-file2>...\]' || { echo "FAIL: usage line"; fail=1; }
[ "$(wc -l < "$work/err")" -eq 33 ] || { echo "FAIL: usage length"; fail=1; }
cp "$work/err" "$work/full"
head -n 3 "$work/err" > "$work/banner"
[ "$(wc -l < "$work/banner")" -eq 3 ] || { echo "FAIL: banner lines"; fail=1; }

run -v
check "-v: exit status" "$rc" "1"
check "-v: nothing on stdout" "$out" ""
cmp -s "$work/err" "$work/banner" || { echo "FAIL: -v prints the version and notices only"; cat "$work/err"; fail=1; }

# Help, and a non-numeric -keyLength (the parse fails): usage, no work.
for args in "-h" "-help" "-keyLength abc"; do
  run $args in.pdf
  check "$args: exit status" "$rc" "1"
  cmp -s "$work/err" "$work/full" || { echo "FAIL: $args prints banner and usage"; cat "$work/err"; fail=1; }
done
# A value missing at the end does the same.
run in.pdf -o
check "-o without value: exit status" "$rc" "1"

# Upper-case spellings are unknown options: ignored, so with an input the
# run goes ahead instead of printing the usage.
run -HELP in.pdf
check "-HELP in.pdf: exit status" "$rc" "0"

exit $fail
