// SPDX-License-Identifier: MIT
//
// A font of strokes for drawings that are painted without a system's fonts.
#pragma once

#include <vector>

namespace corvane {

// Grid points: x to the right from 0, y down from 0 at the height of a capital to 6 on the base
// line, 8 below a descender.
struct FontStroke {
  int x0, y0, x1, y1;
};

struct FontGlyph {
  int width = 0;  // of the strokes: the largest x
  std::vector<FontStroke> strokes;
};

// The glyph of a printable ASCII character, of the question mark for any other.
const FontGlyph& GlyphOf(char character);

}  // namespace corvane
