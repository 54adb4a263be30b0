// SPDX-License-Identifier: MIT
//
// RGB pixels to contone ink planes: tetrahedral interpolation in 17 x 17 x 17 tables for seven and
// nine inks, a luminance curve for black. conversion_scalar.cpp is the definition and runs
// everywhere; conversion_simd.cpp gives the same bytes and is compiled once per instruction level.
#pragma once

#include <cstddef>
#include <cstdint>

#include "color/interleaved_table.h"
#include "color/read_views.h"
#include "simd/choose.h"

namespace corvane {

inline constexpr unsigned kTags = 256;

// Colours that were converted lately. A pixel's slot is given by the low four bits of its R, G and
// B; the key holds the whole pixel, (tag << 24) | (R << 16) | (G << 8) | B.
struct ConversionSlots {
  static constexpr std::uint32_t kCount = 4096;
  static constexpr std::size_t kMaxPlanes = 9;

  std::uint32_t keys[kCount];
  std::uint8_t values[kCount][kMaxPlanes];

  ConversionSlots() { Clear(); }

  // Empties every slot; none matches any pixel afterwards.
  void Clear();
};

// One row to convert: pixels `first` to `end` - 1 of it are written to every plane, nothing else.
struct ConversionRow {
  const unsigned char* pixels;  // pixel 0
  std::uint32_t first;
  std::uint32_t end;
  unsigned char* planes;                             // pixel 0 of plane 0
  std::size_t planeStride;                           // bytes from one plane to the next
  const unsigned char* const* tables;                // by tag, as loaded
  const InterleavedTable* const* interleavedTables;  // by tag; read by the fast converters
  ConversionSlots* slots;                            // used by the plain converters
};

using RowConverter = void (*)(const ConversionRow& row);

// The converters of one instruction level, by `PixelLayout`.
struct Converters {
  RowConverter black[kPixelLayouts];
  RowConverter sevenInks[kPixelLayouts];
  RowConverter nineInks[kPixelLayouts];
  bool needInterleavedTables;
};

// The converters for a level that the processor has.
const Converters& ConvertersFor(CpuLevel level);

extern const Converters kPlainConverters;
CORVANE_EACH_LEVEL(extern const Converters kConverters;)

}  // namespace corvane
