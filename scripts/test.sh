#!/usr/bin/env bash
# Installs what is missing, builds trimora and its tests with AddressSanitizer
# and UndefinedBehaviorSanitizer, and runs every test.  When the shared
# corpus of real-world PDFs is present beside the checkout, the corpus check
# runs on it as well.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
# -O1 with line tables only: the sanitizers' reports keep file and line,
# and the build takes less than half the time -O2 with full debug
# information does.
configure_and_build "$ROOT/build-test" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTRIMORA_SANITIZE=ON \
  "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG" "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd "$ROOT/build-test" && ctest --output-on-failure -j"$(nproc)")

# A lighter corpus check than scripts/corpus-check.sh DIR alone, which runs
# everything: files above 1.3 MB are left out (TRIMORA_CORPUS_MAX_BYTES
# changes the limit), the content stage renders 4 pages a file instead of
# 12, and the damaged-file stage cuts each file once (at 40 %) instead of
# twice.  The heaviest files and the most repetitive checks are what goes.
corpus="${TRIMORA_CORPUS:-$ROOT/../shared/corpus}"
if [ -d "$corpus" ]; then
  CONTENT_SAMPLE="${CONTENT_SAMPLE:-4}" DAMAGED_KINDS="${DAMAGED_KINDS:-cut40 bytes}" \
    "$ROOT/scripts/corpus-check.sh" --max-bytes "${TRIMORA_CORPUS_MAX_BYTES:-1300000}" "$corpus"
fi
