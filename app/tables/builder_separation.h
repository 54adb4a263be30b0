// SPDX-License-Identifier: MIT
//
// Dyes and the inks that carry them: each dye split over its light and dark inks.
#pragma once

#include <array>

#include "app/inks/ink_model.h"

namespace corvane {

using DyeAmounts = std::array<double, kDyeCount>;  // 1 = the solid of the dark ink

struct SeparationRules {
  bool nineInks = false;
  bool blackInk = true;
  double inkLimit = 3;  // total ink, 1 = one ink at full strength
  double lightInkUse =
      1;  // how far light inks carry their dyes: 0 not at all, 1 as far as they can
  double lightInkRoom = 1.9;  // light inks give way to dark ones, which need fewer drops, where the
                              // total would pass this
  double blackFrom = 40;      // L* of the grey at which black ink begins
  double blackShare = 1;      // of the grey that black ink takes over in the deepest shadows
  bool blackGreys = false;    // greys are of black ink alone
};

class Separator {
 public:
  Separator(const PrintModel& model, const SeparationRules& rules);

  // The amounts for dyes, inside the limits. Without black ink the grey that it would give is made
  // of the three others.
  InkAmounts AmountsOf(const DyeAmounts& dyes) const;

  // The most of a dye: the solid of its dark ink and that of its light one.
  double MostOf(Dye dye) const;

  // The least ink that carries these dyes, 1 = one ink at full strength, and its slopes.
  double LeastInk(const DyeAmounts& dyes, DyeAmounts* slopes = nullptr) const;

  // The amount of a dye alone, 0 to 1, that has this density where the dye absorbs most.
  double DyeAmount(Dye dye, double density) const;
  double SolidDensity(Dye dye) const { return mainDensity_[static_cast<int>(dye)].back(); }

  // The black ink that is wanted in a colour with this Lab, were the inks free to give it: none
  // before the grey of `blackFrom`, all at the lightness `black` of the darkest neutral.
  double WantedBlack(const Triple& lab, double black) const;

  // Ink amounts brought inside each ink's limit and that of all together, to which black stays and
  // the others give way in proportion.
  InkAmounts WithinLimit(InkAmounts amounts) const;

  const SeparationRules& Rules() const { return rules_; }

 private:
  static constexpr int kSteps = 512;

  void SplitDye(Dye dye, double amount, double lightUse, InkAmounts& amounts) const;
  InkAmounts Split(const DyeAmounts& dyes, double lightUse) const;
  double LightUse(const DyeAmounts& dyes) const;

  const PrintModel& model_;
  SeparationRules rules_;
  std::array<std::array<double, kSteps + 1>, kDyeCount> mainDensity_;  // where a dye absorbs most
};

}  // namespace corvane
