#!/usr/bin/env bash
# Writes seeds for fuzz_content: the decoded content of the first pages of
# every PDF in a folder (each cut to 64 KB), one file per page.
#
#   fuzz/seed_content.sh CORPUS_DIR OUT_DIR [PAGES_PER_FILE]
set -uo pipefail
corpus="$1"; out="$2"; per="${3:-4}"
command -v qpdf > /dev/null || { echo "seed_content.sh: qpdf is needed" >&2; exit 2; }
mkdir -p "$out"
for pdf in "$corpus"/*.pdf; do
  name="$(basename "$pdf" .pdf)"
  # "page 1: 3 0 R" is followed by its content streams, "    4 0 R".
  qpdf --show-pages "$pdf" 2> /dev/null | awk -v per="$per" '
    /^page / { page = $2 + 0; next }
    /^ +[0-9]+ [0-9]+ R/ && page <= per { print page, $1 }' |
  while read -r page obj; do
    qpdf --show-object="$obj" --filtered-stream-data "$pdf" 2> /dev/null | head -c 65536 \
      >> "$out/$name-p$page"
    printf '\n' >> "$out/$name-p$page"
  done
done
# A few hand-made streams for what the corpus rarely has: inline images
# (unfiltered and filtered, with EI inside the data), marked content, text.
printf 'q 10 0 0 10 0 0 cm BI /W 4 /H 1 /BPC 8 /CS /G ID EI Q\nEI Q\n' > "$out/hand-inline"
printf 'BI /W 2 /H 2 /BPC 8 /CS /RGB /F /AHx ID 00ff00ff00ff00ff00ff00ff>\nEI 1 w\n' > "$out/hand-inline-hex"
printf '/Layer <</Title (x)>> BDC /Span <</ActualText <feff0041>>> BDC BT /F1 12 Tf [(a) -20 (b)] TJ ET EMC EMC /P0 MP /X <<>> DP\n' > "$out/hand-marked"
printf '[3 1] 0 d 1 j 2 J 4 M 0.5 w /GS gs 1 0 0 1 5 5 cm 0 g 1 G 0 0 0 1 k 1 0 0 RG /CS cs 0.5 sc /Sh sh 0 0 m 1 1 l 2 2 3 3 4 4 c 1 1 2 2 v 1 1 2 2 y h W n F f* B B* b b* s S /Perceptual ri BX xyz EX PS\n' > "$out/hand-ops"
ls "$out" | wc -l
