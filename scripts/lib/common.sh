# Shared by the scripts in scripts/: installs missing Debian packages and builds the project.
# Sourced, not run.

HARKLINE_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# Packages needed to build and run everything, tests included.
# Plasma's window protocol needs Qt's platform headers, libwayland and the protocol files.
HARKLINE_BUILD_PACKAGES=(g++ cmake ninja-build pkg-config nlohmann-json3-dev
  qt6-base-dev qt6-svg-dev libqrencode-dev libicu-dev libxcb1-dev fonts-dejavu-core
  qt6-base-private-dev libwayland-dev libwayland-bin plasma-wayland-protocols)
# desktop-file-utils and appstream validate what an install puts in place.
# qt6-wayland runs the program natively on the Wayland desktop of the desk tests.
# at-spi2-core, python3-pyatspi and xdotool: the keyboard and screen reader suite.
HARKLINE_TEST_PACKAGES=(xvfb xauth dbus zbar-tools desktop-file-utils appstream qt6-wayland
  at-spi2-core python3-pyatspi xdotool)
# For scripts/package: CPack's Debian generator runs dpkg-shlibdeps (dpkg-dev) and file.
HARKLINE_PACKAGE_PACKAGES=(dpkg-dev file)
# For the screenshots of scripts/demo without a display.
HARKLINE_DEMO_PACKAGES=(xvfb xauth dbus xdotool imagemagick)
# For scripts/fuzz: clang and its libFuzzer and sanitizer runtimes.
HARKLINE_FUZZ_PACKAGES=(clang-14 libclang-rt-14-dev)

harkline_ensure_packages() {
  local missing=() p
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  if ! command -v apt-get >/dev/null 2>&1; then
    echo "error: these packages are missing and this system has no apt-get: ${missing[*]}" >&2
    echo "Install their equivalents with your package manager, then run this again." >&2
    return 1
  fi
  local sudo=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null 2>&1; then
      echo "error: missing packages (${missing[*]}); run as root or install sudo." >&2
      return 1
    fi
    sudo=(sudo)
  fi
  echo "Installing: ${missing[*]}"
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq &&
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
      "${missing[@]}" >/dev/null
}

# harkline_build DIR [cmake options...]
harkline_build() {
  local dir=$1
  shift
  cmake -S "$HARKLINE_ROOT" -B "$dir" -G Ninja "$@" >/dev/null &&
    cmake --build "$dir" --parallel "$(nproc)"
}
