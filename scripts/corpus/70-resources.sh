#!/usr/bin/env bash
# Resources and duplicates: trimora with examples/lossless-cleanup.tmc
# (duplicate images, profiles and objects merged, every stream recompressed,
# images rewritten losslessly) on a copy of every corpus file.  A file
# passes when the run ends without "Error during processing" (a file damaged
# beyond repair may be refused cleanly, left as it was), the output passes
# `qpdf --check`, keeps its page count and renders pages 1-3 (pdftoppm,
# 72 dpi) exactly like the input.  Then ten files are merged into one with
# and without the preset: the preset's output must hold fewer objects.
#
#   70-resources.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
preset="$root/examples/lossless-cleanup.tmc"
manifest="$corpus/MANIFEST.tsv"
bin=""
for t in "$build/frontend/trimora" "$build/trimora"; do
  [ -x "$t" ] && { bin="$t"; break; }
done
[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }
[ -n "$bin" ] || { echo "SKIP $corpus: trimora is not built"; exit 0; }
have_qpdf=1; command -v qpdf > /dev/null 2>&1 || have_qpdf=0
have_render=1; command -v pdftoppm > /dev/null 2>&1 || have_render=0

merge_list=()
while IFS=$'\t' read -r file _ pages _ _ traits; do
  in="$corpus/$file"
  [ -f "$in" ] || { echo "SKIP $file: not in the corpus folder"; continue; }
  read_traits "$traits"
  case "$traits" in *text*) [ -z "$password" ] && [ "$broken" = 0 ] && [ ${#merge_list[@]} -lt 10 ] \
    && merge_list+=("$in") ;; esac

  copy="$work/$file"
  cp "$in" "$copy" && chmod u+w "$copy"
  timeout -k 5 600 "$bin" -f "$preset" ${password:+-openPass "$password"} "$copy" \
    > "$work/out.txt" 2> "$work/err.txt"
  rc=$?
  if [ "$rc" -ne 0 ]; then
    echo "FAIL $file: exit status $rc"; rm -f "$copy"; continue
  fi
  if grep -q "Error during processing" "$work/err.txt"; then
    if [ "$unrecoverable" = 1 ] && cmp -s "$in" "$copy"; then
      echo "PASS $file: refused cleanly"
    else
      echo "FAIL $file: $(grep -m1 'Error during processing' "$work/err.txt")"
    fi
    rm -f "$copy"; continue
  fi
  problems=()
  check_output "$in" "$copy"
  if [ "$have_render" = 1 ]; then
    rm -f "$work"/a-* "$work"/b-*
    pdftoppm -q -r 72 -f 1 -l 3 ${password:+-upw "$password"} "$in" "$work/a" 2> /dev/null
    pdftoppm -q -r 72 -f 1 -l 3 ${password:+-upw "$password"} "$copy" "$work/b" 2> /dev/null
    for a in "$work"/a-*; do
      [ -e "$a" ] || break
      b="$work/b-${a##*/a-}"
      if [ ! -e "$b" ]; then problems+=("page ${a##*/a-} did not render"); break; fi
      cmp -s "$a" "$b" || { problems+=("page ${a##*/a-} renders differently"); break; }
    done
  fi
  size_in=$(stat -c %s "$in"); size_out=$(stat -c %s "$copy")
  if [ ${#problems[@]} -eq 0 ]; then
    echo "PASS $file: $size_in -> $size_out bytes"
  else
    echo "FAIL $file: ${problems[*]}"
  fi
  rm -f "$copy" "$work"/a-* "$work"/b-*
done < <(tail -n +2 "$manifest")

# Ten documents merged: fonts, resources and profiles that the documents
# share must end up once.
if [ ${#merge_list[@]} -ge 2 ] && [ "$have_qpdf" = 1 ]; then
  "$bin" "${merge_list[@]}" -o "$work/merged-plain.pdf" > /dev/null 2>&1
  "$bin" -f "$preset" "${merge_list[@]}" -o "$work/merged-lossless.pdf" > /dev/null 2>&1
  count() { qpdf --show-xref "$1" 2> /dev/null | grep -c 'uncompressed\|compressed'; }
  if [ -s "$work/merged-plain.pdf" ] && [ -s "$work/merged-lossless.pdf" ]; then
    plain=$(count "$work/merged-plain.pdf"); lossless=$(count "$work/merged-lossless.pdf")
    if [ "$lossless" -lt "$plain" ]; then
      echo "PASS merged ${#merge_list[@]} files: $plain objects, $lossless with duplicates merged"
    else
      echo "FAIL merged ${#merge_list[@]} files: $plain objects, $lossless with duplicates merged"
    fi
  else
    echo "FAIL merged ${#merge_list[@]} files: no output"
  fi
fi
