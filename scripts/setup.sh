# SPDX-License-Identifier: MIT
#
# Sourced by ./run, ./test and ./dev: installs what is missing and builds. Everything it says goes to
# the standard error stream, so that the standard output is the program's own.

root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
jobs=$(nproc 2>/dev/null || echo 2)

fail() {
  echo "$(basename "$0"): $*" >&2
  exit 1
}

# packages_of FILE...: the package names of the lists, comments left out.
packages_of() {
  sed -e 's/#.*//' -e '/^[[:space:]]*$/d' "$@"
}

# missing_of PACKAGE...: those that are not installed.
missing_of() {
  comm -13 <(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null |
    sed -n 's/^installed //p' | sort -u) <(printf '%s\n' "$@" | sort -u)
}

# install_missing FILE...: installs the packages of the lists that are not there.
install_missing() {
  local missing=() sudo=()
  command -v dpkg-query >/dev/null 2>&1 || return 0
  mapfile -t missing < <(missing_of $(packages_of "$@"))
  [ ${#missing[@]} -gt 0 ] || return 0
  if [ "$(id -u)" -ne 0 ]; then
    sudo=(sudo)
    command -v sudo >/dev/null 2>&1 && { [ -t 0 ] || sudo -n true 2>/dev/null; } ||
      fail "packages are missing; an administrator installs them with" \
        "apt-get install --no-install-recommends ${missing[*]}"
  fi
  echo "Installing ${missing[*]}" >&2
  "${sudo[@]}" apt-get update -qq >&2 || fail "cannot read the package lists"
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null ||
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

# folder_of PRESET: where it is built.
folder_of() {
  [ "$1" = default ] && echo "$root/build" || echo "$root/build-$1"
}

# is_configured PRESET [OPTION...]: the build folder is complete, has these options, is newer than the
# presets, and was made for this folder and not for one that it was copied from.
is_configured() {
  local cache option
  cache=$(folder_of "$1")/CMakeCache.txt
  shift
  [ -f "${cache%/*}/build.ninja" ] && [ "$cache" -nt "$root/CMakePresets.json" ] || return 1
  grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache" || return 1
  for option in "$@"; do
    option=${option#-D}
    grep -q "^${option%%=*}:[A-Z]*=${option#*=}\$" "$cache" || return 1
  done
}

# configure PRESET [OPTION...]: configures unless that has been done.
configure() {
  local preset=$1 fresh=() cache
  is_configured "$@" && return 0
  shift
  cache=$(folder_of "$preset")/CMakeCache.txt
  if [ -f "$cache" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
    fresh=(--fresh)
  fi
  quietly "cannot configure the build" cmake --preset "$preset" "${fresh[@]}" "$@"
}

# build PRESET [TARGET...]: at a terminal one line tells how far it is.
build() {
  local preset=$1
  shift
  local command=(cmake --build --preset "$preset" -j "$jobs" ${1:+--target "$@"})
  if [ -t 2 ] && ! is_built "$preset" "$@"; then
    (cd "$root" && NINJA_STATUS='Building %f/%t ' "${command[@]}") >&2 || fail "the build failed"
  else
    quietly "the build failed" "${command[@]}"
  fi
}

# The default colour tables as the optimised build makes them, for builds whose program is slower or
# does not run here.
default_table=$root/build/share/corvane/default.cvt
make_default_table() {
  configure default -DCORVANE_BUILD_TESTS=ON
  build default corvane_default_table
}

# is_built PRESET [TARGET...]
is_built() {
  local preset=$1
  shift
  ninja -C "$(folder_of "$preset")" -n "$@" 2>/dev/null | grep -q 'no work to do'
}
