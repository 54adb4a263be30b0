// SPDX-License-Identifier: MIT
//
// Drops in each of the cells that a row of a plane passes, compiled once per instruction level.
#pragma once

#include <cstddef>
#include <cstdint>

#include "simd/choose.h"

namespace corvane {

// Adds the set bits from pixel `first[i]` to before `first[i + 1]`, each as `1 << shift`, to
// `drops[i]` for `cells` cells. The row's first pixel is in the most significant bit; 8 bytes
// behind its last may be read.
namespace plain {
void AddCellCounts(const std::uint8_t* bits, const std::uint32_t* first, std::size_t cells,
                   int shift, std::uint32_t* drops);
}
CORVANE_EACH_LEVEL(void AddCellCounts(const std::uint8_t* bits, const std::uint32_t* first,
                                      std::size_t cells, int shift, std::uint32_t* drops);)

}  // namespace corvane
