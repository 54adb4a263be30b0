// SPDX-License-Identifier: MIT
//
// The passes of the raster filters on 64 pixels at a time. Each gives exactly what the walk through
// the pattern tables gives.
//
// A word holds 64 pixels of a plane, the first in bit 63. Masks are words that repeat every eight
// pixels and say what the tables of the pass's ring hold. A pass reads `byteCount` bytes of every
// input plane, takes all pixels outside them as empty, and writes 2 * `byteCount` bytes of every
// output plane: two sub-dots a pixel, the left one first.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dotmanagement/pattern_tables.h"
#include "simd/choose.h"

namespace corvane {

template <std::size_t kInks>
struct SidePass {
  const std::uint8_t* in[kInks];
  std::uint8_t* out[kInks];
  std::uint32_t byteCount;
  std::uint64_t left[kInks];  // pixels where the ink's default side is the left one
};

// Where the dots of one plane go without regard to any other.
struct FixedPass {
  const std::uint8_t* in;
  std::uint8_t* out;
  std::uint32_t byteCount;
  std::uint64_t left, right;  // pixels whose dot gives a left, a right sub-dot
};

// One mask for each sub-dot of a cell: left and right of the first output row, then of the second.
struct CellMasks {
  std::uint64_t subDot[4];
};

struct CellPass {
  const std::uint8_t* in[6];  // first planes of cyan, magenta and yellow, then their second planes
  std::uint8_t* firstRow[3];
  std::uint8_t* secondRow[3];
  std::uint32_t byteCount;
  CellMasks oneDot[3], twoDots[3];
  CellMasks yellowChange[kYellowExceptionCount];  // sub-dots that differ from the usual ones
};

// Pattern states, 0 or 0x80, of the even and of the odd pixels.
struct ParityStates {
  std::uint8_t even, odd;
};

struct DotKernels {
  // Three inks, neighbours two columns away, one state per column parity. Starts with states 0,
  // returns those after the last pixel.
  ParityStates (*placeBestGlossy)(const SidePass<3>& pass);
  // Three inks, neighbours one column away, one state. Starts with 0, returns the last one.
  std::uint8_t (*placeBetterGlossy)(const SidePass<3>& pass);
  // Two planes, neighbours four columns away, one state, given and returned.
  std::uint8_t (*placeSecondExpansion)(const SidePass<2>& pass, std::uint8_t state);
  void (*placeFixed)(const FixedPass& pass);
  void (*placeCells)(const CellPass& pass);
};

// Null for the plain level and where this build has no fast passes.
const DotKernels* DotKernelsFor(CpuLevel level);

CORVANE_EACH_LEVEL(extern const DotKernels kDotKernels;)

}  // namespace corvane
