// SPDX-License-Identifier: MIT
//
// The sheet that the header of a raster page names.
#pragma once

#include <cmath>
#include <cstdint>

#include "app/support/units.h"

namespace corvane {

// A side of the sheet in points. `exact` is 0 where the header has whole points alone: pixels that
// fill a side of so many, one more or one less, tell its length to a fraction of a point. `bare` is
// what the page's box leaves of the side, in points. `dpi` is 0 where the header does not say it.
inline double RasterSheetSide(double exact, std::uint32_t whole, double bare, std::uint32_t pixels,
                              std::uint32_t dpi) {
  if (exact > 0) return exact;
  if (dpi == 0) return whole;
  const double filled = pixels * kPointsPerInch / dpi;
  return bare < 1 && std::abs(filled - whole) < 1 + kPointsPerInch / dpi ? filled : whole;
}

}  // namespace corvane
