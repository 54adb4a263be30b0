// SPDX-License-Identifier: MIT
//
// What each print mode lays down at full strength.
#include "app/inks/ink_model.h"

#include "halftone/routine_table.h"

namespace corvane {

// The alternate modes of a page change the grid that drops are decided on and the coverage together
// and leave the drops per area as they are, so the first stands for all.
double DropsPerSquareInch(const PrintMode& mode, Ink ink) {
  constexpr int kAlternateMode = 0;
  const HalftoneRoutine* const routine = FindHalftoneRoutine(mode.descriptor, kAlternateMode);
  if (routine == nullptr) return 0.0;
  const AlternateMode& page = mode.Alternate(kAlternateMode);
  return static_cast<double>(page.halftoneDpi) * mode.verticalDpi / page.placing.rows *
         CoverageOf(*routine, ink);
}

double DropPicolitres(const InkData& inks, const PrintMode& mode, Ink ink) {
  const double drops = DropsPerSquareInch(mode, ink);
  return drops > 0.0 ? inks.fullLoad * 1000.0 / drops : 0.0;
}

}  // namespace corvane
