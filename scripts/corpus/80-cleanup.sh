#!/usr/bin/env bash
# Page clean-up: every corpus file is optimised twice, on copies.
#   - With examples/lossless-cleanup.tmc (page clean-up, annotation
#     clean-up, resource clean-up, combined and rewritten content): the run
#     ends without "Error during processing" (a file damaged beyond repair
#     may be refused cleanly, left as it was), the output passes
#     `qpdf --check`, keeps its page count, and pages 1-3 render (pdftoppm,
#     36 dpi) exactly like the input.
#   - With the default settings: the output passes `qpdf --check` and keeps
#     its page count.  Pages that then render differently are named on the
#     file's line (the defaults remove things a viewer can show, such as
#     file-attachment icons and hidden optional content); they do not fail.
#
#   80-cleanup.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
preset="$root/examples/lossless-cleanup.tmc"
manifest="$corpus/MANIFEST.tsv"
dpi=36
bin=""
for t in "$build/frontend/trimora" "$build/trimora"; do
  [ -x "$t" ] && { bin="$t"; break; }
done
[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }
[ -n "$bin" ] || { echo "SKIP $corpus: trimora is not built"; exit 0; }
have_qpdf=1; command -v qpdf > /dev/null 2>&1 || have_qpdf=0
have_render=1; command -v pdftoppm > /dev/null 2>&1 || have_render=0

# render_diff IN OUT: the pages among 1-3 of OUT whose pixels differ from
# IN's (or that do not render), as "1 3"; empty when all agree.
render_diff() {
  local in="$1" out="$2" a b diff=""
  rm -f "$work"/a-* "$work"/b-*
  pdftoppm -q -r "$dpi" -f 1 -l 3 ${password:+-upw "$password"} "$in" "$work/a" 2> /dev/null
  pdftoppm -q -r "$dpi" -f 1 -l 3 ${password:+-upw "$password"} "$out" "$work/b" 2> /dev/null
  for a in "$work"/a-*; do
    [ -e "$a" ] || break
    b="$work/b-${a##*/a-}"
    [ -e "$b" ] && cmp -s "$a" "$b" || diff="$diff ${a##*/a-}"
  done
  rm -f "$work"/a-* "$work"/b-*
  echo "${diff# }" | sed 's/\.p[gp]m//g; s/\b0*\([0-9]\)/\1/g'
}

# run FILE-COPY [SETTINGS]: 0 when trimora ran and saved, 2 when it refused
# a file that is damaged beyond repair cleanly, 1 otherwise (`why` says).
run() {
  local copy="$1" settings="${2:-}" rc
  cp "$in" "$copy" && chmod u+w "$copy"
  timeout -k 5 600 nice -n 5 "$bin" ${settings:+-f "$settings"} ${password:+-openPass "$password"} "$copy" \
    > "$work/out.txt" 2> "$work/err.txt"
  rc=$?
  if [ "$rc" -ne 0 ]; then why="exit status $rc"; return 1; fi
  if grep -q "Error during processing" "$work/err.txt"; then
    if [ "$unrecoverable" = 1 ] && cmp -s "$in" "$copy"; then return 2; fi
    why="$(grep -m1 'Error during processing' "$work/err.txt")"; return 1
  fi
  return 0
}

while IFS=$'\t' read -r file _ pages _ _ traits; do
  in="$corpus/$file"
  [ -f "$in" ] || { echo "SKIP $file: not in the corpus folder"; continue; }
  read_traits "$traits"

  lossless="$work/lossless-$file"; plain="$work/default-$file"
  problems=(); note=""; why=""
  run "$lossless" "$preset"; r1=$?
  if [ "$r1" = 1 ]; then
    problems+=("lossless: $why")
  elif [ "$r1" = 0 ]; then
    check_output "$in" "$lossless"
    if [ "$have_render" = 1 ]; then
      d="$(render_diff "$in" "$lossless")"
      [ -z "$d" ] || problems+=("lossless: pages $d render differently")
    fi
  fi
  run "$plain"; r2=$?
  if [ "$r2" = 1 ]; then
    problems+=("default: $why")
  elif [ "$r2" = 0 ]; then
    before=${#problems[@]}
    check_output "$in" "$plain"
    for ((i = before; i < ${#problems[@]}; ++i)); do problems[i]="default: ${problems[i]}"; done
    if [ "$have_render" = 1 ]; then
      d="$(render_diff "$in" "$plain")"
      [ -z "$d" ] || note=" (default settings: pages $d look different)"
    fi
  fi
  if [ ${#problems[@]} -ne 0 ]; then
    echo "FAIL $file: ${problems[*]}"
  elif [ "$r1" = 2 ] && [ "$r2" = 2 ]; then
    echo "PASS $file: refused cleanly"
  else
    sizes="$(stat -c %s "$in") -> $( [ "$r1" = 0 ] && stat -c %s "$lossless" || echo '-') lossless, $( [ "$r2" = 0 ] && stat -c %s "$plain" || echo '-') default"
    echo "PASS $file: $sizes bytes$note"
  fi
  rm -f "$lossless" "$plain"
done < <(tail -n +2 "$manifest")
