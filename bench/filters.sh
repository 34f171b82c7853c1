#!/usr/bin/env bash
# Filter throughput: Flate decode/encode against zlib used directly, and
# CCITT Group 4 decoding against libtiff's tiffcp on the same data.
#
#   bench/filters.sh [CORPUS_DIR]     (default ../shared/corpus beside the checkout)
#
# Builds a Release tree in build-bench/ (only the filter library), extracts
# streams with qpdf, and prints one line per measurement plus the ratios.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
corpus="${1:-$(dirname "${BASH_SOURCE[0]}")/../../shared/corpus}"
build="$ROOT/build-bench"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$ROOT" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTRIMORA_BUILD_TESTS=OFF >/dev/null
fi
cmake --build "$build" --target tm_filters -j2 >/dev/null
# The bench program links the filter library directly, so it needs no
# change to the top-level build.
bench="$build/filters_bench"
g++ -std=c++20 -O2 -I"$ROOT" "$ROOT/bench/filters_bench.cpp" -o "$bench" \
  "$build/filters/libtm_filters.a" "$build/base/libtm_vellum_base.a" \
  -ldeflate -lz -ljpeg -ltiff -ljbig2dec

# Flate: every Flate stream of a few text-heavy files, as stored.
mkdir -p "$work/fl"
for f in pgf-manual.pdf beamer-userguide.pdf gnuplot-manual.pdf; do
  [ -f "$corpus/$f" ] || continue
  qpdf --json=2 --json-key=qpdf --decode-level=none --json-stream-data=file \
    --json-stream-prefix="$work/fl/${f%.pdf}" "$corpus/$f" > "$work/fl/${f%.pdf}.json" 2>/dev/null || true
  python3 - "$work/fl/${f%.pdf}.json" <<'PY'
import json, os, sys
objs = json.load(open(sys.argv[1]))["qpdf"][1]
for v in objs.values():
    st = v.get("stream") if isinstance(v, dict) else None
    if st and "datafile" in st and st.get("dict", {}).get("/Filter") == "/FlateDecode" \
            and "/DecodeParms" not in st["dict"]:
        os.rename(st["datafile"], st["datafile"] + ".fl")
PY
done
"$bench" flate "$work"/fl/*.fl

# CCITT G4: the first G4 image of the scanned file, 20 decodes each way.
g4pdf="$corpus/scan-bilevel-g4.pdf"
if [ -f "$g4pdf" ]; then
  read -r obj cols rows < <(qpdf --json=2 --json-key=qpdf "$g4pdf" | python3 -c '
import json, sys
objs = json.load(sys.stdin)["qpdf"][1]
for k, v in objs.items():
    d = v.get("stream", {}).get("dict", {}) if isinstance(v, dict) else {}
    if d.get("/Filter") == "/CCITTFaxDecode" and d.get("/DecodeParms", {}).get("/K", 0) < 0:
        p = d["/DecodeParms"]
        print(k.split(":")[1].split()[0], p["/Columns"], p["/Rows"])
        break')
  qpdf --show-object="$obj" --raw-stream-data "$g4pdf" > "$work/g4.raw"
  ours=$("$bench" g4 "$work/g4.raw" "$cols" "$rows" "$work/g4.tif" | tee /dev/stderr | sed -nE 's/^g4 decode.*, ([0-9.]+) ms per image/\1/p')
  start=$(date +%s.%N)
  for i in $(seq 20); do tiffcp -c none "$work/g4.tif" "$work/out.tif"; done
  end=$(date +%s.%N)
  tiffms=$(python3 -c "print(f'{($end - $start) / 20 * 1000:.3f}')")
  echo "g4 tiffcp: $tiffms ms per image"
  python3 -c "print(f'g4 ratio (tiffcp time / ours): {$tiffms / $ours:.2f}')"
fi
