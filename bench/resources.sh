#!/usr/bin/env bash
# trimora with examples/lossless-cleanup.tmc (duplicates merged, every
# stream recompressed, images rewritten losslessly) over a folder of PDFs,
# and over one file made by merging all of them, side by side with qpdf
# (object streams, recompressed Flate at level 9) and mutool clean -gggg -z,
# from one run: total output bytes and total time of each tool, and
# trimora's ratios against the other two.  Files a tool fails on count with
# their input size for that tool, so no tool gains by failing.
#
#   bench/resources.sh [CORPUS_DIR] [BUILD_DIR]
# Defaults: ../shared/corpus beside the checkout and build/ (a Release build is best).
set -u
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
corpus="${1:-$(dirname "${BASH_SOURCE[0]}")/../../shared/corpus}"
build="${2:-$root/build}"
bin="$build/frontend/trimora"
[ -x "$bin" ] || { echo "no trimora at $bin (build it first)" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
manifest="$corpus/MANIFEST.tsv"
preset="$root/examples/lossless-cleanup.tmc"

source "$root/bench/common.sh"

run_tool() {  # tool in out password
  case $1 in
    trimora) cp "$2" "$3" && chmod u+w "$3" && "$bin" -f "$preset" ${4:+-openPass "$4"} "$3" > /dev/null 2> "$work/err.txt" \
               && ! grep -q "Error during processing" "$work/err.txt" ;;
    qpdf) qpdf ${4:+--password="$4"} --object-streams=generate --recompress-flate --compression-level=9 \
            "$2" "$3" > /dev/null 2>&1; rc=$?; [ $rc -eq 0 ] || [ $rc -eq 3 ] ;;
    mutool) mutool clean ${4:+-p "$4"} -gggg -z "$2" "$3" > /dev/null 2>&1 ;;
  esac
}

# One file holding every unencrypted, undamaged corpus document, merged by
# qpdf (which keeps each document's objects as they are).
inputs=()
for in in "$corpus"/*.pdf; do
  f=$(basename "$in")
  [ -z "$(password_for "$f")" ] || continue
  case "$f" in broken-*) continue ;; esac
  inputs+=("$in")
done
mkdir -p "$work/all"
qpdf --empty --pages "${inputs[@]}" -- "$work/all/merged-corpus.pdf" > /dev/null 2>&1

declare -A bytes secs fails mbytes msecs
tools=(trimora qpdf mutool)
for t in "${tools[@]}"; do bytes[$t]=0; secs[$t]=0; fails[$t]=0; done
total_in=0
printf '%-40s %10s %10s %10s %10s\n' file input trimora qpdf mutool
for in in "$corpus"/*.pdf "$work/all/merged-corpus.pdf"; do
  [ -f "$in" ] || continue
  f=$(basename "$in"); pw=$(password_for "$f"); size=$(stat -c %s "$in")
  [ "$f" = merged-corpus.pdf ] || total_in=$((total_in + size))
  row=$(printf '%-40s %10d' "$f" "$size")
  for t in "${tools[@]}"; do
    out="$work/$t.pdf"; rm -f "$out"
    command -v "$t" > /dev/null 2>&1 || [ "$t" = trimora ] || { row+=$(printf ' %10s' -); continue; }
    t0=$(date +%s.%N)
    if timeout -k 5 600 bash -c "$(declare -f run_tool); bin='$bin'; work='$work'; preset='$preset'; run_tool \"\$@\"" _ "$t" "$in" "$out" "$pw" \
       && [ -s "$out" ]; then
      got=$(stat -c %s "$out")
    else
      got=$size; fails[$t]=$((fails[$t] + 1))
    fi
    t1=$(date +%s.%N)
    if [ "$f" = merged-corpus.pdf ]; then
      mbytes[$t]=$got
      msecs[$t]=$(awk -v b="$t0" -v c="$t1" 'BEGIN{printf "%.2f", c - b}')
      row+=$(printf ' %10d' "$got")
      continue
    fi
    secs[$t]=$(awk -v a="${secs[$t]}" -v b="$t0" -v c="$t1" 'BEGIN{printf "%.2f", a + c - b}')
    bytes[$t]=$((bytes[$t] + got))
    row+=$(printf ' %10d' "$got")
  done
  echo "$row"
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
for t in qpdf mutool; do
  awk -v t="$t" -v ob="${mbytes[trimora]}" -v os="${msecs[trimora]}" -v tb="${mbytes[$t]}" -v ts="${msecs[$t]}" \
    'BEGIN{ printf "merged corpus file, trimora / %s: size ratio %.4f, time ratio %.2f\n", t, (tb ? ob / tb : 0), (ts > 0 ? os / ts : 0) }'
done
