#!/usr/bin/env bash
# Installs what is missing, builds trimora (Release) and runs it with the
# given arguments.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
install_missing "${BUILD_PACKAGES[@]}"
configure_and_build "$ROOT/build" -DCMAKE_BUILD_TYPE=Release -DTRIMORA_BUILD_TESTS=OFF
exec "$ROOT/build/frontend/trimora" "$@"
