#!/usr/bin/env bash
# Lossy image reduction side by side: trimora with examples/ebook.tmc,
# Ghostscript's pdfwrite with -dPDFSETTINGS=/ebook, and ocrmypdf asked only
# to optimise (--skip-text --tesseract-timeout 0 --optimize 3), over a
# folder of PDFs, from one run.
#
# For each tool: total output bytes and total time over the files all three
# handle, and the median over those files of the worst page-render PSNR
# against the input (pdftoppm at 72 dpi, pages 1 to $LOSSY_PAGES, default 5;
# identical pages count as 99 dB).  Then trimora's ratios against the
# smaller peer's bytes and gs's time, and the ten files where trimora's
# output is furthest above the better peer's.
#
#   bench/lossy.sh [CORPUS_DIR] [BUILD_DIR]
# Defaults: ../shared/corpus beside the checkout and build/.  Needs gs, ocrmypdf, pngquant,
# pdftoppm and python3.
set -u
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
corpus="${1:-$(dirname "${BASH_SOURCE[0]}")/../../shared/corpus}"
build="${2:-$root/build}"
bin="$build/frontend/trimora"
settings="$root/examples/ebook.tmc"
pages="${LOSSY_PAGES:-5}"
[ -x "$bin" ] || { echo "no trimora at $bin (build it first)" >&2; exit 2; }
for t in gs ocrmypdf pngquant pdftoppm python3; do
  command -v $t > /dev/null 2>&1 || { echo "missing tool: $t" >&2; exit 2; }
done
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
manifest="$corpus/MANIFEST.tsv"
tools=(trimora gs ocrmypdf)

source "$root/bench/common.sh"

run_tool() {  # tool in out password
  case $1 in
    trimora) "$bin" -f "$settings" ${4:+-openPass "$4"} -o "$3" "$2" > /dev/null 2> "$work/err.txt" \
               && ! grep -q "Error during processing" "$work/err.txt" ;;
    gs) gs -q -dNOPAUSE -dBATCH -dSAFER -sDEVICE=pdfwrite -dPDFSETTINGS=/ebook ${4:+-sPDFPassword="$4"} \
          -sOutputFile="$3" "$2" > /dev/null 2>&1 ;;
    ocrmypdf) ocrmypdf -q --skip-text --tesseract-timeout 0 --optimize 3 --output-type pdf "$2" "$3" \
                > /dev/null 2>&1 ;;
  esac
}

# Worst PSNR (dB) of the rendered pages of $2 against $1 (prefix a-/b-).
worst_psnr() {
  python3 - "$1" "$2" << 'PY'
import glob, math, os, sys
def read(path):
    data = open(path, 'rb').read()
    fields, pos = [], 0
    while len(fields) < 4:
        while data[pos:pos + 1].isspace():
            pos += 1
        start = pos
        while not data[pos:pos + 1].isspace():
            pos += 1
        fields.append(data[start:pos])
    return (int(fields[1]), int(fields[2])), data[pos + 1:]
worst = 99.0
pa = sorted(glob.glob(sys.argv[1] + '-*'))
pb = sorted(glob.glob(sys.argv[2] + '-*'))
if not pa or len(pa) != len(pb):
    print("0.00"); sys.exit()
for a, b in zip(pa, pb):
    (sa, da), (sb, db) = read(a), read(b)
    if sa != sb or len(da) != len(db):
        print("0.00"); sys.exit()
    sq = sum((x - y) * (x - y) for x, y in zip(da, db))
    if sq:
        worst = min(worst, 10 * math.log10(255.0 * 255.0 * len(da) / sq))
print("%.2f" % worst)
PY
}

rows="$work/rows.tsv"
: > "$rows"
printf '%-38s %10s | %10s %7s %6s | %10s %7s %6s | %10s %7s %6s\n' file input \
  trimora s dB gs s dB ocrmypdf s dB
for in in "$corpus"/*.pdf; do
  f="$(basename "$in")"
  pw="$(password_for "$f")"
  size_in=$(stat -c %s "$in")
  rm -f "$work"/a-*
  pdftoppm -q -r 72 -f 1 -l "$pages" ${pw:+-upw "$pw"} "$in" "$work/a" 2> /dev/null
  line="$f	$size_in"; ok=1; show=""
  for t in "${tools[@]}"; do
    out="$work/$t.pdf"; rm -f "$out"
    start=$(date +%s.%N)
    if run_tool "$t" "$in" "$out" "$pw" && [ -s "$out" ]; then
      end=$(date +%s.%N)
      secs=$(echo "$end - $start" | bc)
      bytes=$(stat -c %s "$out")
      rm -f "$work"/b-*
      pdftoppm -q -r 72 -f 1 -l "$pages" ${pw:+-upw "$pw"} "$out" "$work/b" 2> /dev/null
      db=$(worst_psnr "$work/a" "$work/b")
    else
      ok=0; secs=0; bytes=0; db=0
    fi
    line="$line	$bytes	$secs	$db"
    show="$show | $(printf '%10s %7.2f %6s' "$bytes" "$secs" "$db")"
  done
  printf '%-38s %10s%s\n' "$f" "$size_in" "$show"
  traits="$( [ -f "$manifest" ] && awk -F'\t' -v f="$f" '$1==f {print $NF}' "$manifest")"
  case "$traits" in *images-dct*|*images-flate*|*photo*|*scanned*) kind=images ;; *) kind=other ;; esac
  [ "$ok" = 1 ] && echo "$line	$kind" >> "$rows"
done

python3 - "$rows" << 'PY'
import statistics, sys
rows = [l.rstrip('\n').split('\t') for l in open(sys.argv[1]) if l.strip()]
tools = ['trimora', 'gs', 'ocrmypdf']
if not rows:
    print('no file handled by all three tools'); sys.exit()

def summary(title, rows):
    if not rows:
        return
    total_in = sum(int(r[1]) for r in rows)
    tot = {t: [0, 0.0, []] for t in tools}
    for r in rows:
        for i, t in enumerate(tools):
            b, s, d = int(r[2 + 3 * i]), float(r[3 + 3 * i]), float(r[4 + 3 * i])
            tot[t][0] += b; tot[t][1] += s; tot[t][2].append(d)
    print()
    print('%s: %d files, %d bytes in' % (title, len(rows), total_in))
    print('%-9s %12s %8s %9s %14s' % ('tool', 'bytes', 'of input', 'seconds', 'median worst dB'))
    for t in tools:
        b, s, d = tot[t]
        print('%-9s %12d %8.3f %9.2f %14.2f' % (t, b, b / total_in, s, statistics.median(d)))
    peer = min(tot['gs'][0], tot['ocrmypdf'][0])
    print('trimora / smaller peer bytes: %.3f' % (tot['trimora'][0] / peer))
    print('trimora / gs time:            %.3f' % (tot['trimora'][1] / tot['gs'][1]))
    print('trimora - gs median worst dB: %+.2f' % (statistics.median(tot['trimora'][2]) - statistics.median(tot['gs'][2])))

summary('All files handled by all three tools', rows)
summary('Of these, files with colour or gray images (manifest traits)', [r for r in rows if r[-1] == 'images'])
print()
print('Furthest behind the better peer (trimora bytes / smaller peer bytes):')
behind = []
for r in rows:
    tb, gb, ob = int(r[2]), int(r[5]), int(r[8])
    better = min(gb, ob)
    behind.append((tb / better, r[0], tb, gb, ob))
for ratio, f, tb, gb, ob in sorted(behind, reverse=True)[:10]:
    print('  %-38s %6.2f  trimora %d, gs %d, ocrmypdf %d' % (f, ratio, tb, gb, ob))
PY
