#!/usr/bin/env bash
# A save interrupted by SIGTERM, SIGINT or SIGHUP leaves no temporary file
# and the input as it was, with an unnamed temporary (the default where the
# system has them) and with a named one.  The save is slowed down by a test
# hook so the signal arrives while it writes.
#   bash test_interrupt.sh TRIMORA_BINARY BUILD_DIR
set -u
set -m  # background jobs of a script would otherwise ignore SIGINT
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
command -v python3 >/dev/null || { echo "SKIP: python3 is needed to build the fixtures"; exit 0; }
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmintr.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

make_pdf orig.pdf 40

# interrupt SIGNAL NAMED: runs an in-place save, signals it part-way.
interrupt() {
    local sig=$1 named=$2 what="$1 (named temporary: $2)"
    cp orig.pdf doc.pdf
    TRIMORA_TEST_SLOW_SAVE=100 TRIMORA_TEST_NAMED_TEMP=$named "$bin" doc.pdf >out.txt 2>err.txt &
    local pid=$!
    if [ "$named" = 1 ]; then
        # Wait for the temporary to appear, so the signal surely finds it.
        for _ in $(seq 200); do
            ls -A | grep -q '^\.doc\.pdf\.tm' && break
            sleep 0.05
        done
        ls -A | grep -q '^\.doc\.pdf\.tm' || fail "$what: no temporary file seen while saving"
    else
        # An unnamed temporary shows only among the process's open files.
        for _ in $(seq 200); do
            ls -l "/proc/$pid/fd" 2>/dev/null | grep -q "$work.*(deleted)" && break
            sleep 0.05
        done
        ls -l "/proc/$pid/fd" 2>/dev/null | grep -q "$work.*(deleted)" ||
            fail "$what: no unnamed temporary seen while saving"
        ls -A | grep -q '^\.doc\.pdf\.tm' && fail "$what: a named temporary exists while writing"
    fi
    kill -"$sig" "$pid"
    wait "$pid"
    local rc=$?
    [ "$rc" -gt 128 ] || fail "$what: the process ended with $rc, not by the signal"
    cmp -s doc.pdf orig.pdf || fail "$what: the input changed"
    [ "$(ls -A | sort | tr '\n' ' ')" = "doc.pdf err.txt orig.pdf out.txt " ] ||
        fail "$what: files left behind: $(ls -A | tr '\n' ' ')"
}

for sig in TERM INT HUP; do
    interrupt "$sig" 1
done
interrupt TERM 0

# The same slowed save, left alone, completes and replaces the input.
cp orig.pdf doc.pdf
TRIMORA_TEST_SLOW_SAVE=1 "$bin" doc.pdf >out.txt 2>err.txt || fail "slow save: exit status"
cmp -s doc.pdf orig.pdf && fail "slow save: the input was not replaced"
grep -q "elapsed time" err.txt || fail "slow save: no summary: $(cat err.txt)"
[ "$(ls -A | grep -c '\.tm')" = 0 ] || fail "slow save: temporary left: $(ls -A)"

if [ $fails -ne 0 ]; then
    echo "$fails failure(s)"
    exit 1
fi
echo "all interrupt tests passed"
