#!/usr/bin/env bash
# Round-trip speed and memory against qpdf.
#
#   bench/roundtrip.sh CORPUS_DIR [BUILD_DIR]
#
# Rewrites every PDF of CORPUS_DIR with `tminspect --rewrite IN OUT` (open,
# full save) and with `qpdf IN OUT`, one run each, and prints the total wall
# time of both and their ratio; then the peak resident memory (KB, from
# /usr/bin/time -f %M) of both on the largest file and that ratio.  Files
# that either tool cannot open are left out of both totals.  BUILD_DIR
# defaults to build/ (a Release tree).  Target: time ratio <= 1.0, memory
# ratio <= 1.5.
set -uo pipefail
corpus="${1:?usage: $0 CORPUS_DIR [BUILD_DIR]}"
build="${2:-$(cd "$(dirname "$0")/.." && pwd)/build}"
tool="$build/tools/tminspect"
[ -x "$tool" ] || { echo "no $tool: build the tminspect target first" >&2; exit 2; }
command -v qpdf > /dev/null || { echo "qpdf is not installed" >&2; exit 2; }
[ -x /usr/bin/time ] || { echo "/usr/bin/time is not installed" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
manifest="$corpus/MANIFEST.tsv"

password_of() {
  [ -f "$manifest" ] || return 0
  awk -F'\t' -v f="$1" '$1 == f { n = split($6, t, ","); for (i = 1; i <= n; i++) if (t[i] ~ /^userpw=/) print substr(t[i], 8) }' "$manifest"
}
now() { date +%s.%N; }

ours=0; theirs=0; files=0; largest=""; largest_size=0
for in in "$corpus"/*.pdf; do
  name="$(basename "$in")"
  pw="$(password_of "$name")"
  "$tool" "$in" ${pw:+--password "$pw"} > /dev/null 2>&1 || continue
  qpdf ${pw:+--password="$pw"} --check "$in" > /dev/null 2>&1; [ $? -eq 2 ] && continue
  t0=$(now); "$tool" --rewrite "$in" "$work/a.pdf" ${pw:+--password "$pw"} > /dev/null 2>&1; rc_a=$?; t1=$(now)
  qpdf ${pw:+--password="$pw"} "$in" "$work/b.pdf" > /dev/null 2>&1; rc_b=$?; t2=$(now)
  [ $rc_a -eq 0 ] && { [ $rc_b -eq 0 ] || [ $rc_b -eq 3 ]; } || continue
  ours=$(echo "$ours + $t1 - $t0" | bc -l)
  theirs=$(echo "$theirs + $t2 - $t1" | bc -l)
  files=$((files + 1))
  size=$(stat -c %s "$in")
  if [ "$size" -gt "$largest_size" ]; then largest="$in"; largest_size=$size; largest_pw="$pw"; fi
done
[ "$files" -gt 0 ] || { echo "no file could be compared" >&2; exit 2; }
printf 'files: %d\n' "$files"
printf 'time: ours %.2f s, qpdf %.2f s, ratio %.2f\n' "$ours" "$theirs" "$(echo "$ours / $theirs" | bc -l)"

mem_a=$(/usr/bin/time -f %M "$tool" --rewrite "$largest" "$work/a.pdf" ${largest_pw:+--password "$largest_pw"} 2>&1 > /dev/null | tail -n 1)
mem_b=$(/usr/bin/time -f %M qpdf ${largest_pw:+--password="$largest_pw"} "$largest" "$work/b.pdf" 2>&1 > /dev/null | tail -n 1)
printf 'memory on %s (%d bytes): ours %d KB, qpdf %d KB, ratio %.2f\n' "$(basename "$largest")" "$largest_size" \
  "$mem_a" "$mem_b" "$(echo "$mem_a / $mem_b" | bc -l)"
