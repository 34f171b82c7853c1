#!/usr/bin/env bash
# Rewrites a small PDF built here (a full save, nothing else changed) and
# checks the result: clean structure, unused objects gone, pages intact, a
# stable body when rewritten again, and an untouched target when the input
# cannot be read.
#
#   test_roundtrip.sh TRIMORA_BINARY BUILD_DIR
set -u
export LC_ALL=C
build="${2:?usage: $0 TRIMORA_BINARY BUILD_DIR}"
tool="$build/tools/tminspect"
[ -x "$tool" ] || { echo "FAIL: $tool not built"; exit 1; }
. "$(dirname "$0")/pdfgen.sh"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# A classic file with an object nothing refers to, an indirect stream
# length and an incremental update that replaces the content stream.
write_pdf "$work/in.pdf" "<< /Type /Catalog /Pages 2 0 R >>" "<< /Type /Pages /Kids [3 0 R] /Count 1 >>" \
  "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /Contents 4 0 R /Resources << /Font << /F1 6 0 R >> >> >>" \
  $'<< /Length 5 0 R >>\nstream\nBT /F1 24 Tf 10 40 Td (Old) Tj ET\nendstream' "33" \
  "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>" "(UNUSED-OBJECT-MARK)"
xref=$(tail -n 2 "$work/in.pdf" | head -n 1)
upd=$(stat -c %s "$work/in.pdf")
printf '4 0 obj\n<< /Length 33 >>\nstream\nBT /F1 24 Tf 10 40 Td (New) Tj ET\nendstream\nendobj\n' >> "$work/in.pdf"
xref2=$(stat -c %s "$work/in.pdf")
printf 'xref\n4 1\n%010d 00000 n \ntrailer\n<< /Size 8 /Root 1 0 R /Prev %d >>\nstartxref\n%d\n%%%%EOF\n' \
  "$upd" "$xref" "$xref2" >> "$work/in.pdf"
"$tool" "$work/in.pdf" > "$work/in.txt" 2>&1 || fail "fixture does not open: $(cat "$work/in.txt")"

if ! "$tool" --rewrite "$work/in.pdf" "$work/out.pdf" > "$work/rw.txt" 2>&1; then
  fail "rewrite failed: $(cat "$work/rw.txt")"
else
  # The written bytes themselves (header, end marker, what is dropped) are
  # checked by the save unit tests.
  grep -q '(New) Tj' "$work/out.pdf" || fail "the updated content stream is missing"
  grep -q '(Old) Tj' "$work/out.pdf" && fail "the replaced content stream was written"
  "$tool" "$work/out.pdf" > "$work/out.txt" 2>&1 || fail "output does not open: $(cat "$work/out.txt")"
  grep -q '^pages: 1$' "$work/out.txt" || fail "page count changed: $(grep pages "$work/out.txt")"
  grep -q '^objects: 6$' "$work/out.txt" || fail "expected objects 1-5 and the free entry: $(grep objects "$work/out.txt")"
  if command -v qpdf > /dev/null 2>&1; then
    qpdf --check "$work/out.pdf" > "$work/check.txt" 2>&1 || fail "qpdf --check: $(cat "$work/check.txt")"
    grep -qi 'warning' "$work/check.txt" && fail "qpdf --check warns: $(cat "$work/check.txt")"
  else
    echo "SKIP: qpdf not installed, structure check skipped"
  fi
  # A rewrite of the rewrite keeps every object body.
  "$tool" --rewrite "$work/out.pdf" "$work/out2.pdf" > /dev/null 2>&1 || fail "second rewrite failed"
  sed 's/\r/\n/g' "$work/out.pdf" | sed '/^trailer$/q' > "$work/b1"
  sed 's/\r/\n/g' "$work/out2.pdf" | sed '/^trailer$/q' > "$work/b2"
  cmp -s "$work/b1" "$work/b2" || fail "rewriting a rewritten file changed its body"
fi

# A bad input fails with a message and leaves an existing target alone.
printf 'not a pdf' > "$work/bad.pdf"
printf 'keep me' > "$work/target.pdf"
if "$tool" --rewrite "$work/bad.pdf" "$work/target.pdf" > "$work/bad.txt" 2>&1; then
  fail "rewrite of a non-PDF succeeded"
fi
[ -s "$work/bad.txt" ] || fail "no message for a bad input"
[ "$(cat "$work/target.pdf")" = "keep me" ] || fail "target changed after a failed rewrite"
[ "$(ls -A "$work" | grep -c '\.tm')" = 0 ] || fail "temporary files left behind"

if [ "$fails" -gt 0 ]; then exit 1; fi
echo "PASS: round trip"
