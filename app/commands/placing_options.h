// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "app/page/placing.h"

namespace corvane {

// How an image is to lie on its sheet, as it was typed; texts are checked by PlacingFrom.
struct PlacingOptions {
  double scalePercent = 0;  // 0: fit
  std::string margins;      // empty: none; "head": those that the printhead needs
  bool borderless = false;  // no margins whatever they are
  std::string rotation = "0";
  std::string position = "centre";
};

// Throws UsageFailure for what no image can have.
ImagePlacing PlacingFrom(const PlacingOptions& options);

}  // namespace corvane
