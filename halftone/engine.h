// SPDX-License-Identifier: MIT
//
// The error-diffusion engine. For each binary pixel of a row every ink adds its input to a carried
// error, gets a drop where the error exceeds a threshold, and hands shares of what is left to the
// pixel below, to its neighbour on the side already visited, and to the next pixel of the row.
//
// The plain engine says the rule as it is, one ink after the other. The fast one has the same
// results, bit for bit: it runs all inks of a pixel, or of several segments of the row, in the
// lanes of a vector, whichever is faster (halftone/engine_choice.h).
#pragma once

#include <array>
#include <cstdint>

#include "halftone/kernel_table.h"
#include "simd/level.h"

namespace corvane {

// The fast engine's part of a page: its tables, and the error lines in its own order.
struct FastPage;

// What a kernel works on: the page's settings, the state that runs on from row to row, which stays
// its owner's, and one contone row. Errors are in sixteenths of a contone level.
struct RowState {
  // Left shifts of the levels, 0 to 5, by ink group.
  std::uint16_t ShiftCMY;
  std::uint16_t Shiftcmy;
  std::uint16_t ShiftK;
  bool BothDirections;        // every row forward, then backward
  std::uint32_t NumPix;       // binary pixels per contone pixel, at least 1
  std::uint32_t width;        // contone pixels that the error lines and the output have room for
  std::uint32_t outputWidth;  // binary pixels of an output plane

  // By Ink. An error line has NumPix * width + 2 entries: entry p + 1 belongs to binary pixel p,
  // the first and the last are guards. Kernels touch the lines of their own inks only.
  std::array<std::int16_t*, kInkCount> ErrorRows;
  std::int16_t* CarriedError;
  std::uint32_t* DotCount;       // drops placed, modulo 2^32
  std::uint32_t* RowPhase;       // place in the threshold modulation, 0..1023
  std::uint8_t* output;          // binary planes, one after the other
  FastPage* fastPage = nullptr;  // of this kernel; null: the plain engine runs

  const std::uint8_t* data;  // contone planes, `stride` bytes apart, one byte a pixel
  std::uint32_t stride;
  std::uint32_t row;    // odd rows run forward, even rows backward
  std::uint32_t first;  // contone pixels first..end - 1 are halftoned; neither is above
  std::uint32_t end;    // the smaller of width and stride
};

// Makes the fast engine's part of a page, for the kernel and for the shifts, NumPix and width of
// `state`, which must not change while it is in use. Null when `level` is Plain or memory runs
// out: then the plain engine serves. The caller owns it; DeleteFastPage takes null too.
FastPage* NewFastPage(const Kernel& kernel, const RowState& state, CpuLevel level);
void DeleteFastPage(FastPage* page);

// Halftones one row and returns its RowBytes: the bytes of all planes that the kernel sends. The
// fast engine keeps the error lines to itself from the first row on.
std::uint32_t RunKernel(const Kernel& kernel, const RowState& state);

// Writes the error lines that the fast engine holds back into ErrorRows; the next row takes them
// from there again. To be called before anything else reads or changes them.
void SyncErrorRows(const RowState& state);

// The same as RunKernel on the plain engine, with the error lines in ErrorRows.
std::uint32_t RunKernelPlain(const Kernel& kernel, const RowState& state);

// A stretch of one pass of the plain engine for one ink of the kernel, for a pair with the later
// one of its inks: `count` contone pixels from `first` on, forward or backward, from modulation
// phase `phase` on. Neither clears the line nor folds the guard; the entry behind the first visited
// pixel gets its share.
void DiffuseSpanPlain(const Kernel& kernel, int index, const RowState& state, bool forward,
                      std::uint32_t first, std::uint32_t count, std::uint32_t phase);

// The left shift of an ink group's levels.
std::uint32_t ShiftOf(InkGroup group, const RowState& state);

// Clears the planes that the kernel sends and returns their bytes.
std::uint32_t ClearOutput(const Kernel& kernel, const RowState& state);

// The passes of a row, in order: forward first.
struct RowPasses {
  bool forward;
  bool backward;
};
RowPasses PassesOf(const Kernel& kernel, const RowState& state);

// What an ink's level decides: threshold = bias + (modulation << modulationShift), and the index
// of its shares in kErrorWeights.
struct LevelRule {
  std::int16_t bias;
  std::uint8_t modulationShift;
  std::uint8_t weights;
};

// The 256 rules of a set, by level.
const LevelRule* LevelRulesOf(CoverageSet set);

inline constexpr int kFullDrop = 255 * 16;     // what a drop takes out of the error
inline constexpr int kTwoDropUnit = 127 * 32;  // the same for inks of up to two drops

// Below this level of both its inks, a coupled pair places at most one drop a pixel.
inline constexpr int kJointLevelLimit = 48;

}  // namespace corvane
