// SPDX-License-Identifier: MIT
//
// The loops over the points of a rendered row, compiled once per instruction level. Every level
// gives the same picture.
#pragma once

#include <cstddef>
#include <cstdint>

#include "app/inks/ink_model.h"
#include "simd/choose.h"

namespace corvane {

// What turns dyes into the binary logarithm of a reflectance's n-th root, in one band.
struct BandFactors {
  float dye[kDyeCount];
  float overprint[4];  // CM, CY, MY, CMY
};

// Samples that the spread of light reaches, each way, and the rows that takes.
inline constexpr int kSpreadReach = 2;
inline constexpr int kSpreadTaps = 2 * kSpreadReach + 1;

struct PointLoops {
  // Adds a row of an ink's layers to the dye that it carries and an eighth of them to the total.
  void (*addLayers)(const std::uint16_t* layers, std::size_t points, float dyeOfLayer, float* dye,
                    std::uint16_t* totals);
  // The n-th roots of the reflectances that four dyes give.
  void (*rootsOfDyes)(const BandFactors& factors, const float* const (&dyes)[kDyeCount],
                      std::size_t points, float* roots);
  // Adds what the roots of `perSample` points each lack of 1 to a row of samples.
  void (*addAbsorbed)(const float* roots, int perSample, std::size_t samples, float* sums);
  // Adds layers of `perSample` points each to a row of samples.
  void (*addLayerSums)(const std::uint16_t* layers, int perSample, std::size_t samples,
                       float* sums);
  // Spreads rows of samples over one another, then along the row: `weights` by distance. `work` and
  // `spread` hold `samples` from kSpreadReach on, zeros before and after.
  void (*spread)(const float* const (&rows)[kSpreadTaps], const float (&weights)[kSpreadReach + 1],
                 std::size_t samples, float* work, float* spread);
  // What light loses whose n-th root loses these amounts times `scale`.
  void (*absorbedLight)(float n, float scale, std::size_t samples, float* absorbed);
  // Adds a row with two weights to two rows.
  void (*addWeighted)(const float* row, std::size_t samples, float weightA, float* a, float weightB,
                      float* b);
};

namespace plain {
extern const PointLoops kPointLoops;
}
CORVANE_EACH_LEVEL(extern const PointLoops kPointLoops;)

}  // namespace corvane
