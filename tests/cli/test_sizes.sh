#!/usr/bin/env bash
# tminspect --sizes: every byte of a file counted once, for a classic file
# and for trimora's compact output (objects in object streams, a
# cross-reference stream), and two files side by side with their difference.
#   bash test_sizes.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
inspect=$(cd "$2" && pwd)/tools/tminspect
[ -x "$inspect" ] || { echo "SKIP: tminspect is not built"; exit 0; }
command -v python3 >/dev/null || { echo "SKIP: python3 is needed to build the fixtures"; exit 0; }
. "$(dirname "$0")/pdfgen.sh"
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/tmsizes.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

make_pdf in.pdf 3 "" rich
run -f "$root/examples/lossless-cleanup.tmc" in.pdf -o out.pdf

for f in in.pdf out.pdf; do
    "$inspect" --sizes "$f" > sizes.txt 2>&1 || fail "$f: tminspect failed: $(cat sizes.txt)"
    total=$(awk '$1 == "total" {print $2}' sizes.txt)
    [ "$total" = "$(stat -c %s "$f")" ] || fail "$f: total $total, file $(stat -c %s "$f") bytes"
    grep -q '^content  *[1-9]' sizes.txt || fail "$f: no content bytes: $(cat sizes.txt)"
done
grep -q '^object streams' sizes.txt || fail "out.pdf: no object stream overhead: $(cat sizes.txt)"

"$inspect" --sizes in.pdf out.pdf > both.txt 2>&1 || fail "two files: $(cat both.txt)"
read -r a b d < <(awk '$1 == "total" {print $2, $3, $4}' both.txt)
[ "$a" = "$(stat -c %s in.pdf)" ] && [ "$b" = "$(stat -c %s out.pdf)" ] && [ "$((b - a))" = "$((d))" ] ||
    fail "two files: totals $a $b $d: $(cat both.txt)"

if [ $fails -ne 0 ]; then
    echo "$fails failure(s)"
    exit 1
fi
echo "PASS"
