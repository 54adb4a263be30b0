// SPDX-License-Identifier: MIT
//
// The segment engine: rows of one ink, cut into 16 equal segments that run in step, a lane each.
//
// A segment cannot know the error with which it begins, but the error forgets: begun a lead of 96
// binary pixels early with any guess it meets the true one, but for what the shares conserve (some
// keep its parity). So each segment runs with two guesses, 0 and 1, side by side. At the row's end
// the error behind each segment tells which guess of the next one was right; a segment where
// neither was is diffused again by the plain engine. So the result is always the plain one's.
#pragma once

#include <cstdint>

#include "halftone/engine_fast.h"

namespace corvane {

inline constexpr std::uint32_t kSegments = 16;
inline constexpr int kGuesses = 2;
// In binary pixels. A shorter segment would spend too much of its time on the lead.
inline constexpr std::uint32_t kLeadLength = 96;
inline constexpr std::uint32_t kShortestSegment = 128;

// Whether rows of the page can be cut into segments.
inline bool SegmentsFit(const Kernel& kernel, const RowState& state) {
  const bool pixelsFillBytes =
      state.NumPix == 1 || state.NumPix == 2 || state.NumPix == 4 || state.NumPix == 8;
  return kernel.inkCount == 1 && pixelsFillBytes &&
         std::uint64_t{state.NumPix} * state.width >= kSegments * kShortestSegment;
}

// One row on an instruction level; the output has been cleared. The error line is in ErrorRows
// before and after.
namespace sse4 {
void RunSegmentRow(FastPage& page, const RowState& state);
}
namespace avx2 {
void RunSegmentRow(FastPage& page, const RowState& state);
}
namespace avx512 {
void RunSegmentRow(FastPage& page, const RowState& state);
}

}  // namespace corvane
