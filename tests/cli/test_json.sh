#!/usr/bin/env bash
# -json PATH: one valid JSON line per document, for written, failed and
# merged documents and for names no text encoding expects; a results file
# that cannot be written stops the run before any work.
#   bash test_json.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
command -v python3 >/dev/null || { echo "SKIP: python3 is needed"; exit 0; }
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmjson.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

make_pdf good.pdf 2
odd=$'q"uo\\te\x01\xff\xfe.pdf'   # a quote, a backslash, a control character, bytes that are not UTF-8
cp good.pdf "$odd"
printf 'not a pdf at all\n' > bad.pdf
mkdir out

"$bin" -json r.jsonl ./good.pdf "./$odd" ./bad.pdf -o out > /dev/null 2>&1
"$bin" good.pdf good.pdf -json r.jsonl -o merged.pdf > /dev/null 2>&1

python3 - "$odd" << 'PY' || fail "records: see above"
import json, os, sys
odd = "./" + os.fsdecode(os.fsencode(sys.argv[1])).encode("utf-8", "surrogateescape").decode("utf-8", "replace")
lines = open("r.jsonl", encoding="utf-8").read().splitlines()
assert len(lines) == 4, lines
recs = [json.loads(l) for l in lines]
good, weird, bad, merged = recs
keys = {"input", "output", "success", "error", "size_before", "size_after", "elapsed", "warnings", "kept_input", "stats"}
for r in recs:
    assert keys <= set(r), r
assert good["success"] and good["error"] is None and good["output"] == "out/good.pdf", good
assert good["size_before"] == os.path.getsize("good.pdf") and good["size_after"] == os.path.getsize("out/good.pdf"), good
assert good["stats"]["ContentStreams_Total"] == 2, good["stats"]
assert weird["success"] and weird["input"] == odd, (weird["input"], odd)
assert not bad["success"] and bad["error"] and bad["output"] is None and bad["size_after"] is None, bad
assert merged["inputs"] == ["good.pdf", "good.pdf"] and merged["size_before"] == 2 * good["size_before"], merged
assert merged["stats"]["ContentStreams_Total"] == 4, merged["stats"]
PY
if command -v jq > /dev/null; then
    jq -e . r.jsonl > /dev/null || fail "jq does not read the records"
fi

# A results file that cannot be written: an error line, status 2, no work.
"$bin" -json no-such-dir/r.jsonl good.pdf -o never.pdf > out.txt 2> err.txt
rc=$?
[ "$rc" = 2 ] || fail "unwritable results file: status $rc"
grep -q "Cannot write the results file no-such-dir/r.jsonl" err.txt || fail "unwritable results file: $(cat err.txt)"
[ ! -e never.pdf ] || fail "unwritable results file: the run went on"
# -json without a path is a command-line error.
"$bin" good.pdf -json > /dev/null 2>&1
[ $? = 1 ] || fail "-json without a path does not show the usage"

if [ $fails -ne 0 ]; then
    echo "$fails failure(s)"
    exit 1
fi
echo "PASS"
