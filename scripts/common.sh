# Shared set-up for run.sh and test.sh: install missing Debian packages and
# configure/build a tree.  Sourced, not run.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

BUILD_PACKAGES=(g++ cmake ninja-build pkg-config zlib1g-dev libjpeg-dev libtiff-dev
  liblcms2-dev libexpat1-dev libfreetype-dev libboost-dev libjbig2dec0-dev libdeflate-dev
  libimagequant-dev libharfbuzz-dev libfontconfig-dev fonts-urw-base35 fonts-liberation2)
# The CLI tests check outputs with qpdf and render them with pdftoppm; the
# manual page is rendered with groff and man.
TEST_PACKAGES=(libgtest-dev googletest qpdf poppler-utils python3 groff-base man-db)

install_missing() {
  local missing=()
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}" >&2
    local sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    $sudo apt-get update -qq >&2
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
  fi
}

# configure_and_build BUILD_DIR [cmake args...]
configure_and_build() {
  local dir="$1"; shift
  if [ ! -f "$dir/build.ninja" ]; then
    cmake -S "$ROOT" -B "$dir" -G Ninja "$@" >&2
  fi
  cmake --build "$dir" >&2
}
