#!/usr/bin/env bash
# Palettisation and quantisation over the colour and gray images of the
# corpus: per file, the images and their stored bytes; the images
# palettised, their bytes before and after and the lowest PSNR of what
# they draw against what the originals drew ("exact" when identical); the
# images quantised (256 colours, 35 dB bound) with the same figures and
# the mean PSNR; and the time spent in each.  "!" marks a file where a
# palettised image could not be read back for the comparison.
#
#   bench/palette.sh [CORPUS_DIR]     (default ../shared/corpus beside the checkout)
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
corpus="${1:-$(dirname "${BASH_SOURCE[0]}")/../../shared/corpus}"
build="$ROOT/build-bench"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$ROOT" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTRIMORA_BUILD_TESTS=OFF \
    -DTRIMORA_BUILD_BENCH=ON > /dev/null
fi
cmake --build "$build" --target palette_bench -j2 > /dev/null

list="$work/list.tsv"
manifest="$corpus/MANIFEST.tsv"
if [ -f "$manifest" ]; then
  tail -n +2 "$manifest" | while IFS=$'\t' read -r file _ _ _ _ traits; do
    case ",$traits," in *,images-*|*,photo,*) ;; *) continue ;; esac
    pw=""
    case ",$traits," in *,userpw=*) pw="$(echo "$traits" | tr ',' '\n' | sed -n 's/^userpw=//p')" ;; esac
    printf '%s\t%s\n' "$corpus/$file" "$pw"
  done > "$list"
else
  for f in "$corpus"/*.pdf; do printf '%s\t\n' "$f"; done > "$list"
fi
"$build/bench/palette_bench" "$list"
