#!/usr/bin/env bash
# Flattening from the command line: a settings file that flattens
# annotations, removes form fields and flattens form XObjects gives the
# report line, the progress line, a page without annotations whose content
# draws the appearance itself, and a file qpdf accepts.
#   bash test_flatten.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmflatten.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

ap="0 0 1 rg 0 0 10 10 re f"
write_pdf annots.pdf "<< /Type /Catalog /Pages 2 0 R /AcroForm << /Fields [5 0 R] >> >>" \
    "<< /Type /Pages /Kids [3 0 R] /Count 1 >>" \
    "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Contents 7 0 R /Resources << >> /Annots [4 0 R 5 0 R] >>" \
    "<< /Type /Annot /Subtype /Square /Rect [20 20 60 60] /AP << /N 6 0 R >> >>" \
    "<< /Type /Annot /Subtype /Widget /FT /Tx /T (name) /Rect [100 100 150 120] /AP << /N 6 0 R >> >>" \
    "<< /Type /XObject /Subtype /Form /BBox [0 0 10 10] /Length ${#ap} >>"$'\nstream\n'"$ap"$'\nendstream' \
    $'<< /Length 5 >>\nstream\n0.5 g\nendstream'

cat > flatten.tmc <<'TMC'
<?xml version = "1.0" encoding = "UTF-8"?>
<trimora>
  <target name="Flatten" pdfMajorVersion="0" pdfMinorVersion="0" precision="5" eval-units="Points">
    <optimize>
      <annot-processing>Flatten</annot-processing>
      <acroform-processing>Remove</acroform-processing>
      <flatten-xobjects>true</flatten-xobjects>
    </optimize>
  </target>
</trimora>
TMC

"$bin" -f flatten.tmc -report -progress annots.pdf -o out.pdf > out.txt 2> err.txt || fail "exit status"
grep -q "Flattened 1 & Removed 0 of 1 Annotation$" out.txt err.txt \
    || fail "no annotation report line: $(cat out.txt err.txt)"
grep -q "$(printf '\tFlattening annotations...')" out.txt err.txt || fail "no progress line"
grep -q "Error" out.txt err.txt && fail "errors reported: $(grep Error out.txt err.txt)"

if command -v qpdf > /dev/null 2>&1; then
    qpdf --check out.pdf > check.txt 2>&1 || fail "qpdf --check: $(tail -n 3 check.txt)"
    qpdf --qdf --object-streams=disable out.pdf plain.pdf
    # An emptied Annots array is left to the annotation clean-up.
    tr -s ' \n' ' ' < plain.pdf | grep -aq "/Annots \[ \]" || ! grep -aq "/Annots" plain.pdf \
        || fail "annotations left: $(grep -a -A3 /Annots plain.pdf)"
    grep -aq "/Subtype /Square" plain.pdf && fail "the square annotation is still written"
    # The appearance's drawing is now the page's own: placed on the
    # rectangle (four times its box) and clipped to its box.
    grep -aq "4 0 0 4 20 20 cm" plain.pdf || fail "the appearance is not placed on its rectangle"
    grep -aq "0 0 10 10 re W n 0 0 1 rg 0 0 10 10 re f" plain.pdf || fail "the appearance's content is not in the page"
fi
exit $((fails > 0))
