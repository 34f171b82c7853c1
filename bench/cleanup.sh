#!/usr/bin/env bash
# What the page clean-up settings save: trimora over a folder of PDFs with
# the lossless preset (examples/lossless-cleanup.tmc), then again with one
# page clean-up setting switched off at a time (remove-edit-data,
# remove-thumbs, remove-job-ticket, remove-extra-boxes) and with
# remove-embedded-files switched on, from one run: total output bytes of
# each variant and the bytes it differs from the preset.  With BASE_BIN set
# to another trimora build (say, one from before a change), that build's
# total with the preset is listed too.
#
#   bench/cleanup.sh [CORPUS_DIR] [BUILD_DIR]
set -u
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
corpus="${1:-$(dirname "${BASH_SOURCE[0]}")/../../shared/corpus}"
build="${2:-$root/build}"
bin="$build/frontend/trimora"
preset="$root/examples/lossless-cleanup.tmc"
[ -x "$bin" ] || { echo "no trimora at $bin (build it first)" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
manifest="$corpus/MANIFEST.tsv"
source "$root/bench/common.sh"

# variant NAME ELEMENT VALUE: the preset with one optimize element changed.
variant() {
  sed "s|<$2>[a-zA-Z]*</$2>|<$2>$3</$2>|" "$preset" > "$work/$1.tmc"
  grep -q "<$2>$3</$2>" "$work/$1.tmc" || { echo "cannot set $2 in the preset" >&2; exit 2; }
}

# total BIN SETTINGS: the summed output bytes over the corpus (a failed
# file counts with its input size), and the seconds taken.
total() {
  local b="$1" settings="$2" sum=0 t0 t1 in f pw out
  t0=$(date +%s.%N)
  for in in "$corpus"/*.pdf; do
    f=$(basename "$in"); pw=$(password_for "$f"); out="$work/out.pdf"
    cp "$in" "$out" && chmod u+w "$out"
    if timeout -k 5 600 "$b" -f "$settings" ${pw:+-openPass "$pw"} "$out" > /dev/null 2> "$work/err.txt" \
        && ! grep -q "Error during processing" "$work/err.txt"; then
      sum=$((sum + $(stat -c %s "$out")))
    else
      sum=$((sum + $(stat -c %s "$in")))
    fi
  done
  t1=$(date +%s.%N)
  echo "$sum $(awk -v a="$t0" -v b="$t1" 'BEGIN{printf "%.1f", b - a}')"
}

cp "$preset" "$work/preset.tmc"
variant no-edit-data remove-edit-data false
variant no-thumbs remove-thumbs false
variant no-job-ticket remove-job-ticket false
variant no-extra-boxes remove-extra-boxes false
variant embedded-files remove-embedded-files true

read -r base_bytes base_secs < <(total "$bin" "$work/preset.tmc")
printf '%-28s %14s %12s %9s\n' variant output_bytes vs_preset seconds
printf '%-28s %14d %12s %9s\n' "lossless preset" "$base_bytes" 0 "$base_secs"
for v in no-edit-data no-thumbs no-job-ticket no-extra-boxes embedded-files; do
  read -r b s < <(total "$bin" "$work/$v.tmc")
  printf '%-28s %14d %+12d %9s\n' "$v" "$b" "$((b - base_bytes))" "$s"
done
if [ -n "${BASE_BIN:-}" ] && [ -x "$BASE_BIN" ]; then
  read -r b s < <(total "$BASE_BIN" "$work/preset.tmc")
  printf '%-28s %14d %+12d %9s\n' "BASE_BIN, lossless preset" "$b" "$((b - base_bytes))" "$s"
fi
