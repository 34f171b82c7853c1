#!/usr/bin/env bash
# Content streams: parse and rewrite all page, form, pattern and Type 3
# glyph content of the corpus.
#
#   bench/content.sh [CORPUS_DIR]     (default ../shared/corpus beside the checkout)
#
# Prints
#   - the content-only figures: decoded content bytes per second through
#     the parser and the base handler, and the rewritten size as a share of
#     the decoded input (the compact form should not be larger);
#   - side by side, in one run over the same files, the wall time of
#     `tminspect --rewrite-content` (open, rewrite every content stream,
#     compress, save) and of `mutool clean -s` (which also rewrites every
#     content stream), and their ratio.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
corpus="${1:-$(dirname "${BASH_SOURCE[0]}")/../../shared/corpus}"
build="$ROOT/build-bench"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$ROOT" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTRIMORA_BUILD_TESTS=OFF >/dev/null
fi
cmake --build "$build" --target tm_content tminspect -j2 >/dev/null
bench="$build/content_bench"
g++ -std=c++20 -O2 -I"$ROOT" "$ROOT/bench/content_bench.cpp" -o "$bench" \
  "$build/content/libtm_content.a" "$build/pdfcore/libtm_pdfcore.a" "$build/filters/libtm_filters.a" \
  "$build/base/libtm_log.a" "$build/base/libtm_vellum_base.a" -lz -ljpeg -ljbig2dec

# The files both programs open, with their user passwords.
list="$work/list.tsv"
: > "$list"
tail -n +2 "$corpus/MANIFEST.tsv" | while IFS=$'\t' read -r file _ _ _ _ traits; do
  pw=""
  IFS=',' read -ra t <<< "$traits"
  for x in "${t[@]}"; do case "$x" in userpw=*) pw="${x#userpw=}" ;; esac; done
  [ -f "$corpus/$file" ] || continue
  "$build/tools/tminspect" "$corpus/$file" ${pw:+--password "$pw"} > /dev/null 2>&1 || continue
  mutool info ${pw:+-p "$pw"} "$corpus/$file" > /dev/null 2>&1 || continue
  printf '%s\t%s\n' "$corpus/$file" "$pw" >> "$list"
done
echo "files: $(wc -l < "$list")"

"$bench" "$list"

run_all() {  # run_all ours|stored|mutool
  while IFS=$'\t' read -r path pw; do
    if [ "$1" = ours ]; then
      "$build/tools/tminspect" --rewrite-content "$path" "$work/out.pdf" --no-check ${pw:+--password "$pw"} > /dev/null 2>&1 || true
    elif [ "$1" = stored ]; then
      "$build/tools/tminspect" --rewrite-content "$path" "$work/out.pdf" --no-check --store ${pw:+--password "$pw"} > /dev/null 2>&1 || true
    else
      mutool clean -s ${pw:+-p "$pw"} "$path" "$work/out.pdf" > /dev/null 2>&1 || true
    fi
  done < "$list"
}
# mutool clean -s writes the new content uncompressed, so our run is timed
# both ways: compressed as trimora writes it, and stored like mutool's.
# Wall time and CPU time (user + system) are given: on a busy machine the
# CPU time is the steadier measure.
TIMEFORMAT="%R %U %S"
measure() {  # measure MODE -> "wall cpu"
  { time run_all "$1" ; } 2> "$work/time.txt"
  awk '{ printf "%.2f %.2f", $1, $2 + $3 }' "$work/time.txt"
}
read -r ours_w ours_c <<< "$(measure ours)"
read -r stored_w stored_c <<< "$(measure stored)"
read -r mu_w mu_c <<< "$(measure mutool)"
ratio() { echo "scale=2; $1 / $2" | bc -l; }
printf '%-42s wall %6.2f s  cpu %6.2f s  cpu ratio to mutool %s\n' \
  "tminspect --rewrite-content (compressed)" "$ours_w" "$ours_c" "$(ratio "$ours_c" "$mu_c")" \
  "tminspect --rewrite-content --store" "$stored_w" "$stored_c" "$(ratio "$stored_c" "$mu_c")"
printf '%-42s wall %6.2f s  cpu %6.2f s\n' "mutool clean -s" "$mu_w" "$mu_c"
