#!/usr/bin/env bash
# The compact form end to end: the object-streams setting in a settings file
# (Generate, Preserve, Disable), merges, encryption with both passwords,
# reproducible bytes, and checks of every output by qpdf and poppler.
#   bash test_objstm.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
build=$(cd "$2" && pwd)
tool="$build/tools/tminspect"
for t in python3 qpdf pdfinfo pdftoppm; do
  command -v "$t" > /dev/null || { echo "SKIP: $t is not installed"; exit 0; }
done
[ -x "$tool" ] || { echo "FAIL: $tool not built"; exit 1; }
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmobjstm.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

settings() {  # settings NAME WORD
    cat > "$1" <<EOF
<?xml version="1.0" encoding="UTF-8"?>
<trimora><target name="t"><optimize><object-streams>$2</object-streams></optimize></target></trimora>
EOF
}

form() { "$tool" "$1" ${2:+--password "$2"} --packing 2> /dev/null | sed -n 's/^cross-reference: //p'; }

# check FILE [PASSWORD]: qpdf finds nothing to warn about, five pages.
check() {
    qpdf ${2:+--password="$2"} --check "$1" > chk.txt 2>&1
    local rc=$?
    [ $rc -eq 0 ] || fail "$1: qpdf --check exit $rc: $(grep -v '^checking\|^PDF Version\|^File is' chk.txt | head -3)"
    grep -qi warning chk.txt && fail "$1: qpdf warns: $(grep -i -m1 warning chk.txt)"
    local pages
    pages=$(pdfinfo ${2:+-opw "$2" -upw "$2"} "$1" 2> /dev/null | awk '/^Pages:/{print $2}')
    [ "$pages" = "$3" ] || fail "$1: $pages pages, expected $3"
}

make_pdf in.pdf 5 "" rich
make_pdf two.pdf 2 "" rich
settings gen.tmc Generate
settings keep.tmc Preserve
settings off.tmc Disable

# Generate: the compact form, PDF 1.5, rendering exactly like the input.
"$bin" -f gen.tmc -o gen.pdf in.pdf > log.txt 2>&1 || fail "Generate run failed: $(cat log.txt)"
check gen.pdf "" 5
[ "$(head -c 8 gen.pdf)" = "%PDF-1.5" ] || fail "compact output header is $(head -c 8 gen.pdf)"
[ "$(form gen.pdf)" = stream ] || fail "Generate wrote a cross-reference $(form gen.pdf)"
"$tool" gen.pdf --packing > pack.txt 2>&1
grep -q '^object streams: [1-9]' pack.txt || fail "no object streams: $(cat pack.txt)"
# Standing alone: the five content streams, the object stream and the
# cross-reference stream.
grep -q '^objects on their own: 7$' pack.txt || fail "more than the streams stand alone: $(cat pack.txt)"
pdftoppm -r 36 -png in.pdf a > /dev/null 2>&1
pdftoppm -r 36 -png gen.pdf b > /dev/null 2>&1
for a in a-*.png; do
  cmp -s "$a" "b-${a#a-}" || fail "page ${a#a-} renders differently"
done
[ "$(ls a-*.png | wc -l)" = 5 ] || fail "the input did not render five pages"
# It is smaller than the classic form of the same document.
"$bin" -f off.tmc -o classic.pdf in.pdf > /dev/null 2>&1
[ "$(stat -c %s gen.pdf)" -lt "$(stat -c %s classic.pdf)" ] \
  || fail "compact $(stat -c %s gen.pdf) bytes is not below classic $(stat -c %s classic.pdf)"
[ "$(form classic.pdf)" = table ] || fail "Disable wrote a cross-reference $(form classic.pdf)"

# Preserve (the default) follows a compact input read back, also in a merge
# where it comes second.  Each setting against each kind of input is
# checked by the pipeline and save unit tests.
"$bin" -o p2.pdf gen.pdf > /dev/null 2>&1
[ "$(form p2.pdf)" = stream ] || fail "Preserve (the default) on a compact input gave $(form p2.pdf)"
check p2.pdf "" 5
"$bin" -f keep.tmc -o m1.pdf two.pdf gen.pdf > /dev/null 2>&1
[ "$(form m1.pdf)" = stream ] || fail "merge of classic and compact gave $(form m1.pdf)"
check m1.pdf "" 7

# Encrypted in the compact form: both passwords in qpdf and poppler, the
# permissions poppler reads, a wrong password refused.
"$bin" -f gen.tmc -encrypt -keyLength 128 -ownerPass boss -userPass reader -noPrinting -o e128.pdf in.pdf \
  > /dev/null 2>&1
[ "$(form e128.pdf reader)" = stream ] || fail "encrypted output is not compact"
check e128.pdf reader 5
check e128.pdf boss 5
pdfinfo -upw reader e128.pdf 2> /dev/null | grep -q 'print:no copy:yes' || fail "poppler sees other permissions"
pdfinfo -opw boss e128.pdf > /dev/null 2>&1 || fail "poppler refuses the owner password"
qpdf --password=wrong --check e128.pdf > /dev/null 2>&1 && fail "a wrong password opened the output"
pdftoppm -upw reader -r 36 -png e128.pdf u > /dev/null 2>&1 || fail "pdftoppm -upw"
cmp -s a-1.png u-1.png || fail "encrypted page 1 renders differently"
"$bin" -f gen.tmc -encrypt -keyLength 40 -ownerPass boss -noEditing -o e40.pdf in.pdf > /dev/null 2>&1
check e40.pdf "" 5
pdftoppm -r 36 -png e40.pdf v > /dev/null 2>&1 && cmp -s a-1.png v-1.png || fail "40-bit page 1 renders differently"

# Reproducible bytes.
SOURCE_DATE_EPOCH=1700000000 "$bin" -f gen.tmc -o r1.pdf in.pdf > /dev/null 2>&1
SOURCE_DATE_EPOCH=1700000000 "$bin" -f gen.tmc -o r2.pdf in.pdf > /dev/null 2>&1
cmp -s r1.pdf r2.pdf || fail "SOURCE_DATE_EPOCH output differs between runs"

[ $fails -eq 0 ] && echo "PASS" || exit 1
