// SPDX-License-Identifier: MIT
#pragma once

namespace corvane {

// Bytes between the last row of a JPEG image and its end, with which some cameras fill up. More are
// data that were not understood: where changed bits still make codes, nothing else tells.
inline constexpr int kMostJpegPadding = 64;

}  // namespace corvane
