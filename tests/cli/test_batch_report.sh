#!/usr/bin/env bash
# scripts/batch-report.py: the totals of a batch, the table sorted by bytes
# saved, names escaped for HTML, lines that are not JSON counted rather
# than fatal; and, when trimora writes -json records, a page made from them.
#   bash test_batch_report.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
script="$(cd "$(dirname "$0")/../.." && pwd)/scripts/batch-report.py"
command -v python3 >/dev/null || { echo "SKIP: python3 is needed"; exit 0; }
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmbatch.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1

# has TEXT: the page holds TEXT literally.
has() { grep -qF -- "$1" page.html || fail "the page lacks: $1"; }

# A file that shrank, a failure, a file that grew whose name needs escaping,
# a line of garbage and a blank line.
cat > results.jsonl <<'JSON'
{"input":"big.pdf","output":"big.pdf","success":true,"error":null,"size_before":10000,"size_after":4000,"elapsed":1.5,"warnings":0,"kept_input":false,"stats":{"ContentStreams_Combined":3}}
{"input":"broken.pdf","output":null,"success":false,"error":"this file is damaged","size_before":700,"size_after":null,"elapsed":0.02,"warnings":1,"kept_input":false,"stats":{}}
{"input":"say \"hi\" <b>now</b> & go.pdf","output":"x.pdf","success":true,"error":null,"size_before":2000,"size_after":2500,"elapsed":0.25,"warnings":2,"kept_input":false,"stats":{}}
{"input": truncated

JSON
python3 "$script" results.jsonl page.html 2>err.txt || fail "exit status $? ($(tail -3 err.txt))"
[ -s page.html ] || { fail "no page written"; exit 1; }
grep -q "1 line" err.txt || fail "the unreadable line is not reported on stderr: $(cat err.txt)"

has '<tr><td>Files</td><td class="num">3</td></tr>'
has '<tr><td>Succeeded</td><td class="num">2</td></tr>'
has '<tr><td>Failed</td><td class="num">1</td></tr>'
# Sizes over the files that succeeded: 12000 before, 6500 after.
has '<tr><td>Bytes before</td><td class="num">12,000 (12.0 kB)</td></tr>'
has '<tr><td>Bytes after</td><td class="num">6,500 (6.5 kB)</td></tr>'
has '<tr><td>Percent saved</td><td class="num">45.8%</td></tr>'
has '<tr><td>Unreadable lines</td><td class="num">1 (line 4)</td></tr>'
has 'say &quot;hi&quot; &lt;b&gt;now&lt;/b&gt; &amp; go.pdf'
has 'this file is damaged'
grep -q '<b>now' page.html && fail "a name reached the page unescaped"
# One bar per file with sizes: a saving and a growth.
[ "$(grep -c '<rect class="saved"' page.html)" = 1 ] || fail "expected one bar of savings"
[ "$(grep -c '<rect class="grown"' page.html)" = 1 ] || fail "expected one bar of growth"
# Rows by bytes saved: big.pdf, the grown file, then the failure.
order=$(sed -n '/<h2>Files/,$s/^<tr[^>]*><td>\([^<]*\)<\/td>.*/\1/p' page.html | tr '\n' '|')
[ "$order" = 'big.pdf|say &quot;hi&quot; &lt;b&gt;now&lt;/b&gt; &amp; go.pdf|broken.pdf|' ] ||
    fail "rows not sorted by bytes saved: $order"
python3 -c 'import html.parser,sys; html.parser.HTMLParser().feed(open(sys.argv[1]).read())' page.html ||
    fail "the page does not parse as HTML"

# Records written by trimora itself (a trimora without -json writes none).
make_pdf good.pdf 2
printf 'not a pdf\n' > bad.pdf
mkdir outdir
"$bin" ./good.pdf ./bad.pdf -o outdir -json real.jsonl >/dev/null 2>&1
if [ -s real.jsonl ]; then
    python3 "$script" real.jsonl > page.html 2>err.txt || fail "report of trimora's records: $(cat err.txt)"
    has '<tr><td>Succeeded</td><td class="num">1</td></tr>'
    has '<tr><td>Failed</td><td class="num">1</td></tr>'
    grep -q 'Unreadable lines' page.html && fail "trimora wrote lines that are not JSON: $(cat real.jsonl)"
else
    echo "SKIP: this trimora has no -json; only the hand-written records are checked"
fi

if [ $fails -ne 0 ]; then
    echo "$fails failure(s)"
    exit 1
fi
echo "batch report tests passed"
