// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "app/inks/color_math.h"

namespace corvane {

// Reflectances, 1 = all light, at even steps.
struct Spectrum {
  double firstNm = 0;
  double stepNm = 0;
  std::vector<double> reflectance;
};

// XYZ under D50 for the observer of 1931, white at Y = 1. Outside the spectrum its ends go on.
Triple XyzOfSpectrum(const Spectrum& spectrum);

}  // namespace corvane
