#!/usr/bin/env bash
# The compact form on real files: trimora with the default settings and
# `object-streams` set to Generate on every corpus file (optional content
# and embedded files kept, as removing them changes what pages show).  A file passes when
#   - the program exits 0 and prints no "Error during processing" (files
#     damaged beyond what qpdf accepts may instead be refused cleanly, with
#     the input untouched, as in the end-to-end stage);
#   - the output has a cross-reference stream and PDF 1.5 or later;
#   - `qpdf --check` passes with no warning at all;
#   - the page count is unchanged;
#   - pages 1-3 render (pdftoppm, 72 dpi) exactly like the input's.
# Encrypted inputs (traits encrypted-*) keep their protection: the output
# opens with the user password and grants the same permissions.  They are
# also written once more with new owner and user passwords (copying denied):
# both passwords must open that output in qpdf and in poppler, and both
# must report copying as not allowed.
#
#   70-objstm.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
manifest="$corpus/MANIFEST.tsv"
mkdir -p "$work"
bin="$(find_program "$build" trimora)"
[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }
for t in qpdf pdfinfo pdftoppm; do
  command -v "$t" > /dev/null 2>&1 || { echo "SKIP $corpus: $t is not installed"; exit 0; }
done
settings="$work/generate.tmc"
cat > "$settings" << 'EOF'
<?xml version="1.0" encoding="UTF-8"?>
<trimora><target name="Compact form"><optimize><object-streams>Generate</object-streams><remove-ocgs>false</remove-ocgs><remove-embedded-files>false</remove-embedded-files></optimize></target></trimora>
EOF

# Permission lines of `qpdf --show-encryption`, for comparing two files.
permissions() {  # FILE PASSWORD
  qpdf ${2:+--password="$2"} --show-encryption "$1" 2> /dev/null | grep -E '^(extract|print|modify)' | sort
}

# qpdf --check with no warning; prints the first problem, if any.
qpdf_clean() {  # FILE PASSWORD
  local out rc
  out=$(qpdf ${2:+--password="$2"} --check "$1" 2>&1); rc=$?
  if [ $rc -ne 0 ] || grep -qi 'warning' <<< "$out"; then
    echo "qpdf --check exit $rc: $(grep -v '^checking\|^PDF Version\|^File is\|^R = \|^P = \|^User password' <<< "$out" | head -1)"
  fi
}

tail -n +2 "$manifest" | while IFS=$'\t' read -r file _ pages _ _ traits; do
  in="$corpus/$file"
  [ -f "$in" ] || { echo "SKIP $file: not in the corpus folder"; continue; }
  [ -n "$bin" ] || { echo "SKIP $file: trimora is not built"; continue; }
  password=""; damaged=0; broken=0; encrypted=0
  IFS=',' read -ra list <<< "$traits"
  for trait in "${list[@]}"; do
    case "$trait" in
      userpw=*) password="${trait#userpw=}" ;;
      broken-*) broken=1 ;;
      qpdf-check-err) damaged=1 ;;
      encrypted-*) encrypted=1 ;;
    esac
  done

  out="$work/out.pdf"
  rm -f "$out"
  timeout -k 5 600 "$bin" -f "$settings" ${password:+-openPass "$password"} -o "$out" "$in" \
    > "$work/log.txt" 2>&1
  rc=$?
  if [ "$rc" -ne 0 ]; then
    echo "FAIL $file: exit status $rc: $(grep -m1 -E 'ERROR|Error|error' "$work/log.txt")"
    continue
  fi
  if grep -q "Error during processing" "$work/log.txt"; then
    if [ "$broken" = 1 ] && [ "$damaged" = 1 ] && [ ! -e "$out" ]; then
      echo "PASS $file: refused cleanly ($(grep -m1 'Error during processing' "$work/log.txt"))"
    else
      echo "FAIL $file: $(grep -m1 'Error during processing' "$work/log.txt")"
    fi
    continue
  fi
  problems=()
  [ -s "$out" ] || { echo "FAIL $file: no output"; continue; }
  grep -aq '/Type/XRef' "$out" || problems+=("no cross-reference stream")
  version=$(head -c 8 "$out")
  case "$version" in %PDF-1.[5-9]|%PDF-[2-9].*) ;; *) problems+=("header $version") ;; esac
  q=$(qpdf_clean "$out" "$password"); [ -z "$q" ] || problems+=("$q")
  expected="$pages"
  [ "$expected" = "?" ] && expected="$(pdfinfo ${password:+-upw "$password"} "$in" 2> /dev/null | awk '/^Pages:/{print $2}')"
  got="$(pdfinfo ${password:+-upw "$password"} "$out" 2> /dev/null | awk '/^Pages:/{print $2}')"
  [ -z "$expected" ] || [ "$got" = "$expected" ] || problems+=("page count $got, expected $expected")
  rm -f "$work"/a-* "$work"/b-*
  pdftoppm -q -r 72 -f 1 -l 3 ${password:+-upw "$password"} "$in" "$work/a" 2> /dev/null
  pdftoppm -q -r 72 -f 1 -l 3 ${password:+-upw "$password"} "$out" "$work/b" 2> /dev/null
  for a in "$work"/a-*; do
    [ -e "$a" ] || break
    b="$work/b-${a##*/a-}"
    if [ ! -e "$b" ]; then problems+=("page ${a##*/a-} did not render"); break; fi
    cmp -s "$a" "$b" || { problems+=("page ${a##*/a-} renders differently"); break; }
  done

  if [ "$encrypted" = 1 ]; then
    [ "$(permissions "$in" "$password")" = "$(permissions "$out" "$password")" ] \
      || problems+=("permissions changed")
    # New passwords, copying denied.
    enc="$work/enc.pdf"
    rm -f "$enc"
    timeout -k 5 600 "$bin" -f "$settings" ${password:+-openPass "$password"} -encrypt -keyLength 128 \
      -ownerPass owner-pw -userPass user-pw -noCopy -o "$enc" "$in" > "$work/log2.txt" 2>&1
    if [ ! -s "$enc" ] || grep -q "Error during processing" "$work/log2.txt"; then
      problems+=("re-encrypting failed: $(grep -m1 -E 'Error|error' "$work/log2.txt")")
    else
      grep -aq '/Type/XRef' "$enc" || problems+=("re-encrypted output is not compact")
      for pw in user-pw owner-pw; do
        q=$(qpdf_clean "$enc" "$pw"); [ -z "$q" ] || problems+=("with $pw: $q")
        # (Read into a variable first: grep -q would end the pipe early.)
        shown=$(qpdf --password="$pw" --show-encryption "$enc" 2> /dev/null)
        grep -q 'extract for any purpose: not allowed' <<< "$shown" || problems+=("qpdf with $pw: copying allowed")
        if [ "$pw" = owner-pw ]; then
          grep -q 'Supplied password is owner password' <<< "$shown" \
            || problems+=("qpdf does not take owner-pw as the owner password")
        fi
        flag=-upw; [ "$pw" = owner-pw ] && flag=-opw
        info=$(pdfinfo "$flag" "$pw" "$enc" 2> /dev/null)
        grep -q "^Pages: *$expected\$" <<< "$info" || problems+=("poppler with $pw: $(grep -m1 Pages <<< "$info")")
        grep -q 'copy:no' <<< "$info" || problems+=("poppler with $pw: copying allowed")
      done
      qpdf --password=wrong --check "$enc" > /dev/null 2>&1 && problems+=("a wrong password opens it")
    fi
  fi

  size_in=$(stat -L -c %s "$in"); size_out=$(stat -c %s "$out")
  if [ ${#problems[@]} -eq 0 ]; then
    echo "PASS $file: $size_in -> $size_out bytes"
  else
    echo "FAIL $file: ${problems[*]}"
  fi
  rm -f "$out" "$work"/a-* "$work"/b-* "$work/enc.pdf"
done
