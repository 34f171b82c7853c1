#!/usr/bin/env bash
# Round trip: every corpus file is rewritten by a full save (nothing else
# changed) and the result must
#   - pass `qpdf --check` without errors, and without warnings the input
#     did not have already;
#   - keep its page count;
#   - render pages 1-3 identically to the input (pdftoppm, 72 dpi).
# Encrypted inputs are opened with their user password (trait userpw=...);
# the output of a rewrite is not encrypted.
#
#   30-roundtrip.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
manifest="$corpus/MANIFEST.tsv"

tool="$(find_program "$build" tminspect)"
[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }
have_qpdf=1; command -v qpdf > /dev/null 2>&1 || have_qpdf=0
have_render=1; command -v pdftoppm > /dev/null 2>&1 || have_render=0

# qpdf's messages without file names and numbers, one per line, sorted.
normalise() { sed -e 's/^WARNING: [^:]*: //' -e 's/[0-9][0-9]*/N/g' | sort -u; }

tail -n +2 "$manifest" | while IFS=$'\t' read -r file _ pages _ _ traits; do
  in="$corpus/$file"
  [ -f "$in" ] || { echo "SKIP $file: not in the corpus folder"; continue; }
  [ -n "$tool" ] || { echo "SKIP $file: tminspect is not built"; continue; }
  read_traits "$traits"
  out="$work/${file%.pdf}.out.pdf"
  if ! "$tool" "$in" ${password:+--password "$password"} > "$work/open.txt" 2>&1; then
    echo "SKIP $file: the input does not open: $(tail -n 1 "$work/open.txt")"
    continue
  fi
  if ! "$tool" --rewrite "$in" "$out" ${password:+--password "$password"} > "$work/rw.txt" 2>&1; then
    echo "FAIL $file: rewrite failed: $(tail -n 1 "$work/rw.txt")"
    continue
  fi
  # The manifest gives "?" for files whose page count is unknown: use what
  # the input shows then.
  listed="$pages"
  case "$pages" in
    ''|*[!0-9]*) pages="$(pdfinfo ${password:+-upw "$password"} "$in" 2> /dev/null | awk '/^Pages:/{print $2}')" ;;
  esac
  # A damaged input that poppler cannot count: take qpdf's or MuPDF's
  # repaired count.
  if [ -z "$pages" ] && [ "$have_qpdf" = 1 ]; then
    pages="$(qpdf ${password:+--password="$password"} --show-npages "$in" 2> /dev/null | grep -E '^[0-9]+$' | head -n 1)"
  fi
  if [ -z "$pages" ] && command -v mutool > /dev/null 2>&1; then
    pages="$(mutool info ${password:+-p "$password"} "$in" 2> /dev/null | awk '/^Pages:/{print $2; exit}')"
  fi
  problems=()
  if [ "$have_qpdf" = 1 ]; then
    qpdf --check "$out" > "$work/out.chk" 2>&1
    orc=$?
    # qpdf --check exits 0 when clean, 3 with warnings only, 2 on errors.
    if [ "$orc" != 0 ] && [ "$orc" != 3 ]; then
      problems+=("qpdf --check errors: $(grep -v '^checking\|^PDF Version\|^File is\|^No syntax' "$work/out.chk" | head -n 2 | tr '\n' ' ')")
    elif [ "$orc" = 3 ]; then
      qpdf --check ${password:+--password="$password"} "$in" > "$work/in.chk" 2>&1
      new="$(comm -13 <(grep '^WARNING' "$work/in.chk" | normalise) <(grep '^WARNING' "$work/out.chk" | normalise) | head -n 2 | tr '\n' ' ')"
      [ -n "$new" ] && problems+=("new qpdf warnings: $new")
    fi
  fi
  got="$(pdfinfo "$out" 2> /dev/null | awk '/^Pages:/{print $2}')"
  if [ -z "$pages" ]; then
    problems+=("the input's page count is unknown")
  elif [ "$got" != "$pages" ]; then
    # A damaged file in which the other readers find no page at all, while
    # trimora recovers pages from the objects that survive, is a gain.
    if [ "$listed" = "?" ] && [ "$pages" = 0 ] && [ "${got:-0}" -gt 0 ] 2> /dev/null; then
      echo "NOTE $file: $got pages recovered where the other readers find none"
    else
      problems+=("page count $got, expected $pages")
    fi
  fi
  if [ "$have_render" = 1 ]; then
    rm -f "$work"/a-* "$work"/b-*
    pdftoppm -q -r 72 -f 1 -l 3 ${password:+-upw "$password"} "$in" "$work/a" 2> /dev/null
    pdftoppm -q -r 72 -f 1 -l 3 "$out" "$work/b" 2> /dev/null
    for a in "$work"/a-*; do
      [ -e "$a" ] || break
      b="$work/b-${a##*/a-}"
      if [ ! -e "$b" ]; then problems+=("page ${a##*/a-} did not render"); continue; fi
      cmp -s "$a" "$b" || problems+=("page ${a##*/a-} renders differently")
    done
  fi
  if [ ${#problems[@]} -eq 0 ]; then
    echo "PASS $file: $(stat -c %s "$in") -> $(stat -c %s "$out") bytes"
  else
    echo "FAIL $file: ${problems[*]}"
  fi
  rm -f "$out"
done
