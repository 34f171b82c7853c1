#!/usr/bin/env bash
# Opening speed: tminspect --load-all over every corpus file against
# `qpdf --check` on the same files, one run each, printed as a ratio.
#   bench/open.sh CORPUS_DIR [BUILD_DIR]   (a Release build is best)
set -u
corpus="${1:?usage: bench/open.sh CORPUS_DIR [BUILD_DIR]}"
build="${2:-$(cd "$(dirname "$0")/.." && pwd)/build}"
inspect="$build/tools/tminspect"
now() { date +%s.%N; }
files=("$corpus"/*.pdf)
t0=$(now)
for f in "${files[@]}"; do "$inspect" "$f" --load-all >/dev/null 2>&1; done
t1=$(now)
for f in "${files[@]}"; do qpdf --check "$f" >/dev/null 2>&1; done
t2=$(now)
awk -v a="$t0" -v b="$t1" -v c="$t2" -v n="${#files[@]}" 'BEGIN {
  ours = b - a; theirs = c - b;
  printf "files: %d\ntminspect --load-all: %.2f s\nqpdf --check: %.2f s\nratio: %.2f\n", n, ours, theirs, ours / theirs }'
