#!/usr/bin/env bash
# The -report text after the summary: nothing done gives the heading and a
# blank line only; encryption, its permissions and applied metadata give
# their lines with their exact wording and indentation.
#   bash test_report.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmreport.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

# A one-page document without content.
write_pdf small.pdf "<< /Type /Catalog /Pages 2 0 R >>" "<< /Type /Pages /Kids [3 0 R] /Count 1 >>" \
    "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] >>"

# The report: everything after the heading, up to the end of the output.
report_of() { sed -n '/^Trimora accomplished the following:$/,$p' "$1"; }

"$bin" -report small.pdf -o plain.pdf >out.txt 2>err.txt || fail "plain: exit status"
expected=$'Trimora accomplished the following:\n'
[ "$(report_of err.txt)" = "$(printf '%s' "$expected")" ] \
    || fail "plain: a run that did nothing should report no lines: $(cat err.txt)"
grep -q '^$' err.txt || fail "plain: no blank line after the report"

"$bin" -report -encrypt -ownerPass secret -keyLength 128 -noPrinting -allowAccess small.pdf -o enc.pdf \
    >out.txt 2>err.txt || fail "encrypted: exit status"
expected="Trimora accomplished the following:
   Encrypted using a 128bit key an owner password and these permissions
      printing (disabled)
      editing (enabled)
      copying (enabled)
      commenting (enabled)
      form filling (disabled)
      accessability (enabled)
      assembly (disabled)
      high quality printing (disabled)"
[ "$(report_of err.txt)" = "$expected" ] || fail "encrypted: report was:
$(report_of err.txt)"

cat > meta.tmc <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<trimora>
  <target name="report test">
    <metadata><Title>Quarterly figures</Title></metadata>
    <security><user-password>u</user-password><owner-password>o</owner-password></security>
  </target>
</trimora>
XML
"$bin" -report -f meta.tmc -encrypt -keyLength 40 small.pdf -o meta.pdf >out.txt 2>err.txt \
    || fail "metadata: exit status"
expected="Trimora accomplished the following:
   Encrypted using a 40bit key both user and owner passwords and these permissions
      printing (enabled)
      editing (enabled)
      copying (enabled)
      commenting (enabled)
      form filling (enabled)
      accessability (enabled)
      assembly (enabled)
      high quality printing (enabled)
   Applied Metadata
      Title = Quarterly figures"
[ "$(report_of err.txt)" = "$expected" ] || fail "metadata: report was:
$(report_of err.txt)"

[ $fails -eq 0 ] && echo "PASS: report" || { echo "$fails failure(s)"; exit 1; }
