// SPDX-License-Identifier: MIT
//
// The patches of a calibration chart, as ink amounts.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "app/inks/ink_model.h"
#include "app/tables/lookup.h"

namespace corvane {

enum class PatchGroup : std::uint8_t {
  White,
  Ramp,       // of one ink
  HandOver,   // from a light ink to the dark ink of the same dye
  Overprint,  // of two and more dyes
  Total,      // more and more ink, for the total limit
  Neutral,
  Spread,    // over all that tables print, and beyond
  HeldBack,  // for checking: no fit sees them
};

struct ChartPatch {
  Contone levels{};  // 255 = full strength
  PatchGroup group = PatchGroup::White;
};

// The patches for the inks of a mode on a medium that takes `inkLimit` (1 = one ink at full
// strength), in the order in which they are printed. It depends on its arguments alone, so that a
// measurement can be held against it, and mixes the groups, so that a streak or a drift does not
// look like a property of an ink.
std::vector<ChartPatch> ChartPatches(std::span<const Ink> inks, double inkLimit);

// 40 patches, or a few more with nine inks: the tints that tell how an aged printer has changed.
std::vector<ChartPatch> UpdatePatches(std::span<const Ink> inks, double inkLimit);

// "C 40 %, k 10 %" for messages; "paper" without ink.
std::string PatchText(const Contone& levels);

double TotalInk(const Contone& levels);  // 1 = one ink at full strength

}  // namespace corvane
