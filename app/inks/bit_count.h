// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

#include "simd/choose.h"

namespace corvane {

// The bits that are set in `count` bytes; compiled once per instruction level.
namespace plain {
std::uint64_t CountSetBits(const std::uint8_t* bytes, std::size_t count);
}
CORVANE_EACH_LEVEL(std::uint64_t CountSetBits(const std::uint8_t* bytes, std::size_t count);)

}  // namespace corvane
