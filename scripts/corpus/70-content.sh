#!/usr/bin/env bash
# Content rewrite: every page, form XObject, tiling pattern and Type 3 glyph
# of every file is parsed and rewritten through the base content handler
# (tminspect --rewrite-content), the document saved, and pages rendered
# before and after at 72 dpi (pdftoppm) must have identical pixels.  A page
# that differs is named with the operators its rewrite dropped.  A page that
# a plain full save of the input (no content change) renders exactly as the
# rewrite does is not the content rewrite's doing: it is named in the PASS
# line and left to the round-trip stage.
#
# Every page is rewritten, but rendering all 4000-odd corpus pages twice
# takes too long for CI on two cores, so at most $CONTENT_SAMPLE pages per
# file are rendered (default 12): the first three, the last, and the rest
# spread evenly, plus every page whose rewrite dropped an operator.  Set
# CONTENT_SAMPLE=0 to render every page.
#
#   70-content.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
manifest="$corpus/MANIFEST.tsv"
sample="${CONTENT_SAMPLE:-12}"

tool="$(find_program "$build" tminspect)"
[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }
have_render=1; command -v pdftoppm > /dev/null 2>&1 || have_render=0

tail -n +2 "$manifest" | while IFS=$'\t' read -r file _ _ _ _ traits; do
  in="$corpus/$file"
  [ -f "$in" ] || { echo "SKIP $file: not in the corpus folder"; continue; }
  [ -n "$tool" ] || { echo "SKIP $file: tminspect is not built"; continue; }
  read_traits "$traits"
  if ! "$tool" "$in" ${password:+--password "$password"} > "$work/open.txt" 2>&1; then
    echo "SKIP $file: the input does not open: $(tail -n 1 "$work/open.txt")"
    continue
  fi
  out="$work/${file%.pdf}.content.pdf"
  if ! "$tool" --rewrite-content "$in" "$out" ${password:+--password "$password"} > "$work/rw.txt" 2>&1; then
    echo "FAIL $file: the rewrite failed: $(tail -n 1 "$work/rw.txt")"
    continue
  fi
  summary="$(tail -n 1 "$work/rw.txt")"
  if grep -q "not rewritten" "$work/rw.txt"; then
    echo "FAIL $file: $(grep -m 2 "not rewritten" "$work/rw.txt" | tr '\n' ' ')"
    continue
  fi
  if [ "$have_render" = 0 ]; then
    echo "PASS $file: $summary (not rendered: pdftoppm is missing)"
    continue
  fi
  pages="$(pdfinfo "$out" 2> /dev/null | awk '/^Pages:/{print $2}')"
  [ -n "$pages" ] || { echo "FAIL $file: the rewritten file has no page count"; continue; }
  # The pages to render: a spread sample plus every page that lost an operator.
  lost_pages="$(sed -n 's/^page \([0-9]*\) lost:.*/\1/p' "$work/rw.txt")"
  list_pages="$(python3 - "$pages" "$sample" $lost_pages <<'PY'
import sys
n, k = int(sys.argv[1]), int(sys.argv[2])
extra = [int(x) for x in sys.argv[3:]]
if k <= 0 or n <= k:
    pick = set(range(1, n + 1))
else:
    pick = {1, 2, 3, n}
    rest = k - len(pick)
    for i in range(1, rest + 1):
        pick.add(1 + round(i * (n - 1) / (rest + 1)))
pick |= {p for p in extra if 1 <= p <= n}
print(" ".join(str(p) for p in sorted(pick)))
PY
)"
  # An input the renderer cannot open (a damaged file that only our parser
  # repairs) is compared through a plain full save of it instead, which
  # changes nothing but the file structure.
  before="$in"
  beforepw="$password"
  if ! pdfinfo ${password:+-upw "$password"} "$in" > /dev/null 2>&1; then
    before="$work/plain.pdf"
    beforepw=""
    "$tool" --rewrite "$in" "$before" ${password:+--password "$password"} > /dev/null 2>&1
  fi
  differ=()
  structural=()
  rendered=0
  for p in $list_pages; do
    rm -f "$work"/a-*.ppm "$work"/b-*.ppm
    pdftoppm -q -r 72 -f "$p" -l "$p" ${beforepw:+-upw "$beforepw"} "$before" "$work/a" 2> /dev/null
    pdftoppm -q -r 72 -f "$p" -l "$p" "$out" "$work/b" 2> /dev/null
    a="$(ls "$work"/a-*.ppm 2> /dev/null | head -n 1)"
    b="$(ls "$work"/b-*.ppm 2> /dev/null | head -n 1)"
    # A page the renderer cannot draw from the input is not compared.
    [ -n "$a" ] || continue
    rendered=$((rendered + 1))
    if [ -z "$b" ] || ! cmp -s "$a" "$b"; then
      # A page that a plain full save (no content change) renders the same
      # way differs because of the file structure, not the content rewrite:
      # it is counted apart, and the round-trip stage answers for it.
      if [ -n "$b" ] && [ "$before" = "$in" ]; then
        [ -f "$work/plain.pdf" ] || "$tool" --rewrite "$in" "$work/plain.pdf" ${password:+--password "$password"} > /dev/null 2>&1
        rm -f "$work"/c-*.ppm
        pdftoppm -q -r 72 -f "$p" -l "$p" "$work/plain.pdf" "$work/c" 2> /dev/null
        c="$(ls "$work"/c-*.ppm 2> /dev/null | head -n 1)"
        if [ -n "$c" ] && cmp -s "$b" "$c"; then
          structural+=("$p")
          continue
        fi
      fi
      ops="$(sed -n "s/^page $p lost: //p" "$work/rw.txt")"
      differ+=("page $p (${ops:-no operator dropped})")
    fi
  done
  rm -f "$work"/a-*.ppm "$work"/b-*.ppm "$work"/c-*.ppm "$out" "$work/plain.pdf"
  if [ ${#differ[@]} -gt 0 ]; then
    echo "FAIL $file: ${#differ[@]} of $rendered rendered pages differ: ${differ[*]:0:4}"
  else
    note=""
    [ "$before" != "$in" ] && note=" (against a plain save: the input does not render)"
    [ ${#structural[@]} -gt 0 ] && note="$note; pages ${structural[*]:0:8} differ from the input as a plain save does too"
    echo "PASS $file: $summary; $rendered pages rendered identical$note"
  fi
done
