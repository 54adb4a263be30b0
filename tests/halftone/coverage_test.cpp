// SPDX-License-Identifier: MIT
//
// What the tables and the engine are for: flat levels come out at their coverage, from the first
// row on.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "halftone/engine.h"
#include "tests/halftone/engine_page.h"

namespace corvane {
namespace {

// Halftones one ink of a set at one binary pixel per contone pixel.
Kernel OneInkKernel(CoverageSet set) {
  Kernel kernel = KernelOf(KernelName::K2QDSD_100);
  kernel.inks[0].set = set;
  kernel.inks[0].twoDrop = set == CoverageSet::Set200;
  kernel.planeCount = set == CoverageSet::Set200 ? 2 : 1;
  return kernel;
}

double IdealCoverage(CoverageSet set, int level) {
  const int shift = static_cast<int>(set);  // the sets 6.25 to 200 are in the order of their shifts
  if (set != CoverageSet::Set200) return static_cast<double>(level << shift) / kFullDrop;
  return (level < 128 ? 0 : 1) + static_cast<double>((level % 128) << shift) / kTwoDropUnit;
}

class Coverage : public testing::TestWithParam<CoverageSet> {
 protected:
  // Drops per pixel over so many rows of a flat level, alternating in direction.
  double Measure(int level, std::uint32_t width, std::uint32_t rows) const {
    const Kernel kernel = OneInkKernel(GetParam());
    EnginePage page(kernel, 1, width);
    page.state.ShiftK = static_cast<std::uint16_t>(GetParam());
    const std::vector<std::uint8_t> levels(width, static_cast<std::uint8_t>(level));
    page.state.data = levels.data();
    for (std::uint32_t row = 1; row <= rows; ++row) {
      page.state.row = row;
      page.rowPhase = static_cast<std::uint32_t>(kModulation[row]);
      RunKernel(kernel, page.state);
    }
    return static_cast<double>(page.Dots(Ink::K)) / (static_cast<double>(width) * rows);
  }
};

TEST_P(Coverage, OfFlatLevelsIsTheirShareOfADrop) {
  for (int level = 0; level < kLevelCount; level += 5) {
    EXPECT_NEAR(Measure(level, 1024, 200), IdealCoverage(GetParam(), level), 0.0005) << level;
  }
}

TEST_P(Coverage, OfTheFirstRowIsNearIt) {
  // The light sets place few drops in a row.
  const double largestMean[] = {0.15, 0.06, 0.04, 0.01, 0.005, 0.005};
  double deviation = 0;
  int levels = 0;
  for (int level = 8; level < kLevelCount; level += 5, ++levels) {
    const double coverage = Measure(level, 32768, 1);
    EXPECT_GT(coverage, 0) << level;
    deviation += std::abs(coverage / IdealCoverage(GetParam(), level) - 1);
  }
  EXPECT_LT(deviation / levels, largestMean[static_cast<int>(GetParam())]);
}

INSTANTIATE_TEST_SUITE_P(Sets, Coverage,
                         testing::Values(CoverageSet::Set6_25, CoverageSet::Set12_5,
                                         CoverageSet::Set25, CoverageSet::Set50,
                                         CoverageSet::Set100, CoverageSet::Set200));

}  // namespace
}  // namespace corvane
