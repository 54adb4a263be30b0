// SPDX-License-Identifier: MIT
//
// The points diagnostic: instead of a picture the page shows a chart of 16 x 16 square patches
// whose ink amounts come from a file of 256 records, patch row by patch row.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane {

inline constexpr const char* kPointsFile = "c:\\points.bin";
inline constexpr std::size_t kPointsRecordBytes = 9;  // one ink amount a plane, of up to nine
inline constexpr std::uint32_t kPatchesPerSide = 16;
inline constexpr std::size_t kPointsBytes = kPatchesPerSide * kPatchesPerSide * kPointsRecordBytes;
inline constexpr std::uint32_t kPatchPixels = 300;  // width and height of a patch

// Reads the points file into `points` (kPointsBytes); what the file does not give is 0.
void ReadPoints(unsigned char* points);

// Fills pixels `first` to `end` - 1 of `planes` planes, one every `planeStride` bytes, with row
// `rowNumber` of the chart. Outside the patches there is no ink. Null `points` read as zeros.
void FillPointsRow(const unsigned char* points, std::int32_t rowNumber, std::size_t planes,
                   unsigned char* rowBuffer, std::size_t planeStride, std::uint32_t first,
                   std::uint32_t end);

}  // namespace corvane
