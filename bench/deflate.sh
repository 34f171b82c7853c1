#!/usr/bin/env bash
# libdeflate (trimora's Flate encoder) against zlib at level 9, and
# libdeflate's level 12, over every Flate stream of a folder of PDFs:
# total bytes written and time taken, from one run.
#
#   bench/deflate.sh [CORPUS_DIR]     (default ../shared/corpus beside the checkout)
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
bench="$build/filters_bench"
g++ -std=c++20 -O2 -I"$ROOT" "$ROOT/bench/filters_bench.cpp" -o "$bench" \
  "$build/filters/libtm_filters.a" "$build/base/libtm_vellum_base.a" \
  -ldeflate -lz -ljpeg -ltiff -ljbig2dec

# Every plain Flate stream (no predictor) of every unencrypted file, as stored.
mkdir -p "$work/fl"
for pdf in "$corpus"/*.pdf; do
  f=$(basename "$pdf" .pdf)
  qpdf --json=2 --json-key=qpdf --decode-level=none --json-stream-data=file \
    --json-stream-prefix="$work/fl/$f" "$pdf" > "$work/$f.json" 2>/dev/null || { rm -f "$work/fl/$f"*; continue; }
  python3 - "$work/$f.json" <<'PY'
import json, os, sys
objs = json.load(open(sys.argv[1]))["qpdf"][1]
for v in objs.values():
    st = v.get("stream") if isinstance(v, dict) else None
    if st and "datafile" in st and st.get("dict", {}).get("/Filter") == "/FlateDecode" \
            and "/DecodeParms" not in st["dict"]:
        os.rename(st["datafile"], st["datafile"] + ".fl")
PY
  find "$work/fl" -maxdepth 1 -type f ! -name '*.fl' -delete
  rm -f "$work/$f.json"
done
find "$work/fl" -name '*.fl' > "$work/list.txt"
"$bench" flate "@$work/list.txt"
