#!/usr/bin/env bash
# Runs trimora's checks on a folder of real-world PDFs.
#
#   scripts/corpus-check.sh [--sanitize] DIR
#
# Builds a Release tree (build/), then runs every stage in scripts/corpus/,
# as many at once as there are processors, and prints their lines in name
# order.  A stage is called as `stage CORPUS_DIR BUILD_DIR WORK_DIR`
# and prints one line per file that starts with PASS, FAIL or SKIP.  The
# final line counts them: "N passed, N failed".  Exit status 1 when any
# file failed.
#
# --sanitize runs the same stages on a build with AddressSanitizer and
# UndefinedBehaviorSanitizer (build-asan/).  Every sanitizer report,
# including leaks and reports from runs that a stage expects to fail, is
# written to a log of its own and counted as one more failure, so a stage
# cannot hide one behind an expected error.  It takes about three times
# as long as the plain run.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
sanitize=0
if [ "${1:-}" = "--sanitize" ]; then sanitize=1; shift; fi
[ $# -ge 1 ] || { echo "usage: $0 [--sanitize] DIR" >&2; exit 2; }
corpus="$(cd "$1" && pwd)"
install_missing "${BUILD_PACKAGES[@]}" qpdf poppler-utils mupdf-tools jbig2dec python3
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
if [ "$sanitize" = 1 ]; then
  build="$ROOT/build-asan"
  configure_and_build "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTRIMORA_SANITIZE=ON -DTRIMORA_BUILD_TESTS=OFF
  mkdir -p "$work/sanitizer"
else
  build="$ROOT/build"
  configure_and_build "$build" -DCMAKE_BUILD_TYPE=Release -DTRIMORA_BUILD_TESTS=OFF
fi

results="$work/results.txt"
: > "$results"

# Stages are independent (each has its own work folder), so as many run at
# once as there are processors; their lines are printed in name order.
run_stage() {  # STAGE NAME
  local started=$SECONDS status=0
  mkdir -p "$work/$2"
  if [ "$sanitize" = 1 ]; then
    # One log per stage and process, named after the stage.
    export ASAN_OPTIONS="detect_leaks=1:log_path=$work/sanitizer/$2"
    export UBSAN_OPTIONS="print_stacktrace=1:log_path=$work/sanitizer/$2"
  fi
  bash "$1" "$corpus" "$build" "$work/$2" > "$work/$2.out" 2>&1 || status=$?
  echo "$status $((SECONDS - started))" > "$work/$2.status"
}
slots="$(nproc 2> /dev/null || echo 1)"
for stage in "$ROOT"/scripts/corpus/*.sh; do
  [ -e "$stage" ] || continue
  while [ "$(jobs -rp | wc -l)" -ge "$slots" ]; do wait -n || true; done
  run_stage "$stage" "$(basename "$stage" .sh)" &
done
wait

for stage in "$ROOT"/scripts/corpus/*.sh; do
  [ -e "$stage" ] || continue
  name="$(basename "$stage" .sh)"
  echo "== $name"
  read -r status took < "$work/$name.status"
  while IFS= read -r line; do
    echo "$line"
    case "$line" in PASS*|FAIL*|SKIP*) echo "$name $line" >> "$results" ;; esac
  done < "$work/$name.out"
  # A stage that stops early must not pass silently.
  if [ "$status" -ne 0 ]; then
    echo "FAIL $name: the stage itself exited with status $status"
    echo "$name FAIL stage exited with status $status" >> "$results"
  fi
  echo "== $name took $took s"
done
if [ "$sanitize" = 1 ]; then
  echo "== sanitizer"
  for report in "$work"/sanitizer/*; do
    [ -e "$report" ] || continue
    summary="$(grep -m1 'SUMMARY:\|runtime error' "$report" || head -1 "$report")"
    echo "FAIL $(basename "$report"): $summary"
    sed 's/^/    /' "$report" | head -40
    echo "sanitizer FAIL $summary" >> "$results"
  done
fi
passed=$(grep -c ' PASS' "$results" || true)
failed=$(grep -c ' FAIL' "$results" || true)
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
