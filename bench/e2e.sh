#!/usr/bin/env bash
# trimora with the lossless preset (examples/lossless-cleanup.tmc, which
# writes the compact form) over a folder of PDFs, side by side with qpdf
# (object streams, recompressed Flate at level 9) and mutool clean -gggz,
# from one run: total output bytes and total time of each tool, trimora's
# ratios against the other two, and the ten files where trimora's output is
# largest against the smaller of the other two.  Files a tool fails on count
# with their input size for that tool, so no tool gains by failing; an
# output without pages (as qpdf counts them) is a failure too.
#
#   bench/e2e.sh [CORPUS_DIR] [BUILD_DIR]
# Defaults: ../shared/corpus beside the checkout and build/ (a Release build is best).  Set
# TRIMORA_SETTINGS to measure another settings file.
set -u
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
corpus="${1:-$(dirname "${BASH_SOURCE[0]}")/../../shared/corpus}"
build="${2:-$root/build}"
bin="$build/frontend/trimora"
preset="${TRIMORA_SETTINGS:-$root/examples/lossless-cleanup.tmc}"
[ -f "$preset" ] || { echo "no settings file $preset" >&2; exit 2; }
[ -x "$bin" ] || { echo "no trimora at $bin (build it first)" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
manifest="$corpus/MANIFEST.tsv"

source "$root/bench/common.sh"

run_tool() {  # tool in out password
  case $1 in
    trimora) cp "$2" "$3" && chmod u+w "$3" && "$bin" -f "$preset" ${4:+-openPass "$4"} "$3" > /dev/null 2> "$work/err.txt" \
               && ! grep -q "Error during processing" "$work/err.txt" ;;
    qpdf) qpdf ${4:+--password="$4"} --object-streams=generate --recompress-flate --compression-level=9 \
            "$2" "$3" > /dev/null 2>&1; rc=$?; [ $rc -eq 0 ] || [ $rc -eq 3 ] ;;
    mutool) mutool clean ${4:+-p "$4"} -gggz "$2" "$3" > /dev/null 2>&1 ;;
  esac
}

declare -A bytes secs fails size_of
: > "$work/behind.txt"
tools=(trimora qpdf mutool)
for t in "${tools[@]}"; do bytes[$t]=0; secs[$t]=0; fails[$t]=0; done
total_in=0
printf '%-40s %10s %10s %10s %10s\n' file input trimora qpdf mutool
for in in "$corpus"/*.pdf; do
  f=$(basename "$in"); pw=$(password_for "$f"); size=$(stat -c %s "$in")
  total_in=$((total_in + size))
  row=$(printf '%-40s %10d' "$f" "$size")
  size_of=()
  for t in "${tools[@]}"; do
    out="$work/$t.pdf"; rm -f "$out"
    command -v "$t" > /dev/null 2>&1 || [ "$t" = trimora ] || { row+=$(printf ' %10s' -); continue; }
    t0=$(date +%s.%N)
    timeout -k 5 600 bash -c "$(declare -f run_tool); bin='$bin'; work='$work'; preset='$preset'; run_tool \"\$@\"" _ "$t" "$in" "$out" "$pw"
    ok=$?
    t1=$(date +%s.%N)
    npages=$(qpdf ${pw:+--password="$pw"} --show-npages "$out" 2> /dev/null | head -n 1)
    if [ $ok -eq 0 ] && [ -s "$out" ] && [ "${npages:-0}" -gt 0 ] 2> /dev/null; then
      got=$(stat -c %s "$out")
    else
      got=$size; fails[$t]=$((fails[$t] + 1))
    fi
    secs[$t]=$(awk -v a="${secs[$t]}" -v b="$t0" -v c="$t1" 'BEGIN{printf "%.2f", a + c - b}')
    bytes[$t]=$((bytes[$t] + got))
    row+=$(printf ' %10d' "$got")
    size_of[$t]=$got
  done
  echo "$row"
  best=${size_of[qpdf]:-0}
  [ -n "${size_of[mutool]:-}" ] && { [ "$best" -eq 0 ] || [ "${size_of[mutool]}" -lt "$best" ]; } && best=${size_of[mutool]}
  [ "$best" -gt 0 ] && printf '%s %d %d %d %d\n' "$f" "$size" "${size_of[trimora]}" "$best" \
    "$((size_of[trimora] - best))" >> "$work/behind.txt"
done
echo
printf '%-8s %14s %8s %10s %7s\n' tool output_bytes of_input seconds failed
for t in "${tools[@]}"; do
  printf '%-8s %14d %8.4f %10.2f %7d\n' "$t" "${bytes[$t]}" \
    "$(awk -v o="${bytes[$t]}" -v i="$total_in" 'BEGIN{print (i ? o / i : 0)}')" "${secs[$t]}" "${fails[$t]}"
done
echo
for t in qpdf mutool; do
  awk -v t="$t" -v ob="${bytes[trimora]}" -v os="${secs[trimora]}" -v tb="${bytes[$t]}" -v ts="${secs[$t]}" \
    'BEGIN{ printf "trimora / %s: size ratio %.4f, time ratio %.2f\n", t, (tb ? ob / tb : 0), (ts > 0 ? os / ts : 0) }'
done
echo
echo "furthest behind: trimora against the smaller of qpdf and mutool"
printf '%-40s %10s %10s %10s %7s\n' file input trimora best ratio
awk '{ printf "%-40s %10d %10d %10d %7.4f\n", $1, $2, $3, $4, ($4 ? $3 / $4 : 0) }' "$work/behind.txt" \
  | sort -k5,5 -g -r | head -n 10
