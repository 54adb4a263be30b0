// SPDX-License-Identifier: MIT
//
// Profiles for images that describe their colours by figures instead of an ICC profile.
#pragma once

#include <cstdint>
#include <vector>

namespace corvane {

// CIE xy of white and the primaries; as they stand, those of sRGB.
struct Chromaticities {
  double whiteX = 0.3127, whiteY = 0.3290;
  double redX = 0.64, redY = 0.33;
  double greenX = 0.30, greenY = 0.60;
  double blueX = 0.15, blueY = 0.06;
};

// An ICC profile whose light is sample ^ gamma; empty when the figures describe no colour space.
std::vector<std::uint8_t> MakeRgbProfile(const Chromaticities& points, double gamma);
std::vector<std::uint8_t> MakeGreyProfile(double gamma);
// The same with the curve of sRGB.
std::vector<std::uint8_t> MakeSrgbCurveProfile(const Chromaticities& points);

}  // namespace corvane
