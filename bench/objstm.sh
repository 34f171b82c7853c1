#!/usr/bin/env bash
# How many objects to put in one object stream: rewrites every file of a
# folder in the compact form with several stream sizes and prints, per size,
# the total output bytes (what packing more objects together saves) and the
# mean decoded size of the stream a packed object sits in (what a reader
# must inflate to get at one object), plus the time to inflate such a
# stream at this machine's zlib speed.
#
#   bench/objstm.sh [CORPUS_DIR] [BUILD_DIR] [SIZES...]
# Defaults: ../shared/corpus beside the checkout, build/, sizes 10 25 50 100 200 400 1000.
set -u
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
corpus="${1:-$(dirname "${BASH_SOURCE[0]}")/../../shared/corpus}"
build="${2:-$root/build}"
shift 2 2> /dev/null || shift $#
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(10 25 50 100 200 400 1000)
tool="$build/tools/tminspect"
[ -x "$tool" ] || { echo "no tminspect at $tool (build it first)" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
manifest="$corpus/MANIFEST.tsv"

source "$root/bench/common.sh"

# Inflate speed in decoded bytes per microsecond, from a 16 MB sample of
# PDF-like text.
rate=$(python3 - << 'EOF'
import time, zlib
text = b"<</Type/Font/Subtype/Type1/BaseFont/ABCDEF+Times-Roman/FirstChar 32/LastChar 255/Widths 12 0 R>>" * 170000
packed = zlib.compress(text, 9)
t = time.perf_counter()
for _ in range(5):
    zlib.decompress(packed)
print("%.1f" % (5 * len(text) / ((time.perf_counter() - t) * 1e6)))
EOF
)

classic=0
for in in "$corpus"/*.pdf; do
  pw=$(password_for "$(basename "$in")")
  "$tool" --rewrite "$in" "$work/c.pdf" ${pw:+--password "$pw"} > /dev/null 2>&1 || continue
  classic=$((classic + $(stat -c %s "$work/c.pdf")))
done
printf 'classic form: %d bytes; inflating runs at about %s bytes/us\n\n' "$classic" "$rate"
printf '%8s %12s %9s %14s %12s\n' per-stream bytes of_classic stream_bytes inflate_us
for n in "${sizes[@]}"; do
  total=0; : > "$work/streams.txt"
  for in in "$corpus"/*.pdf; do
    pw=$(password_for "$(basename "$in")")
    "$tool" --rewrite "$in" "$work/o.pdf" ${pw:+--password "$pw"} --object-streams --per-stream "$n" \
      > /dev/null 2>&1 || continue
    total=$((total + $(stat -c %s "$work/o.pdf")))
    "$tool" "$work/o.pdf" --packing 2> /dev/null | sed -n 's/^object stream [0-9]*: \([0-9]*\) objects, \([0-9]*\) bytes decoded.*/\1 \2/p' \
      >> "$work/streams.txt"
  done
  # Each packed object costs the inflation of its whole stream.
  awk -v n="$n" -v t="$total" -v c="$classic" -v r="$rate" '
    { objs += $1; weighted += $1 * $2 }
    END { m = objs ? weighted / objs : 0
          printf "%8d %12d %9.4f %14.0f %12.1f\n", n, t, (c ? t / c : 0), m, (r > 0 ? m / r : 0) }' \
    "$work/streams.txt"
done
