# Shared by the scripts beside it: what a build needs, and how to get it. Sourced, never run.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

# One build need a line: the Debian package, and a command or a file by which it is known to be there.
build_needs="
g++             g++
cmake           cmake
ninja-build     ninja
bison           bison
python3         python3
pkg-config      pkg-config
tzdata          /usr/share/zoneinfo/zone.tab
libgtest-dev    /usr/include/gtest/gtest.h
libbenchmark-dev /usr/include/benchmark/benchmark.h
libsqlite3-dev  /usr/include/sqlite3.h
"

is_there() {
  case $1 in
    /*) [ -e "$1" ] ;;
    *) command -v "$1" >/dev/null ;;
  esac
}

as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "cannot run as root (not root, and no sudo): $*" >&2
    return 1
  fi
}

# install_missing NEEDS: installs the Debian packages of those lines whose command or file is not there.
install_missing() {
  local package probe
  local -a missing=()
  while read -r package probe; do
    [ -z "$package" ] || is_there "$probe" || missing+=("$package")
  done <<<"$1"
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "installing: ${missing[*]}"
  as_root apt-get update -q
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# configure PRESET [ARGUMENT...]: through ccache where there is one.
configure() {
  local -a launchers=()
  if command -v ccache >/dev/null; then
    launchers=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  fi
  cmake --preset "$1" "${launchers[@]}" "${@:2}"
}
