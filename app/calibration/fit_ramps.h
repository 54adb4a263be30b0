// SPDX-License-Identifier: MIT
//
// The first step of a fit: the physical model alone, to the ramps of single inks.
#pragma once

#include <array>
#include <optional>
#include <span>

#include "app/calibration/fit.h"

namespace corvane {

// How an ink's drops darken the paper.
struct RampLayers {
  double layers = 1;  // at full strength, mean
  Triple density{};   // of one layer, per band
};

struct RampModel {
  double yuleNielsen = 8;
  double clustering = 0.5;
  std::array<RampLayers, kInkCount> inks{};

  Triple Density(Ink ink, double amount) const;
};

// Fits the model to the ramps (Levenberg-Marquardt); `patches` are against the paper.
RampModel FitRamps(std::span<const MeasuredPatch> patches, std::span<const Ink> inks,
                   const RampModel& start);

}  // namespace corvane
