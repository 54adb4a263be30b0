// SPDX-License-Identifier: MIT
//
// Keeps the lightness of a table's ramps from falling.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>

#include "app/inks/ink_model.h"
#include "app/tables/grid.h"

namespace corvane {

using ContoneInks = std::array<std::uint8_t, kInkCount>;  // in the order of Ink

// Makes modelled lightness rise or stay along grey, and along six hues from black to the colour and
// on to white, at the nodes and between them, as far as a few per cent less ink can do it. No limit
// is passed.
// `nodes` are the `kNodes` of a table, white first; `rounded` makes contone values of amounts.
void KeepRampsRising(std::span<InkAmounts> nodes, const PrintModel& model,
                     const std::function<ContoneInks(const InkAmounts&)>& rounded);

}  // namespace corvane
