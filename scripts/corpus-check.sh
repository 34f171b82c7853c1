#!/usr/bin/env bash
# Runs trimora's checks on a folder of real-world PDFs.
#
#   scripts/corpus-check.sh DIR
#
# Builds a Release tree (build/), then runs every stage in scripts/corpus/
# in name order.  A stage is called as `stage CORPUS_DIR BUILD_DIR WORK_DIR`
# and prints one line per file that starts with PASS, FAIL or SKIP.  The
# final line counts them: "N passed, N failed".  Exit status 1 when any
# file failed.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
[ $# -ge 1 ] || { echo "usage: $0 DIR" >&2; exit 2; }
corpus="$(cd "$1" && pwd)"
install_missing "${BUILD_PACKAGES[@]}" qpdf poppler-utils mupdf-tools jbig2dec python3
configure_and_build "$ROOT/build" -DCMAKE_BUILD_TYPE=Release -DTRIMORA_BUILD_TESTS=OFF
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

results="$work/results.txt"
: > "$results"
for stage in "$ROOT"/scripts/corpus/*.sh; do
  [ -e "$stage" ] || continue
  name="$(basename "$stage" .sh)"
  echo "== $name"
  mkdir -p "$work/$name"
  status=0
  started=$SECONDS
  bash "$stage" "$corpus" "$ROOT/build" "$work/$name" > "$work/$name.out" 2>&1 || status=$?
  while IFS= read -r line; do
    echo "$line"
    case "$line" in PASS*|FAIL*|SKIP*) echo "$name $line" >> "$results" ;; esac
  done < "$work/$name.out"
  # A stage that stops early must not pass silently.
  if [ "$status" -ne 0 ]; then
    echo "FAIL $name: the stage itself exited with status $status"
    echo "$name FAIL stage exited with status $status" >> "$results"
  fi
  echo "== $name took $((SECONDS - started)) s"
done
passed=$(grep -c ' PASS' "$results" || true)
failed=$(grep -c ' FAIL' "$results" || true)
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
