#!/usr/bin/env bash
# Flattening: every corpus file is run with annot-processing and
# acroform-processing set to Flatten, flatten-xobjects and
# remove-transparency on (and nothing else that changes how a page looks),
# and pages are rendered before and after (pdftoppm, 72 dpi; poppler draws
# annotations).  A flattened page must look like the original with its
# annotations: a PSNR of at least 40 dB.  Pages listed in `known_below` may
# go lower, down to their stated floor, for the reason given there; they
# are named in the PASS line.  Outputs must also pass `qpdf --check` and
# keep their page count.
#
# The pages compared are those on which annotations or form XObjects were
# flattened (trimora's debug log names them), at most $FLATTEN_SAMPLE of
# them per file (default 6) spread over the file, plus page 1.
# FLATTEN_SAMPLE=0 compares every such page.
#
#   80-flatten.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
manifest="$corpus/MANIFEST.tsv"
sample="${FLATTEN_SAMPLE:-6}"
bin="$(find_program "$build" trimora)"
[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }
have_qpdf=1; command -v qpdf > /dev/null 2>&1 || have_qpdf=0
have_render=1; command -v pdftoppm > /dev/null 2>&1 && command -v python3 > /dev/null 2>&1 || have_render=0

settings="$work/flatten.tmc"
cat > "$settings" << 'TMC'
<?xml version = "1.0" encoding = "UTF-8"?>
<trimora>
  <target name="Flatten" pdfMajorVersion="0" pdfMinorVersion="0" precision="5" eval-units="Points">
    <optimize>
      <remove-ocgs>false</remove-ocgs>
      <remove-embedded-files>false</remove-embedded-files>
      <remove-transparency>true</remove-transparency>
      <flatten-xobjects>true</flatten-xobjects>
      <annot-processing>Flatten</annot-processing>
      <acroform-processing>Flatten</acroform-processing>
    </optimize>
  </target>
</trimora>
TMC

# file:page -> "floor reason".  Poppler draws some annotation appearances
# differently from the same form drawn by the page; MuPDF renders these
# pages of the original (with annotations) and of the flattened file alike
# (above 60 dB).
declare -A known_below=(
  ["l3pdffield-checkbox.pdf:1"]="30 poppler leaves this check box's Off appearance undrawn; the page now shows it"
  ["microtype.pdf:1"]="34 poppler draws this push button's appearance without its transparency group"
)


tail -n +2 "$manifest" | while IFS=$'\t' read -r file _ pages _ _ traits; do
  in="$corpus/$file"
  [ -f "$in" ] || { echo "SKIP $file: not in the corpus folder"; continue; }
  [ -n "$bin" ] || { echo "SKIP $file: trimora is not built"; continue; }
  read_traits "$traits"
  [ "$broken" = 0 ] || { echo "SKIP $file: damaged input (the damaged-file stage covers it)"; continue; }
  out="$work/out.pdf"
  rm -f "$out"
  nice -n 5 timeout -k 5 300 "$bin" -f "$settings" -report -debug ${password:+-openPass "$password"} -o "$out" "$in" \
    > "$work/out.txt" 2> "$work/err.txt"
  rc=$?
  if [ "$rc" -ne 0 ] || grep -q "Error during processing" "$work/out.txt" "$work/err.txt"; then
    echo "FAIL $file: exit status $rc: $(grep -h -m1 -E 'Error|error' "$work/out.txt" "$work/err.txt" | head -n 1)"
    continue
  fi
  problems=(); notes=()
  check_output "$in" "$out"
  flat_pages="$(sed -n 's/^Page \([0-9]*\): [0-9]* \(annotations drawn into the page\|form XObjects drawn in place\).*/\1/p' \
    "$work/out.txt" "$work/err.txt")"
  if [ -z "$flat_pages" ]; then
    if [ ${#problems[@]} -eq 0 ]; then echo "PASS $file: nothing to flatten"; else echo "FAIL $file: ${problems[*]}"; fi
    continue
  fi
  list_pages="$(python3 - "$sample" $flat_pages << 'PY'
import sys
k = int(sys.argv[1])
pages = sorted({int(x) for x in sys.argv[2:]})
if k > 0 and len(pages) > k:
    pages = [pages[round(i * (len(pages) - 1) / (k - 1))] for i in range(k)] if k > 1 else pages[:1]
print(" ".join(str(p) for p in sorted(set(pages) | {1})))
PY
)"
  worst="inf"; compared=0
  if [ "$have_render" = 1 ]; then
    for p in $list_pages; do
      rm -f "$work"/a-* "$work"/b-*
      pdftoppm -q -r 72 -f "$p" -l "$p" ${password:+-upw "$password"} "$in" "$work/a" 2> /dev/null
      pdftoppm -q -r 72 -f "$p" -l "$p" ${password:+-upw "$password"} "$out" "$work/b" 2> /dev/null
      a="$(ls "$work"/a-* 2> /dev/null | head -n 1)"; b="$(ls "$work"/b-* 2> /dev/null | head -n 1)"
      [ -n "$a" ] || continue
      [ -n "$b" ] || { problems+=("page $p did not render"); continue; }
      compared=$((compared + 1))
      db="$(psnr "$a" "$b")"
      [ "$db" = "size" ] && { problems+=("page $p changed size"); continue; }
      [ "$db" = "inf" ] && continue
      if [ "$worst" = "inf" ] || awk -v x="$db" -v y="$worst" 'BEGIN{exit !(x < y)}'; then worst="$db"; fi
      judge_psnr "$p" "$db" 40
    done
  fi
  size_in=$(stat -c %s "$in"); size_out=$(stat -c %s "$out")
  annots="$(cat "$work/out.txt" "$work/err.txt" | grep -c 'annotations drawn into the page')"
  forms="$(cat "$work/out.txt" "$work/err.txt" | grep -c 'form XObjects drawn in place')"
  summary="annotations flattened on $annots pages, form XObjects on $forms pages"
  if [ ${#problems[@]} -eq 0 ]; then
    echo "PASS $file: $size_in -> $size_out bytes, $compared pages compared, worst $worst dB; $summary${notes:+; ${notes[*]}}"
  else
    echo "FAIL $file: ${problems[*]}"
  fi
  rm -f "$out" "$work"/a-* "$work"/b-*
done
