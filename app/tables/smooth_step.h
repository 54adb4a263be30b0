// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>

namespace corvane {

// From 0 at 0 to 1 at 1, level at both ends and beyond them.
inline double SmoothStep(double t) {
  t = std::clamp(t, 0.0, 1.0);
  return t * t * (3.0 - 2.0 * t);
}

}  // namespace corvane
