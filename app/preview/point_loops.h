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

struct PointLoops {
  // Adds a row of an ink's layers to the dye that it carries and an eighth of them to the total.
  void (*addLayers)(const std::uint16_t* layers, std::size_t points, float dyeOfLayer, float* dye,
                    std::uint16_t* totals);
  // The n-th roots of the reflectances that four dyes give.
  void (*rootsOfDyes)(const BandFactors& factors, const float* const (&dyes)[kDyeCount],
                      std::size_t points, float* roots);
};

namespace plain {
extern const PointLoops kPointLoops;
}
CORVANE_EACH_LEVEL(extern const PointLoops kPointLoops;)

}  // namespace corvane
