// SPDX-License-Identifier: MIT
#include "app/inks/color_math.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

// Pairs of the formula's published test data, chosen for its branches: hue differences across 0,
// opposite hues, a neutral partner, the blue rotation.
TEST(DeltaE2000, AgreesWithThePublishedPairs) {
  const struct {
    Triple first, second;
    double difference;
  } pairs[] = {
      {{50, 2.6772, -79.7751}, {50, 0, -82.7485}, 2.0425},
      {{50, 0, 0}, {50, -1, 2}, 2.3669},
      {{50, 2.49, -0.001}, {50, -2.49, 0.0009}, 7.1792},
      {{50, 2.49, -0.001}, {50, -2.49, 0.0011}, 7.2195},
      {{50, 2.5, 0}, {61, -5, 29}, 22.8977},
      {{60.2574, -34.0099, 36.2677}, {60.4626, -34.1751, 39.4387}, 1.2644},
      {{22.7233, 20.0904, -46.6940}, {23.0331, 14.9730, -42.5619}, 2.0373},
      {{2.0776, 0.0795, -1.1350}, {0.9033, -0.0636, -0.5514}, 0.9082},
  };
  for (const auto& pair : pairs) {
    EXPECT_NEAR(DeltaE2000(pair.first, pair.second), pair.difference, 1e-4);
    EXPECT_NEAR(DeltaE2000(pair.second, pair.first), pair.difference, 1e-4);
  }
}

TEST(ColorSpaces, AgreeWithKnownColoursAndTurnBack) {
  const struct {
    Triple srgb, lab, oklab;
  } colours[] = {
      {{1, 1, 1}, {100, 0, 0}, {1, 0, 0}},
      {{1, 0, 0}, {54.29, 80.80, 69.89}, {0.6280, 0.2249, 0.1258}},
      {{0, 0, 1}, {29.57, 68.30, -112.03}, {0.4520, -0.0325, -0.3115}},
      {{0.5, 0.5, 0.5}, {53.39, 0, 0}, {0.5982, 0, 0}},
  };
  for (const auto& colour : colours) {
    const Triple linear = LinearFromSrgb(colour.srgb);
    const Triple bands = BandsFromLinearSrgb(linear);
    const Triple lab = LabFromBands(bands);
    const Triple oklab = OklabFromLinearSrgb(linear);
    const Triple back[] = {SrgbFromLinear(linear),
                           SrgbFromLinear(LinearSrgbFromBands(BandsFromLab(lab))),
                           SrgbFromLinear(LinearSrgbFromOklab(oklab))};
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(lab[i], colour.lab[i], 0.05);
      EXPECT_NEAR(oklab[i], colour.oklab[i], 0.0005);
      for (const Triple& srgb : back) EXPECT_NEAR(srgb[i], colour.srgb[i], 1e-6);
    }
  }
}

}  // namespace
}  // namespace corvane
