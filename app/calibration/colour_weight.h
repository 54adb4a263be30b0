// SPDX-License-Identifier: MIT
#pragma once

#include <Eigen/Core>
#include <cmath>

#include "app/inks/color_math.h"

namespace corvane {

inline Eigen::Vector3d ToVector(const Triple& triple) { return {triple[0], triple[1], triple[2]}; }

// Turns a small Lab difference at `lab` into one whose length is what is seen of it (CIE94).
inline Eigen::Matrix3d SeenBy(const Triple& lab) {
  const double chroma = std::hypot(lab[1], lab[2]);
  const double cosine = chroma > 1e-9 ? lab[1] / chroma : 1.0;
  const double sine = chroma > 1e-9 ? lab[2] / chroma : 0.0;
  const double perChroma = 1.0 / (1.0 + 0.045 * chroma), perHue = 1.0 / (1.0 + 0.015 * chroma);
  Eigen::Matrix3d seen;
  seen << 1.0, 0.0, 0.0,                          //
      0.0, cosine * perChroma, sine * perChroma,  //
      0.0, -sine * perHue, cosine * perHue;
  return seen;
}

// From the second colour to the first.
inline Eigen::Vector3d SeenDifference(const Triple& lab, const Triple& from) {
  return SeenBy(from) * (ToVector(lab) - ToVector(from));
}

}  // namespace corvane
