#!/usr/bin/env bash
# Bilevel encoders over every 1-bit image XObject of the corpus (image
# masks and 1-bit images, extracted as bitmaps by pdfimages; inline images
# are left out): total bytes of our JBIG2 generic-region and symbol coding
# and of our CCITT G4 coding against the images' streams as stored, and
# encode time against libtiff's `tiffcp -c g4` on the same bitmaps
# (tiffcp's time includes starting the program and reading and writing
# files, ours is the encoding in memory).  Every lossless JBIG2 stream is
# decoded again with the jbig2dec program and must give the same bits.
# A second table does the same for text scans (step 6).
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
"$bench" "$work/out" "$work"/pbm/*.pbm > "$work/all.txt" || exit 1
grep -v '^shared ' "$work/all.txt" > "$work/ours.txt"

# 3. jbig2dec on every JBIG2 stream: the same bits as the bitmap.
mismatch=0
for jb in "$work"/out/*.jb2; do
  case "$jb" in *.lossy.jb2) continue ;; esac
  name="$(basename "$jb" .jb2)"
  jbig2dec -q -e -t pbm -o "$work/out/$name.dec.pbm" "$jb" > /dev/null 2>&1
  python3 - "$work/pbm/${name%.sym}.pbm" "$work/out/$name.dec.pbm" << 'PY' || { mismatch=$((mismatch + 1)); echo "jbig2dec differs on $name"; }
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
sym = sum(int(r[7]) for r in rows)
print("%-34s %12d %8.3f %10.1f" % ("trimora JBIG2 (symbols or generic)", sym, sym / st, sum(float(r[8]) for r in rows)))
print("%-34s %12d %8.3f %10.1f" % ("trimora CCITT G4 (libtiff)", g4, g4 / st, gms))
print("%-34s %12s %8s %10.1f" % ("tiffcp -c g4 (per file)", tiffcp_bytes if tiffcp_bytes else "-",
      "%.3f" % (tiffcp_bytes / st) if tiffcp_bytes else "-", tiffcp_ms))
print("JBIG2 time / tiffcp time: %.2f;  our G4 time / tiffcp time: %.2f" % (jms / tiffcp_ms, gms / tiffcp_ms))
print("JBIG2 bytes / G4 bytes: %.3f" % (jb / g4))
big = sorted(rows, key=lambda r: -int(r[1]) * int(r[2]))[:5]
print("largest: " + "; ".join("%s %sx%s stored %s, JBIG2 %s, G4 %s" % (r[0], r[1], r[2], stored[r[0]], r[3], r[4]) for r in big))
print("jbig2dec decodes %d of %d lossless JBIG2 streams to the same bits" % (2 * n - mismatch, 2 * n))
PY

# 6. Text scans: pages of text-heavy corpus files rendered at 300 dpi as
# bilevel bitmaps (what a clean office scan of them gives), coded by each
# bilevel coder; symbol coding page by page, with one dictionary shared by
# the pages of each document, and lossy.  Every lossless JBIG2 stream must
# decode to the same bits in jbig2dec.
mkdir -p "$work/scans" "$work/sout"
: > "$work/scan-rows.txt"
: > "$work/scan-shared.txt"
for f in r-intro.pdf groff-man-bash.pdf libreoffice-gs-use.pdf amsguide-pdf12.pdf gnuplot-manual.pdf \
         lineno-gs.pdf r-faq-incremental.pdf openoffice-sourcecode.pdf; do
  [ -f "$corpus/$f" ] || continue
  stem="${f%.pdf}"
  pdftoppm -mono -r 300 -f 3 -l 6 "$corpus/$f" "$work/scans/$stem" 2> /dev/null || continue
  "$bench" "$work/sout" "$work/scans/$stem"-*.pbm > "$work/doc.txt" || exit 1
  grep -v '^shared ' "$work/doc.txt" >> "$work/scan-rows.txt"
  grep '^shared ' "$work/doc.txt" >> "$work/scan-shared.txt"
done
[ -s "$work/scan-rows.txt" ] || exit 0
smismatch=0
for jb in "$work"/sout/*.sym.jb2; do
  name="$(basename "$jb" .sym.jb2)"
  jbig2dec -q -e -t pbm -o "$work/sout/$name.dec.pbm" "$jb" > /dev/null 2>&1
  cmp -s <(tail -c +$(( $(head -c 64 "$work/scans/$name.pbm" | awk 'NR<=2 { n += length($0) + 1 } END { print n + 1 }') )) "$work/scans/$name.pbm") \
         <(tail -c +$(( $(head -c 64 "$work/sout/$name.dec.pbm" | awk 'NR<=2 { n += length($0) + 1 } END { print n + 1 }') )) "$work/sout/$name.dec.pbm") \
    || { smismatch=$((smismatch + 1)); echo "jbig2dec differs on symbol-coded $name"; }
done
python3 - "$work/scan-rows.txt" "$work/scan-shared.txt" "$smismatch" << 'PY'
import sys
rows = [l.split() for l in open(sys.argv[1])]
shared = [l.split() for l in open(sys.argv[2])]
mismatch = int(sys.argv[3])
n = len(rows)
g4 = sum(int(r[4]) for r in rows)
gen = sum(int(r[3]) for r in rows)
sym = sum(int(r[7]) for r in rows)
lossy = sum(int(r[9]) for r in rows)
alone = sum(int(s[2]) for s in shared)
together = sum(int(s[3]) for s in shared)
ms = sum(float(r[8]) for r in rows)
print()
print("%d text scan pages at 300 dpi (%d documents)" % (n, len(shared)))
print("%-44s %12s %10s %10s" % ("", "bytes", "x G4", "x generic"))
for label, b in (("CCITT G4", g4), ("JBIG2 generic region", gen), ("JBIG2 symbols, page by page", sym),
                 ("JBIG2 symbols, shared per document", sym - alone + together), ("JBIG2 symbols, lossy", lossy)):
    print("%-44s %12d %10.3f %10.3f" % (label, b, b / g4, b / gen))
print("symbol coding: %.1f ms a page (generic coding tried too), %.1f pages per second on one core" % (ms / n, 1000 * n / ms))
print("jbig2dec decodes %d of %d symbol-coded pages to the same bits" % (n - mismatch, n))
PY
