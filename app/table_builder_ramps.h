// SPDX-License-Identifier: MIT
//
// Keeps the lightness of a table's ramps from falling.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>

#include "app/ink_model.h"

namespace corvane {

// Nodes along each axis of a colour table, and in all.
inline constexpr int kGrid = 17;
inline constexpr int kNodes = kGrid * kGrid * kGrid;

using ContoneInks = std::array<std::uint8_t, kInkCount>;  // in the order of Ink

// Makes modelled lightness rise or stay along grey, and along six hues from black to the colour and
// on to white, at the nodes and between them. Falls come from colours out of gamut, and where inks
// change places between nodes that are nearly as light as one another. They are cured by taking a
// part of the inks away, so no limit is passed.
// `nodes` are the `kNodes` of a table, white first; `rounded` makes contone values of amounts.
void KeepRampsRising(std::span<InkAmounts> nodes, const PrintModel& model,
                     const std::function<ContoneInks(const InkAmounts&)>& rounded);

}  // namespace corvane
