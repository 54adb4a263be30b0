#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
#
# Makes sample.jpg, an A4 page at 300 dpi with a photographic picture, gradients, flat colours,
# fine lines and fine text. Needs g++, ImageMagick and the DejaVu fonts.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

g++ -O3 -ffast-math -std=c++20 landscape.cpp -o "$work/landscape"
"$work/landscape" 2120 1320 > "$work/picture.ppm"

text="The quick brown fox jumps over the lazy dog 0123456789"
serif=DejaVu-Serif
sans=DejaVu-Sans

# A row of gradients from a colour to white, each 2120 pixels wide.
gradients=()
for colour in black cyan magenta yellow red green1 blue; do
  convert -size 84x2120 "gradient:$colour-white" -rotate -90 "$work/$colour.ppm"
  gradients+=("$work/$colour.ppm")
done
convert "${gradients[@]}" -append "$work/gradients.ppm"

# Flat colours: skin, foliage, sky and the like, then greys.
patches=(xc:'#73523f' xc:'#c29682' xc:'#627a9d' xc:'#576c43' xc:'#8580b1' xc:'#67bdaa' xc:'#d67e2c'
         xc:'#505ba6' xc:'#c15a63' xc:'#5e3c6c' xc:'#9dbc40' xc:'#e0a32e')
convert -size 176x150 "${patches[@]}" +append "$work/colours.ppm"
convert -size 176x80 xc:'#f3f3f2' xc:'#e0e0e0' xc:'#c8c8c8' xc:'#b0b0b0' xc:'#989898' xc:'#808080' \
  xc:'#686868' xc:'#505050' xc:'#404040' xc:'#303030' xc:'#181818' xc:black +append "$work/greys.ppm"

# A star whose 72 rays meet in the middle, and lines of 1, 2 and 3 pixels.
star=""
for ((i = 0; i < 72; ++i)); do
  star+="push graphic-context translate 210,210 rotate $((i * 5)) "
  star+="path 'M 0,0 L 4.4,-200 L -4.4,-200 Z' pop graphic-context "
done
convert -size 420x420 xc:white -fill black -draw "$star" "$work/star.png"
lines=""
for ((i = 0; i < 21; ++i)); do
  x=$((i * 9))
  lines+="rectangle $x,0 $x,130 rectangle $x,145 $((x + 1)),275 rectangle $x,290 $((x + 2)),420 "
done
convert -size 190x420 xc:white -fill black +antialias -draw "$lines" "$work/lines.png"

convert -size 2480x3508 xc:white \
  -font "$sans" -fill '#1a2a44' -pointsize 110 -annotate +180+270 'Corvane' \
  -font "$serif" -fill '#5a6472' -pointsize 40 -annotate +184+345 'sample page' \
  "$work/picture.ppm" -geometry +180+420 -composite \
  "$work/gradients.ppm" -geometry +180+1800 -composite \
  "$work/colours.ppm" -geometry +180+2448 -composite \
  "$work/greys.ppm" -geometry +180+2620 -composite \
  "$work/star.png" -geometry +1880+2760 -composite \
  "$work/lines.png" -geometry +1650+2760 -composite \
  -fill black -font "$serif" \
  -pointsize 50 -annotate +180+2820 "The quick brown fox jumps over the lazy" \
  -pointsize 42 -annotate +180+2890 "The quick brown fox jumps over the lazy dog" \
  -pointsize 33 -annotate +180+2950 "$text" \
  -pointsize 25 -annotate +180+3000 "$text" \
  -pointsize 17 -annotate +180+3040 "$text $text" \
  -pointsize 12 -annotate +180+3070 "$text $text" \
  -fill '#c02020' -font "$sans" -pointsize 25 -annotate +180+3115 "$text" \
  -fill '#2040b0' -pointsize 17 -annotate +180+3150 "$text $text" \
  -fill black -draw 'rectangle 180,3180 1580,3280' \
  -fill white -pointsize 25 -annotate +200+3222 "$text" \
  -pointsize 17 -annotate +200+3258 "$text $text" \
  -depth 8 -density 300 -units PixelsPerInch -strip -sampling-factor 4:4:4 -quality 86 \
  sample.jpg
