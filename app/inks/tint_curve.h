// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <vector>

#include "app/inks/color_math.h"

namespace corvane {

// The density of an ink's even tints, per band: a natural cubic spline through nothing at 0 and
// through measured tints; straight lines beyond the last. It is linear in the densities, which lets
// a fit find them.
class TintCurve {
 public:
  // `amounts` rise from above 0 and have a density each.
  TintCurve(std::span<const double> amounts, std::span<const Triple> densities);

  Triple At(double amount) const;

 private:
  std::vector<double> amounts_;  // 0 first
  std::vector<Triple> densities_;
  std::vector<Triple> bends_;  // second derivatives
};

}  // namespace corvane
