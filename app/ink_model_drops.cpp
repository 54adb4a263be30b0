// SPDX-License-Identifier: MIT
//
// What each print mode lays down at full strength.
#include "app/ink_model.h"

namespace corvane {
namespace {

// The grid that drops are decided on and the coverage that a contone value of 255 gives, in drops a
// grid point. The alternate modes of a page change the grid and the coverage together and leave the
// drops per area as they are, so each mode has one row.
struct ModeCoverage {
  std::int32_t descriptor;
  int horizontalDpi, verticalDpi;
  double dark, light, black;  // C M Y; c m y; K cd md
};

// In the modes that fold light inks into dark ones a drop stands for three quarters of the dark
// ink's amount and a quarter of the light one's.
constexpr double kFolded = 0.75;

constexpr ModeCoverage kCoverages[] = {
    {K_300x600_1Pass, 300, 600, 0, 0, 1},
    {CMY_300x600_1Pass, 300, 600, kFolded, 0, 0},
    {CMYK_300x600_1Pass, 300, 600, kFolded, 0, 1},
    {K_600x600_1Pass, 600, 600, 0, 0, 1},
    {K_600x600_2Pass, 600, 600, 0, 0, 1},
    {CcMmYyK_600x600_2Pass, 600, 600, 0.5, 0.5, 1},
    {CcMmYyK_600x600_2Pass_Alternate, 600, 600, 0.5, 0.5, 1},
    {CCccMMmmYYyy_600x600_4Pass, 600, 600, 1, 1, 0},
    {CCccMMmmYYyyK_600x600_4Pass, 600, 600, 1, 1, 1},
    {K_1200x600_4Pass, 1200, 600, 0, 0, 0.5},
    {K_1200x1200_4Pass, 1200, 1200, 0, 0, 0.25},
    {CcMmYy_1200x1200_8Pass, 1200, 1200, 0.25, 0.25, 0},
    {CcMmYyK_1200x1200_4Pass, 1200, 1200, 0.25, 0.25, 0.5},
    {CcMmYyK_1200x1200_8Pass, 1200, 1200, 0.25, 0.25, 0.25},
    {K_4800x1200_16Pass, 2400, 1200, 0, 0, 0.125},
    {CcMmYy_4800x1200_16Pass, 1200, 1200, 0.25, 0.5, 0},
    {CcMmYyK_4800x1200_16Pass, 1200, 1200, 0.25, 0.5, 0.25},
    {CMYcmK_300x600_1Pass, 300, 600, kFolded, 0, 1},
    {CCccMMmmYYyycmK_600x600_4Pass, 600, 600, 1, 1, 2},
    {CcMmYycmK_1200x1200_8Pass, 1200, 1200, 0.25, 0.25, 0.5},
    {CcMmYycmK_4800x1200_16Pass, 2400, 1200, 0.125, 0.25, 0.5},
    {CcMmYyccmmKK_600x600_2Pass, 600, 600, 0.5, 0.5, 2},
};

}  // namespace

double DropsPerSquareInch(const PrintMode& mode, Ink ink) {
  for (const ModeCoverage& row : kCoverages) {
    if (row.descriptor != mode.descriptor) continue;
    const bool dark = ink == Ink::C || ink == Ink::M || ink == Ink::Y;
    const bool light = ink == Ink::c || ink == Ink::m || ink == Ink::y;
    return static_cast<double>(row.horizontalDpi) * row.verticalDpi *
           (dark    ? row.dark
            : light ? row.light
                    : row.black);
  }
  return 0.0;
}

double DropPicolitres(const InkData& inks, const PrintMode& mode, Ink ink) {
  const double drops = DropsPerSquareInch(mode, ink);
  return drops > 0.0 ? inks.fullLoad * 1000.0 / drops : 0.0;
}

}  // namespace corvane
