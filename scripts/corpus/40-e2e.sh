#!/usr/bin/env bash
# End to end: `trimora -report` with the default settings on a copy of every
# corpus file (replaced in place, as a user would run it).  A file passes when
#   - the program exits 0 without crashing and prints the summary;
#   - it printed no "Error during processing", unless the manifest marks the
#     file as damaged beyond what qpdf accepts (traits broken-* together
#     with qpdf-check-err): then a clean error message with the copy left
#     byte for byte as it was also passes;
#   - the output passes `qpdf --check` (with the user password when the
#     input was encrypted: its protection is kept);
#   - the page count is unchanged;
#   - pages 1-3 render (pdftoppm, 72 dpi) exactly like the input's, or
#     differ only through remove-ocgs or remove-embedded-files: then a run
#     keeping both must render exactly like the input.
#
#   40-e2e.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
manifest="$corpus/MANIFEST.tsv"
bin="$(find_program "$build" trimora)"
[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }
have_qpdf=1; command -v qpdf > /dev/null 2>&1 || have_qpdf=0
have_render=1; command -v pdftoppm > /dev/null 2>&1 || have_render=0
# The default settings, but keeping optional content and embedded files.
keeping="$work/keeping.tmc"
cat > "$keeping" << 'EOF'
<?xml version = "1.0" encoding = "UTF-8"?>
<trimora>
  <target name="Defaults keeping optional content and attachments">
    <optimize>
      <remove-embedded-files>false</remove-embedded-files>
      <remove-ocgs>false</remove-ocgs>
    </optimize>
  </target>
</trimora>
EOF

tail -n +2 "$manifest" | while IFS=$'\t' read -r file _ pages _ _ traits; do
  in="$corpus/$file"
  [ -f "$in" ] || { echo "SKIP $file: not in the corpus folder"; continue; }
  [ -n "$bin" ] || { echo "SKIP $file: trimora is not built"; continue; }
  read_traits "$traits"

  copy="$work/$file"
  cp "$in" "$copy" && chmod u+w "$copy"
  timeout -k 5 600 "$bin" -report ${password:+-openPass "$password"} "$copy" \
    > "$work/out.txt" 2> "$work/err.txt"
  rc=$?
  if [ "$rc" -ne 0 ]; then
    echo "FAIL $file: exit status $rc: $(grep -m1 -E 'ERROR|Error|error' "$work/err.txt")"
    rm -f "$copy"; continue
  fi
  if grep -q "Error during processing" "$work/err.txt"; then
    if [ "$unrecoverable" = 1 ] && cmp -s "$in" "$copy"; then
      echo "PASS $file: refused cleanly ($(grep -m1 'Error during processing' "$work/err.txt"))"
    else
      echo "FAIL $file: $(grep -m1 'Error during processing' "$work/err.txt")"
    fi
    rm -f "$copy"; continue
  fi
  problems=()
  grep -q "^   elapsed time   : " "$work/err.txt" || problems+=("no summary")
  grep -q "^Trimora accomplished the following:" "$work/err.txt" || problems+=("no report")
  if [ "$have_qpdf" = 1 ]; then
    qpdf --check ${password:+--password="$password"} "$copy" > "$work/chk.txt" 2>&1
    crc=$?
    [ "$crc" = 0 ] || [ "$crc" = 3 ] || problems+=("qpdf --check: $(grep -m1 -v '^checking\|^PDF Version\|^File is' "$work/chk.txt")")
  fi
  expected="$pages"
  if [ "$expected" = "?" ]; then
    expected="$(pdfinfo ${password:+-upw "$password"} "$in" 2> /dev/null | awk '/^Pages:/{print $2}')"
  fi
  got="$(pdfinfo ${password:+-upw "$password"} "$copy" 2> /dev/null | awk '/^Pages:/{print $2}')"
  if [ -n "$expected" ] && [ "$got" != "$expected" ]; then
    # Pages recovered from a damaged file in which the other readers find none are a gain.
    if [ "$pages" = "?" ] && [ "$expected" = 0 ] && [ "${got:-0}" -gt 0 ] 2> /dev/null; then
      echo "NOTE $file: $got pages recovered where the other readers find none"
    else
      problems+=("page count $got, expected $expected")
    fi
  fi
  if [ "$have_render" = 1 ]; then
    rm -f "$work"/a-* "$work"/b-*
    pdftoppm -q -r 72 -f 1 -l 3 ${password:+-upw "$password"} "$in" "$work/a" 2> /dev/null
    pdftoppm -q -r 72 -f 1 -l 3 ${password:+-upw "$password"} "$copy" "$work/b" 2> /dev/null
    differs=""
    for a in "$work"/a-*; do
      [ -e "$a" ] || break
      b="$work/b-${a##*/a-}"
      if [ ! -e "$b" ]; then problems+=("page ${a##*/a-} did not render"); break; fi
      cmp -s "$a" "$b" || { differs="${a##*/a-}"; break; }
    done
    # Two default settings change what a page shows on purpose: removing
    # optional content shows every group, and removing embedded files takes
    # their attachment icons away.  A difference passes only when a run
    # that keeps both renders exactly like the input.
    if [ -n "$differs" ]; then
      keep="$work/keep.pdf"
      cp "$in" "$keep" && chmod u+w "$keep"
      timeout -k 5 600 "$bin" -f "$keeping" ${password:+-openPass "$password"} "$keep" > /dev/null 2>&1
      rm -f "$work"/k-*
      pdftoppm -q -r 72 -f 1 -l 3 ${password:+-upw "$password"} "$keep" "$work/k" 2> /dev/null
      explained=1
      for a in "$work"/a-*; do
        [ -e "$a" ] || break
        cmp -s "$a" "$work/k-${a##*/a-}" || { explained=0; break; }
      done
      if [ "$explained" = 1 ]; then
        echo "NOTE $file: page $differs differs only through remove-ocgs or remove-embedded-files"
      else
        problems+=("page $differs renders differently")
      fi
      rm -f "$keep" "$work"/k-*
    fi
  fi
  size_in=$(stat -c %s "$in"); size_out=$(stat -c %s "$copy")
  if [ ${#problems[@]} -eq 0 ]; then
    echo "PASS $file: $size_in -> $size_out bytes"
  else
    echo "FAIL $file: ${problems[*]}"
  fi
  rm -f "$copy" "$work"/a-* "$work"/b-*
done
