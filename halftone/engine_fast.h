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
#include "halftone/threshold_tables.h"
#include "halftone/weight_maps.h"

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

// The arrays of a page whose rows are worked on in segments (see engine_segments.h): for each
// position one of every segment, or one of every segment for each of two guesses.
struct SegmentBuffers {
  std::uint8_t* levels;            // of the contone pixels of the lead, then those of the segment
  std::uint16_t* entries;          // of the error line, likewise
  std::uint16_t* shares;           // of each guess, the new entries, after that before the first
  std::uint8_t* drops;             // of each guess, a byte for every 8 binary pixels
  std::uint8_t* bits;              // the drops of a pass in the order of the plane
  std::uint16_t* modulation;       // by the phase of the first segment
  std::uint32_t modulationLength;  // binary pixels of the segments that it was made for
};

struct FastPage {
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

  bool inSegments;    // rows are worked on in segments; of the arrays above there is none
  bool halvesBeside;  // level 0 has kHalvedClass, and a threshold that nothing exceeds
  SegmentBuffers segments;

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

// Class of shares, behind those of the weight maps: what kHalvedWeights take of half the error.
inline constexpr WeightClass kHalvedWeights = WeightClass::E4_2E4;
inline constexpr int kHalvedClass = kWeightClassCount;

// A level's rule in 32 bits: the bias below, the meta word above. Its high byte is the index of
// the shares; so is its low byte, with the factor of the modulation (1, 2, 4) above it.
constexpr std::uint32_t PackRule(const LevelRule& rule) {
  const std::uint32_t meta = rule.weights << 8 | (1u << rule.modulationShift) << 4 | rule.weights;
  return meta << 16 | static_cast<std::uint16_t>(rule.bias);
}

// One row on an instruction level; the output has been cleared.
namespace sse4 {
void RunRow(FastPage& page, const RowState& state);
}
namespace avx2 {
void RunRow(FastPage& page, const RowState& state);
}
namespace avx512 {
void RunRow(FastPage& page, const RowState& state);
}

}  // namespace corvane
