#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
#
# tests/windows_print.sh PROGRAM WINDOWS_PROGRAM: commands of the program here and under Wine. The files that
# they leave, what they say and how they end have to be the same, byte for byte. WINEPREFIX names Wine's
# folder.
set -euo pipefail
export LC_ALL=C.UTF-8

program=$(realpath "$1")
windows_program=$(realpath "$2")
root=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
. "$root/tests/wine.sh"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

fail() {
  echo "$*" >&2
  exit 1
}

# run_in SIDE INPUT PROGRAM... : in a folder of that name with all that lies beside it.
run_in() {
  local side=$1 input=$2 status=0
  shift 2
  rm -rf "$side"
  mkdir "$side"
  cp -r ./*.* corpus "$side"
  (cd "$side" && "$@" <"$input" >output 2>errors) || status=$?
  echo "exit status $status" >>"$side/errors"
}

# alike ARGUMENT...: the command here and there, with $input at its standard input.
input=/dev/null
alike() {
  run_in here "$input" "$program" "$@"
  run_in there "$input" under_wine "$windows_program" "$@"
  # Names that the program puts together have the separator of the system.
  sed -i 's|\r$||; s|\\|/|g' there/errors
  diff -rq here there || fail "corvane $*: Windows differs: $(diff here/errors there/errors)"
  echo "alike: ${*//--quiet*table.cvt/...} ($(tail -n 1 there/errors))"
}

# refused MESSAGE ARGUMENT...: what only Windows cannot do, in one line.
refused() {
  local message=$1
  shift
  run_in there /dev/null under_wine "$windows_program" "$@"
  [ "$(tr -d '\r' <there/errors)" = "corvane: $message"$'\nexit status 1' ] || fail "corvane $*: $(cat there/errors)"
  echo "refused: $*"
}

cp "$root/examples/sample.jpg" sample.jpg
cp "$(dirname "$windows_program")/default.cvt" table.cvt
mkdir corpus
cp -r "$root/fuzz/corpus/"{png,jpeg,tiff,pnm,tag_mask} corpus
# A picture of noise, and one with a name that no single code page has.
{
  printf 'P6\n64 48\n255\n'
  head -c 9216 sample.jpg
} >noise.ppm
cp noise.ppm 'Ünïcode 紙 🖨.ppm'
cp corpus/png/rgb8 profile.png
echo 'not a picture' >broken.png
echo 'what was there before' >page.tif
page=(--paper 31x23mm --fit --quiet --color-table table.cvt)
"$program" print sample.jpg -o planes.tif --contone --preview picture.png "${page[@]}" --mode 54
"$program" report planes.tif -o report.html --against sample.jpg >report.txt
sed -n 's|.*"\(UklGR[^"]*\)".*|\1|p' report.html | base64 -d >picture.webp
rm report.*

# Wine makes its folder first, and says so.
under_wine "$windows_program" --version >version.txt 2>&1 || fail "$(cat version.txt)"
rm version.txt

for mode in 8 12 54 83 109; do
  alike print sample.jpg -o page.tif "${page[@]}" --mode "$mode"
  alike print picture.png planes.tif noise.ppm -o out/ --jobs 2 --format raw "${page[@]}" --mode "$mode"
done
# Every kind of picture, and what is damaged.
for kind in png jpeg tiff pnm; do
  alike print corpus/$kind/* -o out/ "${page[@]}"
done
alike print picture.webp -o page.tif "${page[@]}"
alike print sample.jpg -o page.tif "${page[@]}" --preview view.png --ink-map ink.png
alike print sample.jpg -o page.tif "${page[@]}" --nup 4 --rotate 90 --record page.jsonl
alike print 'Ünïcode 紙 🖨.ppm' -o 'Ä é 墨 🖨/' "${page[@]}" --mode 8
alike print 'Ünïcode 紙 🖨.ppm' profile.png -o 'Ä é 墨.raw' --format raw "${page[@]}" --mode 8
for input in "$folder"/{sample.jpg,noise.ppm,profile.png}; do
  alike print - -o - "${page[@]}"
  alike print - -o - --format raw "${page[@]}"
done
input=/dev/null

# What cannot be read or written; nothing that was there is lost.
alike print missing.png -o page.tif "${page[@]}"
alike print broken.png -o page.tif "${page[@]}"
alike print sample.jpg -o corpus "${page[@]}"
alike print sample.jpg -o page.tif --no-clobber "${page[@]}"
alike print sample.jpg -o sample.jpg "${page[@]}"
alike print - -o page.tif "${page[@]}"

alike preview planes.tif -o view.png
# The last digits of a report's numbers are the C library's, and not alike.
alike report planes.tif --text --against sample.jpg
alike compare planes.tif page.tif
alike swaths --mode 54 --paper A4 --png plan.png
alike modes
alike elements
alike table show table.cvt
alike table verify table.cvt
alike chart --mode 12 --media glossy -o chart/

# What there is for other systems alone.
printf '%%PDF-1.4\n' >document.pdf
printf 'RaS2' >stream.pwg
printf '\xff\x0a' >picture.jxl
documents='documents and drawings are not printed on this system; pictures are'
refused "document.pdf: $documents" print document.pdf -o page.tif
refused "stream.pwg: raster streams are not read on this system" print stream.pwg -o page.tif
refused "picture.jxl: JPEG XL pictures are not read on this system" print picture.jxl -o page.tif
refused "job: does not run on this system; print prints several pages" job make pages.job noise.ppm
refused "bench: does not run on this system" bench

# A run that is killed leaves the old file, and its temporary ones to the next run.
temporary_files() {
  find . "$WINEPREFIX/drive_c" -name '.corvane*'
}
[ -z "$(temporary_files)" ] || fail "temporary files are left: $(temporary_files)"
cp page.tif old.tif
"$wine" "$windows_program" print - -o page.tif --paper A3 --mode 54 --quiet <sample.jpg &
while kill -0 $! && [ "$(temporary_files | wc -l)" -lt 2 ]; do sleep 0.1; done
kill -9 $! || fail "the run ended before it was killed"
{ wait $! || true; } 2>/dev/null
cmp page.tif old.tif
under_wine "$windows_program" print - -o page.tif "${page[@]}" <sample.jpg
[ -z "$(temporary_files)" ] || fail "temporary files outlast the next run: $(temporary_files)"
echo "killed: the old file stays, and the next run clears up"
