#!/usr/bin/env bash
# Bilevel encoders over every 1-bit image XObject of the corpus (image
# masks and 1-bit images, extracted as bitmaps by pdfimages; inline images
# are left out): total bytes of our JBIG2 generic-region coding and of our
# CCITT G4 coding against the images' streams as stored, and encode time
# of both against libtiff's `tiffcp -c g4` on the same bitmaps (tiffcp's
# time includes starting the program and reading and writing files, ours
# is the encoding in memory).  Every JBIG2 stream is decoded again with
# the jbig2dec program and must give the same bits.
#
#   bench/mono.sh [CORPUS_DIR] [BUILD_DIR]
# Defaults: ../shared/corpus beside the checkout and build/.  Needs pdfimages, qpdf, tiffcp,
# jbig2dec and python3.
set -u
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
corpus="${1:-$(dirname "${BASH_SOURCE[0]}")/../../shared/corpus}"
build="${2:-$root/build}"
source "$root/bench/common.sh"
need_tools poppler-utils:pdfimages qpdf:qpdf libtiff-tools:tiffcp jbig2dec:jbig2dec python3:python3
for t in pdfimages qpdf tiffcp jbig2dec python3; do
  command -v $t > /dev/null 2>&1 || { echo "missing tool: $t" >&2; exit 2; }
done
cmake -S "$root" -B "$build" -DTRIMORA_BUILD_BENCH=ON > /dev/null || exit 2
cmake --build "$build" --target mono_bench > /dev/null || exit 2
bench="$build/bench/mono_bench"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
manifest="$corpus/MANIFEST.tsv"
source "$root/bench/common.sh"

# 1. The bitmaps, one per image object, and the bytes each had as stored.
mkdir -p "$work/pbm" "$work/out"
: > "$work/stored.txt"
for in in "$corpus"/*.pdf; do
  f="$(basename "$in")"
  pw="$(password_for "$f")"
  pdfimages -list ${pw:+-upw "$pw"} "$in" 2> /dev/null \
    | awk 'NR > 2 && $8 == 1 && $11 != "[inline]" { print $2, $11 }' > "$work/list.txt"
  [ -s "$work/list.txt" ] || continue
  stem="${f%.pdf}"
  pdfimages ${pw:+-upw "$pw"} "$in" "$work/x-$stem" 2> /dev/null
  declare -A seen=()
  while read -r num obj; do
    [ -n "${seen[$obj]:-}" ] && continue
    seen[$obj]=1
    src="$(printf '%s/x-%s-%03d.pbm' "$work" "$stem" "$num")"
    [ -f "$src" ] || continue
    mv "$src" "$work/pbm/$stem-$obj.pbm"
    bytes=$(qpdf ${pw:+--password="$pw"} --show-object="$obj" --raw-stream-data "$in" 2> /dev/null | wc -c)
    echo "$stem-$obj $bytes" >> "$work/stored.txt"
  done < "$work/list.txt"
  unset seen
  rm -f "$work"/x-*
done
count=$(ls "$work/pbm" | wc -l)
[ "$count" -gt 0 ] || { echo "no bilevel images in $corpus"; exit 0; }

# 2. Our encoders, in process.
"$bench" "$work/out" "$work"/pbm/*.pbm > "$work/ours.txt" || exit 1

# 3. jbig2dec on every JBIG2 stream: the same bits as the bitmap.
mismatch=0
for jb in "$work"/out/*.jb2; do
  name="$(basename "$jb" .jb2)"
  jbig2dec -q -e -t pbm -o "$work/out/$name.dec.pbm" "$jb" > /dev/null 2>&1
  python3 - "$work/pbm/$name.pbm" "$work/out/$name.dec.pbm" << 'PY' || { mismatch=$((mismatch + 1)); echo "jbig2dec differs on $name"; }
import sys
def read(path):
    try:
        data = open(path, 'rb').read()
    except OSError:
        sys.exit(1)
    fields, pos = [], 0
    while len(fields) < 3:
        while data[pos:pos + 1].isspace():
            pos += 1
        if data[pos:pos + 1] == b'#':
            while data[pos:pos + 1] != b'\n':
                pos += 1
            continue
        start = pos
        while not data[pos:pos + 1].isspace():
            pos += 1
        fields.append(data[start:pos])
    w, h = int(fields[1]), int(fields[2])
    stride = (w + 7) // 8
    body = data[pos + 1:pos + 1 + stride * h]
    pad = (0xFF << (8 - w % 8)) & 0xFF if w % 8 else 0xFF
    return w, h, [bytes(body[y * stride:(y + 1) * stride - 1]) + bytes([body[(y + 1) * stride - 1] & pad]) for y in range(h)]
sys.exit(0 if read(sys.argv[1]) == read(sys.argv[2]) else 1)
PY
done

# 4. tiffcp -c g4 on the same bitmaps, one run per bitmap.
start=$(date +%s%N)
for t in "$work"/out/*.tif; do
  tiffcp -c g4 "$t" "${t%.tif}.g4.tif" 2> /dev/null
done
tiffcp_ms=$(( ($(date +%s%N) - start) / 1000000 ))
tiffcp_bytes=0
for t in "$work"/out/*.g4.tif; do
  # Sum of the strips' byte counts (tiffcp writes strips of about 8 KB).
  tiffcp_bytes=$((tiffcp_bytes + $(tiffinfo -s "$t" 2> /dev/null \
    | awk '/^ *[0-9]+: *\[/ { gsub(/[\[\],]/, " "); n += $3 } END { print n + 0 }')))
done

# 5. The table.
python3 - "$work/stored.txt" "$work/ours.txt" "$tiffcp_ms" "$tiffcp_bytes" "$mismatch" << 'PY'
import sys
stored = dict(l.split() for l in open(sys.argv[1]))
rows = [l.split() for l in open(sys.argv[2])]
tiffcp_ms, tiffcp_bytes, mismatch = float(sys.argv[3]), int(sys.argv[4]), int(sys.argv[5])
n = len(rows)
px = sum(int(r[1]) * int(r[2]) for r in rows)
st = sum(int(stored[r[0]]) for r in rows)
jb = sum(int(r[3]) for r in rows)
g4 = sum(int(r[4]) for r in rows)
jms = sum(float(r[5]) for r in rows)
gms = sum(float(r[6]) for r in rows)
print("%d bilevel images, %.1f Mpixels" % (n, px / 1e6))
print("%-34s %12s %8s %10s" % ("", "bytes", "ratio", "time ms"))
print("%-34s %12d %8s %10s" % ("as stored", st, "1.000", "-"))
print("%-34s %12d %8.3f %10.1f" % ("trimora JBIG2 (generic region)", jb, jb / st, jms))
print("%-34s %12d %8.3f %10.1f" % ("trimora CCITT G4 (libtiff)", g4, g4 / st, gms))
print("%-34s %12s %8s %10.1f" % ("tiffcp -c g4 (per file)", tiffcp_bytes if tiffcp_bytes else "-",
      "%.3f" % (tiffcp_bytes / st) if tiffcp_bytes else "-", tiffcp_ms))
print("JBIG2 time / tiffcp time: %.2f;  our G4 time / tiffcp time: %.2f" % (jms / tiffcp_ms, gms / tiffcp_ms))
print("JBIG2 bytes / G4 bytes: %.3f" % (jb / g4))
big = sorted(rows, key=lambda r: -int(r[1]) * int(r[2]))[:5]
print("largest: " + "; ".join("%s %sx%s stored %s, JBIG2 %s, G4 %s" % (r[0], r[1], r[2], stored[r[0]], r[3], r[4]) for r in big))
print("jbig2dec decodes %d of %d JBIG2 streams to the same bits" % (n - mismatch, n))
PY
