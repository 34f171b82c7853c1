#!/usr/bin/env bash
# JBIG2 symbol coding of text scans.  Two pages each of three text-heavy
# corpus files are rendered at 300 dpi as bilevel bitmaps (pdftoppm -mono),
# stored as CCITT G4 TIFF pages (tiffcp), imported by trimora one page at a
# time and joined into one scan document per file (qpdf).  trimora then
# stores the scans as JBIG2, losslessly and lossily.  A file passes when
#   - both runs exit 0 and their outputs pass `qpdf --check` with 2 pages;
#   - lossless: each page's JBIG2 image, decoded by the jbig2dec program
#     with its JBIG2Globals, is the scan's bitmap bit for bit; both pages
#     render the same as the scan document's in pdftoppm and in mutool; the
#     JBIG2 output is at most 0.6 x the scan document's size (0.9 x for
#     the real scan below, whose noise leaves few exact repeats);
#   - lossy: both pages render at 30 dB or better against the scan
#     document's (pdftoppm), and where a decoded page differs from the
#     bitmap, no differing pixel has more than 3 differing pixels in its
#     3 x 3 neighbourhood: noise moved, no stroke added or lost.
# The corpus's own bilevel office scan (scan-bilevel-g4.pdf, first two
# pages) goes through the same checks as it is.
#
#   80-jbig2.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
bin="$(find_program "$build" trimora)"
for t in pdftoppm tiffcp qpdf jbig2dec python3; do
  command -v $t > /dev/null 2>&1 || { echo "SKIP $corpus: $t is not installed"; exit 0; }
done
# The system's python has Debian's numpy; another python3 first on PATH may not.
py=python3
python3 -c 'import numpy' 2> /dev/null || py=/usr/bin/python3
$py -c 'import numpy' 2> /dev/null || { echo "SKIP $corpus: python3-numpy is not installed"; exit 0; }
[ -n "$bin" ] || { echo "SKIP $corpus: trimora is not built"; exit 0; }
have_qpdf=1; password=""; pages=2
have_mutool=1; command -v mutool > /dev/null 2>&1 || have_mutool=0

settings() {  # LOSSLESS -> a settings file that stores bilevel images as JBIG2
  cat << XML
<?xml version = "1.0" encoding = "UTF-8"?>
<trimora>
  <target name="JBIG2">
    <images>
      <mono>
        <compression filter="JBIG2" jbig2-lossless="$1"/>
      </mono>
    </images>
  </target>
</trimora>
XML
}
settings true > "$work/lossless.tmc"
settings false > "$work/lossy.tmc"

# The JBIG2 images of OUT in page order, decoded by jbig2dec with their
# globals, as DIR/N.pbm (N = 1, 2, ...); prints how many there are.
decode_jbig2() {  # OUT DIR
  local k=0 obj w h globals
  while read -r obj w h; do
    [ -n "$obj" ] || continue
    k=$((k + 1))
    globals=""
    [ -f "$2/$obj.glob" ] && globals="$2/$obj.glob"
    jbig2dec -q -e -t pbm -o "$2/$k.pbm" $globals "$2/$obj.jb2" > /dev/null 2>&1
  done < <(jbig2_streams "$1" "$2")
  echo "$k"
}

# compare_bits A.pbm B.pbm: "same", or "DIFF N BLOB" (differing pixels, and
# how many of them have more than 3 differing pixels in their 3 x 3
# neighbourhood), or "size".
compare_bits() {
  $py - "$1" "$2" << 'PY'
import sys
import numpy as np
def read(path):
    data = open(path, 'rb').read()
    fields, pos = [], 0
    while len(fields) < 3:
        while data[pos:pos + 1].isspace(): pos += 1
        start = pos
        while not data[pos:pos + 1].isspace(): pos += 1
        fields.append(data[start:pos])
    w, h = int(fields[1]), int(fields[2])
    rows = np.frombuffer(data[pos + 1:pos + 1 + (w + 7) // 8 * h], dtype=np.uint8).reshape(h, -1)
    return np.unpackbits(rows, axis=1)[:, :w]
try:
    a, b = read(sys.argv[1]), read(sys.argv[2])
except Exception:
    print("size"); sys.exit()
if a.shape != b.shape: print("size"); sys.exit()
x = (a ^ b).astype(np.int16)
if not x.any(): print("same"); sys.exit()
p = np.pad(x, 1)
n = sum(p[1 + dy:1 + dy + x.shape[0], 1 + dx:1 + dx + x.shape[1]] for dy in (-1, 0, 1) for dx in (-1, 0, 1))
print("DIFF %d %d" % (int(x.sum()), int(((n > 3) & (x == 1)).sum())))
PY
}

check_scan() {  # FILE SCAN TENTHS: the checks above on a two-page scan document
  local file="$1" scan="$2" tenths="$3" mode out rc n k cmp db size_scan size_out
  # The scan's own bitmaps, as poppler decodes them.
  rm -f "$work"/s/p-*.pbm
  pdfimages -l 2 "$scan" "$work/s/p" 2> /dev/null
  bitmaps=("$work"/s/p-*.pbm)
  problems=(); checked=()
  for mode in lossless lossy; do
    out="$work/s/$mode.pdf"
    timeout -k 5 300 "$bin" -f "$work/$mode.tmc" -o "$out" "$scan" > /dev/null 2> "$work/s/err.txt"
    rc=$?
    if [ "$rc" -ne 0 ] || grep -q "Error during processing" "$work/s/err.txt"; then
      problems+=("$mode: exit status $rc $(grep -m1 'Error during processing' "$work/s/err.txt")")
      continue
    fi
    check_output "$scan" "$out"
    mkdir -p "$work/s/$mode"
    n="$(decode_jbig2 "$out" "$work/s/$mode")"
    [ "$n" = 2 ] || { problems+=("$mode: $n JBIG2 images, expected 2"); continue; }
    for k in 1 2; do
      cmp="$(compare_bits "${bitmaps[$((k - 1))]}" "$work/s/$mode/$k.pbm")"
      if [ "$mode" = lossless ]; then
        [ "$cmp" = same ] || problems+=("lossless page $k: jbig2dec gives $cmp")
      else
        case "$cmp" in
          same) ;;
          DIFF*) set -- $cmp; checked+=("lossy p$k: $2 pixels moved")
                 [ "$3" = 0 ] || problems+=("lossy page $k: $3 differing pixels in blobs") ;;
          *) problems+=("lossy page $k: jbig2dec gives $cmp") ;;
        esac
      fi
      pdftoppm -q -gray -r 100 -f $k -l $k -singlefile "$scan" "$work/s/ra"
      pdftoppm -q -gray -r 100 -f $k -l $k -singlefile "$out" "$work/s/rb"
      db="$(psnr "$work/s/ra.pgm" "$work/s/rb.pgm")"
      checked+=("$mode p$k:$db")
      if [ "$mode" = lossless ]; then
        [ "$db" = inf ] || problems+=("lossless page $k renders differently in pdftoppm ($db dB)")
        if [ "$have_mutool" = 1 ]; then
          mutool draw -q -r 100 -c gray -o "$work/s/ma.pgm" "$scan" $k 2> /dev/null
          mutool draw -q -r 100 -c gray -o "$work/s/mb.pgm" "$out" $k 2> /dev/null
          cmp -s "$work/s/ma.pgm" "$work/s/mb.pgm" || problems+=("lossless page $k renders differently in mutool")
        fi
      else
        python3 -c "import sys; sys.exit(0 if sys.argv[1] in ('inf', 'size') or float(sys.argv[1]) >= 30 else 1)" "$db" \
          || problems+=("lossy page $k at $db dB")
        [ "$db" = size ] && problems+=("lossy page $k changed size")
      fi
    done
    size_scan=$(stat -c %s "$scan"); size_out=$(stat -c %s "$out")
    checked+=("$mode $size_scan -> $size_out bytes")
    if [ "$mode" = lossless ] && [ $((size_out * 10)) -gt $((size_scan * tenths)) ]; then
      problems+=("lossless output $size_out bytes, above 0.$tenths x the G4 scan's $size_scan")
    fi
  done
  if [ ${#problems[@]} -eq 0 ]; then
    echo "PASS $file: ${checked[*]}"
  else
    echo "FAIL $file: ${problems[*]}"
  fi
}

for pick in r-intro.pdf:3 groff-man-bash.pdf:10 libreoffice-gs-use.pdf:5; do
  file="${pick%%:*}"; first="${pick##*:}"
  in="$corpus/$file"
  [ -f "$in" ] || continue
  rm -rf "$work/s"; mkdir -p "$work/s"
  pdftoppm -q -mono -r 300 -tiff -f "$first" -l $((first + 1)) "$in" "$work/s/t"
  parts=()
  for t in "$work"/s/t-*.tif; do
    tiffcp -c g4 "$t" "${t%.tif}.g4.tif" 2> /dev/null
    "$bin" -o "${t%.tif}.pdf" "${t%.tif}.g4.tif" > /dev/null 2>&1
    parts+=("${t%.tif}.pdf")
  done
  scan="$work/s/scan.pdf"
  if [ ${#parts[@]} -ne 2 ] || ! qpdf --empty --pages "${parts[@]}" -- "$scan" 2> /dev/null; then
    echo "FAIL $file: the scan document could not be made"
    continue
  fi
  check_scan "$file" "$scan" 6
done
[ -f "$corpus/scan-bilevel-g4.pdf" ] && { rm -rf "$work/s"; mkdir -p "$work/s"
  qpdf --empty --pages "$corpus/scan-bilevel-g4.pdf" 1-2 -- "$work/s/scan.pdf" 2> /dev/null
  check_scan scan-bilevel-g4.pdf "$work/s/scan.pdf" 9; }
rm -rf "$work/s"
