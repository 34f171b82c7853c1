#!/usr/bin/env bash
# Image inputs: a TIFF and a JPEG become PDFs beside them (the extension
# replaced by .pdf), the image files stay, and the image data is carried
# into the page (G4 for the bilevel TIFF, the JPEG bytes unchanged).
#   bash test_import.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
command -v python3 >/dev/null || { echo "SKIP: python3 is needed to build the fixtures"; exit 0; }
work=$(mktemp -d "${TMPDIR:-/tmp}/tmimport.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
fails=0
fail() { echo "FAIL: $*"; fails=$((fails + 1)); }

# A 64 x 32 bilevel, uncompressed, 200 ppi TIFF with a stripe pattern.
python3 - scan.tif <<'PY'
import struct, sys
w, h = 64, 32
rows = b"".join((b"\xF0\x0F" * (w // 16)) if y % 4 < 2 else (b"\x00" * (w // 8)) for y in range(h))
entries = [  # tag, type, count, value
    (256, 3, 1, w), (257, 3, 1, h), (258, 3, 1, 1), (259, 3, 1, 1), (262, 3, 1, 0),
    (273, 4, 1, 0), (277, 3, 1, 1), (278, 3, 1, h), (279, 4, 1, len(rows)),
    (282, 5, 1, 0), (283, 5, 1, 0), (296, 3, 1, 2)]
ifd_off = 8
ifd_len = 2 + 12 * len(entries) + 4
res_off = ifd_off + ifd_len
data_off = res_off + 16
out = bytearray(b"II*\x00" + struct.pack("<I", ifd_off))
out += struct.pack("<H", len(entries))
for tag, typ, count, value in entries:
    if tag == 273: value = data_off
    if tag == 282: value = res_off
    if tag == 283: value = res_off + 8
    if typ == 3: out += struct.pack("<HHIHH", tag, typ, count, value, 0)
    else: out += struct.pack("<HHII", tag, typ, count, value)
out += struct.pack("<I", 0)
out += struct.pack("<IIII", 200, 1, 200, 1)
out += rows
open(sys.argv[1], "wb").write(out)
PY
cp scan.tif scan-orig.tif

"$bin" scan.tif >out.txt 2>err.txt || fail "scan.tif: exit status $?"
[ -s scan.pdf ] || fail "scan.tif: no scan.pdf written beside it ($(cat err.txt))"
cmp -s scan.tif scan-orig.tif || fail "scan.tif: the image file changed"
grep -qF "Attempting to shrink input file: scan.tif" err.txt || fail "scan.tif: no framing line"
grep -qF "   starting size  = ($(stat -c %s scan.tif) Bytes)" err.txt || fail "scan.tif: starting size is not the image's size"
if [ -s scan.pdf ] && command -v pdfimages >/dev/null; then
    pdfimages -list scan.pdf > list.txt 2>&1
    grep -qE '^ +1 +0 image +64 +32 +gray +1 +1 +ccitt' list.txt || fail "scan.pdf: image not a 64x32 CCITT gray image: $(cat list.txt)"
fi
if [ -s scan.pdf ] && command -v pdfinfo >/dev/null; then
    # 64 x 32 pixels at 200 ppi: 23.04 x 11.52 points
    pdfinfo scan.pdf | grep -qE 'Page size: +23\.04 x 11\.52 pts' || fail "scan.pdf: page size $(pdfinfo scan.pdf | grep 'Page size')"
fi

# A JPEG made by rendering a page; its bytes must arrive in the PDF unchanged.
if command -v pdftoppm >/dev/null && command -v pdfimages >/dev/null; then
    printf '%%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj 2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj 3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 72 36]>>endobj\ntrailer<</Root 1 0 R>>\n%%%%EOF\n' > blank.pdf
    pdftoppm -jpeg -r 100 -singlefile blank.pdf photo 2>/dev/null
    if [ -s photo.jpg ]; then
        mkdir out
        "$bin" photo.jpg -o out/photo.jpg >out.txt 2>err.txt || fail "photo.jpg: exit status"
        [ -s out/photo.pdf ] || fail "photo.jpg: no out/photo.pdf ($(cat err.txt))"
        if [ -s out/photo.pdf ]; then
            pdfimages -j out/photo.pdf extracted >/dev/null 2>&1
            cmp -s extracted-000.jpg photo.jpg || fail "photo.jpg: the JPEG bytes were not kept"
        fi
    fi
fi

# A file named like an image that is none is passed over silently.
printf 'no image here' > fake.jpg
"$bin" fake.jpg >out.txt 2>err.txt || fail "fake.jpg: exit status"
grep -q "Error" err.txt && fail "fake.jpg: should be passed over silently: $(cat err.txt)"
[ -e fake.pdf ] && fail "fake.jpg: wrote fake.pdf"

[ $fails -eq 0 ] && echo "PASS: import" || { echo "$fails failure(s)"; exit 1; }
