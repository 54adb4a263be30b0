// SPDX-License-Identifier: MIT
//
// Ink amounts for a colour that the inks can print: black generation, then the dyes, then each dye
// over its light and dark inks.
#pragma once

#include <array>

#include "app/ink_model.h"

namespace corvane {

struct SeparationRules {
  bool nineInks = false;
  bool blackInk = true;
  double inkLimit = 3;         // total ink, 1 = one ink at full strength
  double blackStrength = 0.5;  // 0: black in the deepest shadows only, 1: wherever there is grey
};

struct Separation {
  InkAmounts amounts;  // inside the limits, whatever was asked for
  double excess;       // how far outside them the colour lies; 0 or less when it was met
};

class Separator {
 public:
  Separator(const PrintModel& model, const SeparationRules& rules);

  // The amounts for a colour relative to the paper, in bands above 0.
  Separation Separate(const Triple& bands) const;

  // The amounts for dyes (1 = the solid of the dark ink), inside the limits. Without black ink the
  // grey that it would give is made of the three others.
  InkAmounts AmountsOf(const std::array<double, kDyeCount>& dyes) const;

  // The darkest neutral, as the value that its three bands have.
  double BlackPoint() const { return blackPoint_; }

  // The amount of a dye alone, 0 to 1, that has this density where the dye absorbs most.
  double DyeAmount(Dye dye, double density) const;
  double SolidDensity(Dye dye) const { return mainDensity_[static_cast<int>(dye)].back(); }

  // Ink amounts brought inside the ink limit: black stays, the others give way in proportion.
  InkAmounts WithinLimit(InkAmounts amounts) const;

 private:
  static constexpr int kSteps = 512;
  static constexpr int kLightUses = 4;
  // Density per band of a dye at amounts 0, 1/kSteps, ..., 1, split over its inks.
  using DyeCurve = std::array<Triple, kSteps + 1>;

  // How much of its part a light ink takes, 0 to 1: where the ink limit presses, the dark ink,
  // which needs fewer drops, takes over early.
  struct Dyes {
    Triple amounts;
    double lightUse;
  };

  void SplitDye(Dye dye, double amount, double lightUse, InkAmounts& amounts) const;
  InkAmounts Split(const Triple& dyes, double black, double lightUse) const;
  double LightUse(const Triple& dyes, double black) const;
  Triple DyeDensity(int dye, double amount, double lightUse, Triple* slope) const;
  Triple SolveDyes(const Triple& density, double lightUse, Triple start) const;
  Dyes SolveWithinLimit(const Triple& density, double black, const Triple& start) const;
  double Excess(const Dyes& dyes, double black) const;
  void FindBlackPoint();

  const PrintModel& model_;
  SeparationRules rules_;
  std::array<std::array<DyeCurve, kLightUses + 1>, 3> dyeCurves_;      // by dye and light use
  std::array<std::array<double, kSteps + 1>, kDyeCount> mainDensity_;  // where a dye absorbs most
  double blackPoint_ = 0;
  double blackPointDensity_ = 0;
  double blackPointGrey_ = 1;  // amount of the grey dyes that alone would give the black point
};

}  // namespace corvane
