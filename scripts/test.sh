#!/usr/bin/env bash
# Installs what is missing, builds trimora and its tests with AddressSanitizer
# and UndefinedBehaviorSanitizer, and runs every test.  When the shared
# corpus of real-world PDFs is present beside the checkout, the corpus check
# runs on it as well.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
configure_and_build "$ROOT/build-test" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTRIMORA_SANITIZE=ON
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd "$ROOT/build-test" && ctest --output-on-failure -j"$(nproc)")

corpus="${TRIMORA_CORPUS:-$ROOT/../shared/corpus}"
if [ -d "$corpus" ]; then
  "$ROOT/scripts/corpus-check.sh" "$corpus"
fi
