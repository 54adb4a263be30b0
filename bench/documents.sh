#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
#
# bench/documents.sh [ROUNDS]: what printing a PDF costs against the interpreter alone and the chain
# alone, in seconds of wall clock, and the memory that it takes; and what a page of raster costs that
# comes through a pipe and leaves through one. In each round all take their turn; the least of the
# rounds counts.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
rounds=${1:-5}
corvane=build/bin/corvane
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

make_pdf() {  # PAGES
  { printf '%%!PS\n/Pages %d def\n' "$1"; cat tests/app/document/twenty_pages.ps; } >"$work/source.ps"
  gs -q -sDEVICE=pdfwrite -o "$work/$1.pdf" "$work/source.ps"
}

interpreter_alone() {
  gs -q -dSAFER -sDEVICE=bitrgbtags -r600 -o "$1" "$work/$pages.pdf"
}
chain_alone() { $corvane print "$work/pages.pam" -q -m 12 --paper A4 --scale 100 -o "$work/out/"; }
command() { $corvane print "$work/$pages.pdf" -q -m 12 -o "$work/out/"; }

least() {  # NAME: keeps the least time of a run of the rest
  local name=$1 start=$EPOCHREALTIME
  shift
  "$@"
  local took=$((${EPOCHREALTIME/./} - ${start/./}))
  [ "${best[$name]:-$took}" -lt "$took" ] || best[$name]=$took
}

pages=10
make_pdf $pages
interpreter_alone "$work/pages.pam"
declare -A best
for ((round = 0; round < rounds; ++round)); do
  least interpreter interpreter_alone /dev/null
  least chain chain_alone
  least command command
done
rm "$work/pages.pam"
slower=$((best[interpreter] > best[chain] ? best[interpreter] : best[chain]))
awk -v n=$pages -v i="${best[interpreter]}" -v c="${best[chain]}" -v a="${best[command]}" -v s=$slower 'BEGIN {
  printf "%d pages: interpreter alone %.2f s, chain alone %.2f s, command %.2f s: %.2f x the slower\n",
         n, i / 1e6, c / 1e6, a / 1e6, a / s }'

gs -q -sDEVICE=pwgraster -r600 -dFirstPage=2 -dLastPage=2 -o "$work/page.pwg" "$work/$pages.pdf" 2>/dev/null
gs -q -sDEVICE=ppmraw -r600 -dFirstPage=2 -dLastPage=2 -o "$work/page.ppm" "$work/$pages.pdf"
raw_of() { $corvane print "$1" -q -m 12 --paper A4 --scale 100 --format raw -o - >/dev/null; }
raster_through() { raw_of - <"$work/pipe"; }
mkfifo "$work/pipe"
for ((round = 0; round < 2 * rounds; ++round)); do
  least page raw_of "$work/page.ppm"
  cat "$work/page.pwg" >"$work/pipe" &
  least raster raster_through
done
awk -v c="${best[page]}" -v a="${best[raster]}" 'BEGIN {
  printf "a page of PWG raster through pipes: %.2f s, from a file of pixels: %.2f s, %.2f x\n",
         a / 1e6, c / 1e6, a / c }'

for pages in ${MEMORY_PAGES:-10 100 1000}; do
  make_pdf $pages
  rm -rf "$work/out"
  $corvane print "$work/$pages.pdf" -m 12 --resolution 150 --format raw -o "$work/out/" 2>/dev/null | tail -1
done
