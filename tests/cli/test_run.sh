#!/usr/bin/env bash
# Runs with inputs: the exit status is 0 even when processing fails, the
# failure is one "Error during processing" line, and -log sends the lines to
# an appended file (or warns once when the file cannot be opened).
set -u
bin="$1"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
fail=0
printf 'this is not a PDF file\n' > "$work/in.pdf"

# -keyLength 56 is accepted by the parser (and ignored later): a normal run.
(cd "$work" && "$bin" -keyLength 56 in.pdf >"$work/out" 2>"$work/err"); rc=$?
[ "$rc" -eq 0 ] || { echo "FAIL: run exit status $rc"; fail=1; }
[ ! -s "$work/out" ] || { echo "FAIL: nothing expected on stdout"; cat "$work/out"; fail=1; }
grep -c "^Error during processing: '" "$work/err" | grep -qx 1 || { echo "FAIL: one error line"; cat "$work/err"; fail=1; }
[ ! -e "$work/Log.txt" ] || { echo "FAIL: no Log.txt without -log"; fail=1; }

# -log into a folder that does not exist: exactly one warning, run goes on.
(cd "$work" && "$bin" -log "$work/nope/log.txt" in.pdf >"$work/out" 2>"$work/err"); rc=$?
[ "$rc" -eq 0 ] || { echo "FAIL: -log missing folder exit status $rc"; fail=1; }
n=$(grep -c "^Warning: error opening log file $work/nope/log.txt\$" "$work/err")
[ "$n" -eq 1 ] || { echo "FAIL: expected one warning, got $n"; cat "$work/err"; fail=1; }
[ "$(grep -c '^Warning' "$work/err")" -eq 1 ] || { echo "FAIL: extra warnings"; cat "$work/err"; fail=1; }
grep -q "^Error during processing: '" "$work/err" || { echo "FAIL: run did not go on"; cat "$work/err"; fail=1; }

# -log into a writable file, twice: two parts, each with separator and stamp.
for i in 1 2; do
  (cd "$work" && "$bin" -log "$work/run.log" in.pdf >/dev/null 2>"$work/err$i") || { echo "FAIL: -log run $i"; fail=1; }
done
[ "$(grep -c -- '^--------------------$' "$work/run.log")" -eq 2 ] || { echo "FAIL: two separators"; cat "$work/run.log"; fail=1; }
[ "$(grep -c "^Error during processing: '" "$work/run.log")" -eq 2 ] || { echo "FAIL: error line in file"; cat "$work/run.log"; fail=1; }
grep -Eq '^[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} [0-9]{4}$' "$work/run.log" || { echo "FAIL: time stamp"; fail=1; }
grep -q "^Error during processing: '" "$work/err1" || { echo "FAIL: error line also on stderr"; fail=1; }
# -debug puts "Writing error log" on stdout and in the file.
(cd "$work" && "$bin" -debug -log "$work/dbg.log" in.pdf >"$work/out" 2>/dev/null)
grep -qx "Writing error log: $work/dbg.log" "$work/out" || { echo "FAIL: -debug notice on stdout"; cat "$work/out"; fail=1; }
grep -qx "Writing error log: $work/dbg.log" "$work/dbg.log" || { echo "FAIL: -debug notice in file"; fail=1; }

exit $fail
