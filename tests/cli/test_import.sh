#!/usr/bin/env bash
# Image inputs: an image becomes a PDF beside it, or in the -o folder (the
# extension replaced by .pdf), the image file stays, and a file named like
# an image that is none is passed over.  What the page holds is checked by
# the import unit tests.
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
mkdir out
"$bin" scan.tif -o out/scan.tif >out.txt 2>err.txt || fail "-o folder: exit status"
[ -s out/scan.pdf ] || fail "-o folder: no out/scan.pdf ($(cat err.txt))"

# A file named like an image that is none is passed over silently.
printf 'no image here' > fake.jpg
"$bin" fake.jpg >out.txt 2>err.txt || fail "fake.jpg: exit status"
grep -q "Error" err.txt && fail "fake.jpg: should be passed over silently: $(cat err.txt)"
[ -e fake.pdf ] && fail "fake.jpg: wrote fake.pdf"

[ $fails -eq 0 ] && echo "PASS: import" || { echo "$fails failure(s)"; exit 1; }
