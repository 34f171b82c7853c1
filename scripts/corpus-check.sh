#!/usr/bin/env bash
# Runs trimora's checks on a folder of real-world PDFs.
#
#   scripts/corpus-check.sh [--sanitize] [--max-bytes N] DIR
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
#
# --max-bytes N leaves out the files larger than N bytes (each is named on a
# SKIP line): the stages then run on a folder with copies of the others,
# and the manifest cut to match.  The test run uses it to stay quick; the large
# files are the slow ones and add little the others do not test.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
sanitize=0
max_bytes=""
while [ $# -gt 1 ]; do
  case "$1" in
    --sanitize) sanitize=1; shift ;;
    --max-bytes) max_bytes="$2"; shift 2 ;;
    *) break ;;
  esac
done
[ $# -ge 1 ] || { echo "usage: $0 [--sanitize] [--max-bytes N] DIR" >&2; exit 2; }
corpus="$(cd "$1" && pwd)"
install_missing "${BUILD_PACKAGES[@]}" qpdf poppler-utils mupdf-tools jbig2dec libtiff-tools python3 python3-numpy
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

skipped=()
if [ -n "$max_bytes" ]; then
  # The same layout as the shared folder (stages find ../bench beside it).
  sub="$work/subset/corpus"
  mkdir -p "$sub"
  [ -d "$corpus/../bench" ] && ln -s "$corpus/../bench" "$work/subset/bench"
  for f in "$corpus"/*; do
    name="$(basename "$f")"
    [ "$name" = MANIFEST.tsv ] && continue
    size=$(stat -c %s "$f")
    if [ -f "$f" ] && [ "$size" -gt "$max_bytes" ]; then
      skipped+=("SKIP $name: $size bytes, above --max-bytes $max_bytes")
    else
      cp -p "$f" "$sub/$name"  # copies, not links: stages measure and compare the files
    fi
  done
  if [ -f "$corpus/MANIFEST.tsv" ]; then
    { head -n 1 "$corpus/MANIFEST.tsv"
      tail -n +2 "$corpus/MANIFEST.tsv" | while IFS= read -r line; do
        if [ -e "$sub/${line%%$'\t'*}" ]; then printf '%s\n' "$line"; fi
      done
    } > "$sub/MANIFEST.tsv"
  fi
  corpus="$sub"
fi
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
for line in "${skipped[@]}"; do echo "$line"; done
passed=$(grep -c ' PASS' "$results" || true)
failed=$(grep -c ' FAIL' "$results" || true)
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
