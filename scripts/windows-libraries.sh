#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
#
# scripts/windows-libraries.sh FOLDER: the libraries of the program for 64-bit Windows, in FOLDER/include and
# FOLDER/lib, their licences in FOLDER/licences. Debian has them for itself alone: its sources are fetched by
# apt, which checks their signatures, with lists of its own in FOLDER, so that nothing of this system's is
# touched. What is there is not built again.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
mkdir -p "$1" && folder=$(cd "$1" && pwd)

sources=(libdeflate libjpeg-turbo libpng1.6 libwebp lcms2 nettle tiff zimg)
wanted=$(cat "$root/cmake/windows-libraries/CMakeLists.txt" "${BASH_SOURCE[0]}" | cksum)
[ "$(cat "$folder/built" 2>/dev/null)" != "$wanted" ] || exit 0

# Where this system has its packages from, there the sources are.
distribution=$(. /etc/os-release && echo "$VERSION_CODENAME")
mirror=$(apt-cache policy | sed -n "s|^ *[0-9]* \(https\?://[^ ]*\) $distribution/main .*|\1|p" | head -1)
[ -n "$mirror" ] || {
  echo "apt has no packages of Debian $distribution here, so no sources of them either" >&2
  exit 1
}
rm -rf "$folder/build" "$folder/sources"
mkdir -p "$folder/sources" "$folder/lists/partial"
echo "deb-src $mirror $distribution main" >"$folder/sources.list"
apt=(apt-get -qq -o "Dir::Etc::SourceList=$folder/sources.list" -o Dir::Etc::SourceParts=/nonexistent
  -o "Dir::State::Lists=$folder/lists" -o Dir::Cache::srcpkgcache= -o Dir::Cache::pkgcache=
  -o APT::Sandbox::User=root -o Debug::NoLocking=1)
"${apt[@]}" update
(cd "$folder/sources" && "${apt[@]}" source "${sources[@]}")

cmake -S "$root/cmake/windows-libraries" -B "$folder/build" -G Ninja --fresh \
  --toolchain "$root/cmake/toolchains/mingw-x86_64-program.cmake" -DCORVANE_SOURCES="$folder/sources" \
  -DCMAKE_INSTALL_PREFIX="$folder"
cmake --build "$folder/build" --target install
# What they ask of those who hand them on.
mkdir -p "$folder/licences"
for name in "${sources[@]}"; do cp "$folder/sources/$name"-[0-9]*/debian/copyright "$folder/licences/$name"; done
rm -rf "$folder/build" "$folder/sources"
echo "$wanted" >"$folder/built"
