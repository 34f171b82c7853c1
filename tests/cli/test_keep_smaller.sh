#!/usr/bin/env bash
# keep-smaller: an output that would be larger than its input gives way to
# the input's bytes, to a new file and in place (through a symbolic link,
# which stays a link); a file that shrinks is written as usual; with
# encryption asked for, the output is written whatever its size.
#   bash test_keep_smaller.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
command -v python3 >/dev/null || { echo "SKIP: python3 is needed to build the fixtures"; exit 0; }
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmkeep.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

settings() {  # FILE KEEP [EXTRA-OPTIMIZE-XML]
    printf '<?xml version="1.0"?>\n<trimora><target name="t"><optimize><keep-smaller>%s</keep-smaller>%s</optimize></target></trimora>\n' \
        "$2" "${3:-}" > "$1"
}
settings keep.tmc true
settings plain.tmc false
settings keep-linear.tmc true '<linearize>true</linearize>'

# A tight one-page file: rewriting it adds bytes (a producer entry, ...).
make_pdf tight.pdf 1
cp tight.pdf orig.pdf
run -f plain.tmc tight.pdf -o grown.pdf
[ "$(stat -c %s grown.pdf)" -gt "$(stat -c %s tight.pdf)" ] || { echo "SKIP: the fixture does not grow"; exit 0; }

run -f keep.tmc tight.pdf -o kept.pdf
cmp -s kept.pdf orig.pdf || fail "to a new file: the output is not the input's bytes"
grep -q "input kept" out.txt err.txt || fail "no word that the input was kept: $(cat out.txt err.txt)"
grep -q "percent grown" out.txt err.txt || fail "the summary lost its sizes"

ln -s tight.pdf link.pdf
run -f keep.tmc link.pdf
[ -L link.pdf ] || fail "in place: the link was replaced"
cmp -s tight.pdf orig.pdf || fail "in place: the input changed"

run -f keep-linear.tmc tight.pdf -o linear.pdf
cmp -s linear.pdf orig.pdf && fail "with linearisation asked for, the input was kept"

# A file that shrinks is written as usual.
make_pdf big.pdf 30 "" rich
run -f keep.tmc big.pdf -o small.pdf
[ "$(stat -c %s small.pdf)" -lt "$(stat -c %s big.pdf)" ] || fail "a file that shrinks was not written"
grep -q "input kept" out.txt err.txt && fail "a shrunk file says the input was kept"

if [ $fails -ne 0 ]; then
    echo "$fails failure(s)"
    exit 1
fi
echo "PASS"
