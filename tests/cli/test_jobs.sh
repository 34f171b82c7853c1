#!/usr/bin/env bash
# The job driver end to end: single, merge, directory output, in-place
# replacement, file lists with page selections, the summary lines, and that
# a failed save leaves the input as it was.
#   bash test_jobs.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
command -v python3 >/dev/null || { echo "SKIP: python3 is needed to build the fixtures"; exit 0; }
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmjobs.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
has() { grep -qF -- "$2" "$1" || fail "$3: missing line '$2' in $(cat "$1")"; }
hasnt() { ! grep -qF -- "$2" "$1" || fail "$3: unexpected '$2'"; }

page_text() {  # the text of page N, when pdftotext is present
    command -v pdftotext >/dev/null || { echo "Page $2"; return; }
    pdftotext -f "$2" -l "$2" "$1" - 2>/dev/null | tr -d '\f' | sed '/^$/d'
}

check_pdf() {  # FILE PAGES WHAT
    [ -s "$1" ] || { fail "$3: no output $1"; return; }
    if command -v qpdf >/dev/null; then
        qpdf --check "$1" >/dev/null 2>&1 || fail "$3: qpdf --check fails on $1"
    fi
    local n; n=$(pages "$1")
    [ "$n" = "$2" ] || fail "$3: $1 has $n pages, expected $2"
}

mkdir in
make_pdf in/a.pdf 2
make_pdf in/b.pdf 3

# --- single input with -o
run in/a.pdf -o single.pdf
check_pdf single.pdf 2 single
has err.txt "Attempting to shrink input file: in/a.pdf" single
has err.txt "Saving to output file: single.pdf" single
has err.txt "   starting size  = ($(stat -c %s in/a.pdf) Bytes)" single
has err.txt "   ending size    = ($(stat -c %s single.pdf 2>/dev/null) Bytes)" single
has err.txt "   elapsed time   : " single
grep -qE '^   percent (shrunk|grown)  ?= [0-9]+\.[0-9]%$' err.txt || fail "single: no percent line"
hasnt err.txt "Error during processing" single
[ "$(page_text single.pdf 2)" = "Page 2" ] || fail "single: page 2 text changed"

# --- two inputs and a file -o: one merged output
run in/a.pdf in/b.pdf -o merged.pdf
check_pdf merged.pdf 5 merge
has err.txt "Merging input file: in/a.pdf" merge
has err.txt "Merging input file: in/b.pdf" merge
has err.txt "Saving to output file: merged.pdf" merge
grep '^   starting size  = ' err.txt | tr -d , | grep -qF "($(( $(stat -c %s in/a.pdf) + $(stat -c %s in/b.pdf) )) Bytes)" \
    || fail "merge: the starting size is not the sum of the inputs: $(grep 'starting size' err.txt)"
[ "$(page_text merged.pdf 3)" = "Page 1" ] || fail "merge: page 3 should be b's first page"

# --- the same with a directory -o: two outputs inside it
mkdir outdir
run in/a.pdf in/b.pdf -o outdir
check_pdf outdir/a.pdf 2 "directory output"
check_pdf outdir/b.pdf 3 "directory output"
hasnt err.txt "Merging input file" "directory output"
has err.txt "Saving to output file: outdir/b.pdf" "directory output"

# --- one input without -o is replaced in place
cp in/b.pdf inplace.pdf
run inplace.pdf
check_pdf inplace.pdf 3 "in place"
has err.txt "Saving to output file: inplace.pdf" "in place"
cmp -s inplace.pdf in/b.pdf && fail "in place: the file was not rewritten"

# --- a file list: per-entry page ranges, even/odd, outputs
cat > jobs.tml <<XML
<?xml version="1.0"?>
<trimFileList>
  <file src="in/b.pdf" pageRange="2-3" output="list-range.pdf"/>
  <file src="in/b.pdf" rangeType="odd" output="list-odd.pdf"/>
  <file src="in/a.pdf" output="list-whole.pdf"/>
  <other src="in/a.pdf"/>
</trimFileList>
XML
run -l jobs.tml
check_pdf list-range.pdf 2 "list range"
[ "$(page_text list-range.pdf 1)" = "Page 2" ] || fail "list range: first page should be b's page 2"
check_pdf list-odd.pdf 2 "list odd"
[ "$(page_text list-odd.pdf 2)" = "Page 3" ] || fail "list odd: second page should be b's page 3"
check_pdf list-whole.pdf 2 "list whole"
[ "$(grep -c 'Attempting to shrink input file' err.txt)" = 3 ] || fail "list: expected three entries"
# the whole file reports sizes; the selections report none (starting size 0)
[ "$(grep -c '   starting size  = ' err.txt)" = 1 ] || fail "list: only the whole file reports sizes"
[ "$(grep -c '   elapsed time   : ' err.txt)" = 3 ] || fail "list: every entry reports its time"

# --- a file list with -o naming a file: everything in one document, no sizes
cat > merge.tml <<XML
<trimFileList>
  <file src="in/a.pdf" pageRange="2"/>
  <file src="in/b.pdf" rangeType="even"/>
</trimFileList>
XML
run -l merge.tml -o listmerged.pdf
check_pdf listmerged.pdf 2 "list merge"
[ "$(page_text listmerged.pdf 2)" = "Page 2" ] || fail "list merge: page 2 should be b's page 2"
has err.txt "Saving to output file: listmerged.pdf" "list merge"
has err.txt "Merging input file: in/a.pdf" "list merge"
has err.txt "Merging input file: in/b.pdf" "list merge"
hasnt err.txt "starting size" "0-byte starting size"
hasnt err.txt "percent" "0-byte starting size"
has err.txt "   elapsed time   : " "0-byte starting size"

# --- a failed save leaves the input byte for byte as it was
cp in/b.pdf keep.pdf
chmod u+w keep.pdf
before=$(ls)
TRIMORA_TEST_FAIL_SAVE=1 "$bin" keep.pdf >out.txt 2>err.txt || fail "failed save: exit status not 0"
cmp -s keep.pdf in/b.pdf || fail "failed save: the input changed"
has err.txt "Error during processing: 'a file write error has occurred'" "failed save"
hasnt err.txt "   elapsed time" "failed save"
[ "$(ls)" = "$before" ] || fail "failed save: files left behind: $(ls)"
run keep.pdf -o no/such/folder/x.pdf
cmp -s keep.pdf in/b.pdf || fail "unwritable output: the input changed"
has err.txt "Error during processing" "unwritable output"

# --- a document that forbids changes needs its owner password
if command -v qpdf >/dev/null; then
    qpdf --allow-weak-crypto --encrypt user owner 128 --use-aes=n --modify=none --assemble=n -- in/a.pdf locked.pdf 2>/dev/null
    if [ -s locked.pdf ]; then
        run -openPass user locked.pdf -o locked-out.pdf
        has err.txt "Error during processing: 'this operation is not permitted'" "permissions"
        [ -e locked-out.pdf ] && fail "permissions: wrote an output without the owner password"
        run -openPass owner locked.pdf -o locked-owner.pdf
        hasnt err.txt "Error during processing" "permissions (owner)"
        [ -s locked-owner.pdf ] || fail "permissions: the owner password should allow the run"
    fi
fi

# --- an empty input ends in a clear message, never a crash
: > empty.pdf
run empty.pdf -o empty-out.pdf
has err.txt "Error during processing" "empty input"

[ $fails -eq 0 ] && echo "PASS: jobs" || { echo "$fails failure(s)"; exit 1; }
