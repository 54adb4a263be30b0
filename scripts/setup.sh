# SPDX-License-Identifier: MIT
#
# Sourced by ./run and ./test: installs what is missing and builds. Everything it says goes to the
# standard error stream, so that the standard output is the program's own.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc 2>/dev/null || echo 2)

fail() {
  echo "$(basename "$0"): $*" >&2
  exit 1
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null 2>&1; then
    sudo "$@"
  else
    fail "needs root or sudo to install packages: $*"
  fi
}

# packages_of FILE...: the package names of the lists, comments left out.
packages_of() {
  sed -e 's/#.*//' -e '/^[[:space:]]*$/d' "$@"
}

is_installed() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# install_missing FILE...: installs the packages of the lists that are not there.
install_missing() {
  local missing=() package
  command -v dpkg-query >/dev/null 2>&1 || return 0
  for package in $(packages_of "$@"); do
    is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "Installing ${missing[*]}" >&2
  export DEBIAN_FRONTEND=noninteractive
  as_root apt-get update -qq >&2 || fail "cannot read the package lists"
  as_root apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null ||
    fail "cannot install ${missing[*]}"
}

# quietly WHAT COMMAND...: shows the command's output only when it fails.
quietly() {
  local what=$1 log
  shift
  log=$(mktemp)
  if (cd "$root" && "$@") >"$log" 2>&1; then
    rm -f "$log"
  else
    cat "$log" >&2
    rm -f "$log"
    fail "$what"
  fi
}

# configure PRESET [OPTION...]: configures unless the build folder already has these options.
configure() {
  local preset=$1 option cache
  shift
  cache=$root/build-$preset/CMakeCache.txt
  [ "$preset" = default ] && cache=$root/build/CMakeCache.txt
  if [ -f "$cache" ]; then
    for option in "$@"; do
      grep -q "^${option%%=*}:[A-Z]*=${option#*=}\$" <(sed 's/^/-D/' "$cache") || { cache=; break; }
    done
    [ -z "$cache" ] || return 0
  fi
  quietly "cannot configure the build" cmake --preset "$preset" "$@"
}

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  quietly "the build failed" cmake --build --preset "$preset" -j "$jobs" ${1:+--target "$@"}
}
