// SPDX-License-Identifier: MIT
//
// The fast engine: all inks of a pixel at once, each in a 16-bit lane of a vector. Inside the
// engine only; halftone/engine.h is what others use.
//
// A pixel's error feeds the next pixel's decision, so a row is one serial chain. It is as short as
// can be because a drop is a multiple of 16: the shares of (x - drop) are those of x less a
// constant, and so they are computed beside the comparison, not behind it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "halftone/engine.h"
#include "halftone/engine_groups.h"
#include "halftone/threshold_tables.h"
#include "halftone/weight_maps.h"
#include "simd/choose.h"

namespace corvane {

// An ink's lane. Lane 7 stays empty so that no coupled pair straddles the 128-bit halves.
constexpr int LaneOf(Ink ink) {
  const int index = static_cast<int>(ink);
  return index < 7 ? index : index + 1;
}
inline constexpr int kMaxLanes = 16;

// A 16-bit value for each lane.
struct alignas(32) LaneWords {
  std::uint16_t lane[kMaxLanes];
};

struct FastPage {
  std::unique_ptr<GroupedPage> grouped;  // where there is one, it is all of the page

  const Kernel* kernel;
  bool wide;  // 16 lanes, for cd and md; else 8
  bool coupled;
  bool twoDrop;
  std::uint32_t numPix;
  std::uint32_t width;
  void (*runRow)(FastPage& page, const RowState& state);

  // What the inks need, by lane; 0 in lanes without ink.
  LaneWords inputMask;   // bits of a level that go into the error
  LaneWords inputScale;  // 1 << shift
  LaneWords dropSize;
  LaneWords halfDecay;   // all ones: the error is halved at level 0
  LaneWords decayBits;   // the sign and the bits of an error that its decay cuts off
  LaneWords certainBit;  // bit of a level that means a certain drop

  // By InkGroup and level, see PackRule.
  std::uint32_t rules[3][kLevelCount];
  // The modulation, each value in both halves, and its start again.
  std::uint32_t modulation[kModulationLength + 8];

  // Arrays of the page, in one block. A pixel or entry takes 8 or 16 lanes.
  std::uint16_t* line;     // error lines, one vector an entry: numPix * width + 2
  std::uint8_t* planes;    // the row's contone planes, `width` bytes each
  std::uint8_t* levels;    // levels of the row, a byte a lane, with a pixel before the first
  std::uint16_t* lookUps;  // bias and meta vector of each pixel of the row
  std::uint8_t* drops;     // drops decided, a byte a lane for every 8 binary pixels
  std::uint8_t* certain;   // drops that are certain, likewise (two-drop inks only)

  bool holdsLines;    // the error lines are here, not in ErrorRows
  bool linesEmpty;    // all their entries are zero; meaningful while they are here
  bool keepsLookUps;  // levels and look-ups hold pixels keptFirst..keptEnd - 1
  std::uint32_t keptFirst;
  std::uint32_t keptEnd;

  struct Free {
    void operator()(std::byte* memory) const { std::free(memory); }
  };
  std::unique_ptr<std::byte, Free> block;
};

// Like NewFastPage, without the group engine: for rows that it does not serve, and to compare with.
FastPage* NewLanesPage(const Kernel& kernel, const RowState& state, CpuLevel level);

// A level's rule in 32 bits: the bias below, the meta word above. Its high byte is the index of
// the shares; so is its low byte, with the factor of the modulation (1, 2, 4) above it.
constexpr std::uint32_t PackRule(const LevelRule& rule) {
  const std::uint32_t meta = rule.weights << 8 | (1u << rule.modulationShift) << 4 | rule.weights;
  return meta << 16 | static_cast<std::uint16_t>(rule.bias);
}

// One row on an instruction level; the output has been cleared.
CORVANE_EACH_LEVEL(void RunRow(FastPage& page, const RowState& state);)

}  // namespace corvane
