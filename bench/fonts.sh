#!/usr/bin/env bash
# Font bytes: what trimora's font subsetting saves, beside Ghostscript.
#
# For every corpus file that embeds a font whole (pdffonts lists an
# embedded font whose name has no "ABCDEF+" subset tag; Type 3 fonts, which
# have no font program, do not count), trimora with
# examples/lossless-cleanup.tmc and `gs -sDEVICE=pdfwrite
# -dPDFSETTINGS=/printer` run side by side, and the table gives the stored
# bytes of the font programs (bench/font-bytes.py: FontFile, FontFile2 and
# FontFile3 streams as written in the file) of the input and of each
# output, and trimora's bytes over Ghostscript's, per file and in total.
# A tool that fails on a file counts with the input's font bytes there, so
# no tool gains by failing.  Ghostscript embeds the fonts a file leaves
# unembedded as well; the "programs" columns show where it did.
#
# --all adds a second table: trimora's font bytes in and out for every
# corpus file (the lossless gain across the corpus).
#
#   bench/fonts.sh [--all] [CORPUS_DIR] [BUILD_DIR]
# Defaults: ../shared/corpus beside the checkout and build/ (a Release build is best).
set -u
all=0
if [ "${1:-}" = "--all" ]; then all=1; shift; fi
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
corpus="${1:-$root/../shared/corpus}"
build="${2:-$root/build}"
bin="$build/frontend/trimora"
[ -x "$bin" ] || { echo "no trimora at $bin (build it first)" >&2; exit 2; }
manifest="$corpus/MANIFEST.tsv"
preset="$root/examples/lossless-cleanup.tmc"
font_bytes="$root/bench/font-bytes.py"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

source "$root/bench/common.sh"
need_tools qpdf:qpdf poppler-utils:pdffonts ghostscript:gs python3:python3

# whole_fonts FILE PASSWORD: how many fonts pdffonts lists as embedded
# without a subset tag, Type 3 fonts left out.
whole_fonts() {
  pdffonts ${2:+-upw "$2"} "$1" 2> /dev/null | tail -n +3 | awk '
    { emb = $(NF-4); sub_ = $(NF-3) }
    /Type 3 / || $1 == "[none]" { next }
    $1 ~ /^[A-Z][A-Z][A-Z][A-Z][A-Z][A-Z]\+/ { next }
    emb == "yes" && sub_ == "no" { n++ }
    END { print n + 0 }'
}

# measure FILE PASSWORD: "BYTES PROGRAMS" of FILE's font programs, or "- -".
measure() {
  local line
  line="$(python3 "$font_bytes" ${2:+--password="$2"} "$1" 2> /dev/null)" || { echo "- -"; return; }
  echo "$line" | awk -F'\t' '{ print $1, $2 }'
}

run_trimora() {  # in out password
  timeout -k 5 600 "$bin" -f "$preset" ${3:+-openPass "$3"} -o "$2" "$1" > /dev/null 2> "$work/err.txt" \
    && ! grep -q "Error during processing" "$work/err.txt" && [ -s "$2" ]
}
run_gs() {  # in out password
  # Ghostscript exits 0 and writes an empty page when it gives up on a file.
  timeout -k 5 600 gs -sDEVICE=pdfwrite -dPDFSETTINGS=/printer -dNOPAUSE -dBATCH -dQUIET -dSAFER \
    ${3:+-sPDFPassword="$3"} -o "$2" "$1" > "$work/gs.txt" 2>&1 \
    && ! grep -q "unable to proceed" "$work/gs.txt" && [ -s "$2" ]
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.3f", a / b; else print "-" }'; }

declare -A pw_of
files=()
for in in "$corpus"/*.pdf; do
  [ -f "$in" ] || continue
  f=$(basename "$in")
  files+=("$in")
  pw_of[$f]="$(password_for "$f")"
done
[ ${#files[@]} -gt 0 ] || { echo "no PDF files in $corpus" >&2; exit 2; }

echo "Files that embed whole fonts: font program bytes (programs) of the input and outputs"
printf '%-38s %6s %16s %16s %16s %8s %8s\n' file whole input trimora gs tm/gs tm/in
t_in=0; t_tm=0; t_gs=0; n=0; fails_tm=0; fails_gs=0
for in in "${files[@]}"; do
  f=$(basename "$in"); pw="${pw_of[$f]}"
  whole=$(whole_fonts "$in" "$pw")
  [ "$whole" -gt 0 ] || continue
  read -r b_in p_in <<< "$(measure "$in" "$pw")"
  [ "$b_in" != - ] || { printf '%-38s %6d  font bytes unreadable\n' "$f" "$whole"; continue; }
  rm -f "$work/tm.pdf" "$work/gs.pdf"
  if run_trimora "$in" "$work/tm.pdf" "$pw"; then
    read -r b_tm p_tm <<< "$(measure "$work/tm.pdf" "$pw")"
  else
    b_tm=-
  fi
  [ "$b_tm" != - ] || { b_tm=$b_in; p_tm=fail; fails_tm=$((fails_tm + 1)); }
  if run_gs "$in" "$work/gs.pdf" "$pw"; then
    read -r b_gs p_gs <<< "$(measure "$work/gs.pdf" "")"
  else
    b_gs=-
  fi
  [ "$b_gs" != - ] || { b_gs=$b_in; p_gs=fail; fails_gs=$((fails_gs + 1)); }
  printf '%-38s %6d %16s %16s %16s %8s %8s\n' "$f" "$whole" "$b_in ($p_in)" "$b_tm ($p_tm)" "$b_gs ($p_gs)" \
    "$(ratio "$b_tm" "$b_gs")" "$(ratio "$b_tm" "$b_in")"
  t_in=$((t_in + b_in)); t_tm=$((t_tm + b_tm)); t_gs=$((t_gs + b_gs)); n=$((n + 1))
done
printf '%-38s %6s %16d %16d %16d %8s %8s\n' "total ($n files)" "" "$t_in" "$t_tm" "$t_gs" \
  "$(ratio "$t_tm" "$t_gs")" "$(ratio "$t_tm" "$t_in")"
echo "failed: trimora $fails_tm, gs $fails_gs"

[ "$all" = 1 ] || exit 0
echo
echo "Every file through trimora: font program bytes (programs) in and out"
printf '%-38s %16s %16s %8s\n' file input trimora out/in
t_in=0; t_tm=0; n=0; fails_tm=0
for in in "${files[@]}"; do
  f=$(basename "$in"); pw="${pw_of[$f]}"
  read -r b_in p_in <<< "$(measure "$in" "$pw")"
  if [ "$b_in" = - ]; then printf '%-38s %16s\n' "$f" "unreadable"; continue; fi
  rm -f "$work/tm.pdf"
  if run_trimora "$in" "$work/tm.pdf" "$pw"; then
    read -r b_tm p_tm <<< "$(measure "$work/tm.pdf" "$pw")"
  else
    b_tm=-
  fi
  [ "$b_tm" != - ] || { b_tm=$b_in; p_tm=fail; fails_tm=$((fails_tm + 1)); }
  printf '%-38s %16s %16s %8s\n' "$f" "$b_in ($p_in)" "$b_tm ($p_tm)" "$(ratio "$b_tm" "$b_in")"
  t_in=$((t_in + b_in)); t_tm=$((t_tm + b_tm)); n=$((n + 1))
done
printf '%-38s %16d %16d %8s\n' "total ($n files)" "$t_in" "$t_tm" "$(ratio "$t_tm" "$t_in")"
echo "failed: trimora $fails_tm"
