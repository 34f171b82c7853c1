#!/usr/bin/env bash
# Exit statuses: 0 after any run by default; with TRIMORA_STRICT_EXIT=1,
# 2 when an input failed, 3 when all were written but with warnings, 0 for
# a clean run.  The usage path keeps 1 either way.
#   bash test_strict_exit.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
command -v python3 >/dev/null || { echo "SKIP: python3 is needed to build the fixtures"; exit 0; }
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmexit.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

# status EXPECTED STRICT ARGS...: runs trimora and checks its exit status.
status() {
    local want=$1 strict=$2
    shift 2
    if [ "$strict" = 1 ]; then
        TRIMORA_STRICT_EXIT=1 "$bin" "$@" >out.txt 2>err.txt
    else
        "$bin" "$@" >out.txt 2>err.txt
    fi
    local rc=$?
    [ "$rc" = "$want" ] || fail "strict=$strict trimora $*: status $rc, expected $want ($(tail -3 err.txt))"
}

make_pdf good.pdf 2
make_pdf damaged.pdf 2 "5 0 R 7 0 R 5 0 R"   # page 5 listed twice: repaired with a warning
printf 'not a pdf at all\n' > bad.pdf

status 0 0 good.pdf -o out1.pdf
status 0 1 good.pdf -o out2.pdf
status 0 0 bad.pdf -o out3.pdf
grep -q "Error during processing" err.txt || fail "failed input: no error line"
status 2 1 bad.pdf -o out4.pdf
status 2 1 no-such-file.pdf -o out5.pdf
mkdir outdir
status 2 1 ./good.pdf ./bad.pdf -o outdir   # one written, one failed
status 3 1 damaged.pdf -o out6.pdf
grep -q "^Warning: the page tree lists 1 page object more than once" err.txt ||
    fail "damaged input: no warning line: $(cat err.txt)"
[ -s out6.pdf ] || fail "damaged input: no output"
status 0 0 damaged.pdf -o out7.pdf
status 3 1 ./good.pdf ./damaged.pdf -o outdir  # both written, one with a warning
status 1 1 -h
TRIMORA_STRICT_EXIT=yes "$bin" bad.pdf -o out8.pdf >/dev/null 2>&1 || fail "only the value 1 turns strict mode on"

if [ $fails -ne 0 ]; then
    echo "$fails failure(s)"
    exit 1
fi
echo "all exit status tests passed"
