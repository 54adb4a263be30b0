// SPDX-License-Identifier: MIT
//
// The inks of a colour in a decoded table, exactly as the plug-in interpolates them.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "app/inks/ink_model.h"

namespace corvane {

using Rgb8 = std::array<std::uint8_t, 3>;
using Contone = std::array<std::uint8_t, kInkCount>;  // in the order of Ink

// `table` is a black curve of 256 bytes or 7 or 9 channels of 17 x 17 x 17 nodes; the inks that it
// does not hold come out as 0.
Contone LookUp(std::span<const std::uint8_t> table, const Rgb8& rgb);

InkAmounts AmountsOf(const Contone& contone);

// The same before the result is cut to 8 bits: the table itself, without the steps of contone
// values.
InkAmounts InterpolatedAmounts(std::span<const std::uint8_t> table, const Rgb8& rgb);

// The same at any encoded sRGB colour, 0 to 1, between the 17 x 17 x 17 amounts of `nodes`.
InkAmounts Interpolated(std::span<const InkAmounts> nodes, const Triple& srgb);

}  // namespace corvane
