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

# Files above 2 MB are left out here (TRIMORA_CORPUS_MAX_BYTES changes the
# limit); scripts/corpus-check.sh DIR alone runs every file.
corpus="${TRIMORA_CORPUS:-$ROOT/../shared/corpus}"
if [ -d "$corpus" ]; then
  "$ROOT/scripts/corpus-check.sh" --max-bytes "${TRIMORA_CORPUS_MAX_BYTES:-2000000}" "$corpus"
fi
