// SPDX-License-Identifier: MIT
//
// Binary rows for the tests of the raster filters.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace corvane::harness {

// One row of planes, eight pixels a byte.
struct GlossyRow {
  GlossyRow(unsigned planeCount, unsigned bytesPerPlane)
      : planes(planeCount), planeBytes(bytesPerPlane), bytes(planeCount * bytesPerPlane) {}

  void Set(unsigned plane, unsigned column) {
    bytes[plane * planeBytes + column / 8] |= static_cast<std::uint8_t>(0x80 >> column % 8);
  }
  // Sets each pixel with the given chance, in percent.
  void Scatter(std::mt19937& random, unsigned percent) {
    for (std::uint8_t& byte : bytes) {
      for (int bit = 0; bit < 8; ++bit) {
        byte = static_cast<std::uint8_t>(byte << 1 | (random() % 100 < percent));
      }
    }
  }

  unsigned planes, planeBytes;
  std::vector<std::uint8_t> bytes;
};

// Where the dots of a doubled pixel are: '.', 'L', 'R' or 'B'. `planeBytes` is of the output.
inline char SideAt(const std::uint8_t* out, unsigned planeBytes, unsigned plane, unsigned column) {
  return ".RLB"[out[plane * planeBytes + column / 4] >> (6 - 2 * (column % 4)) & 3];
}

inline unsigned CountDots(const std::uint8_t* bytes, unsigned count) {
  unsigned dots = 0;
  for (unsigned i = 0; i < count; ++i) {
    dots += static_cast<unsigned>(__builtin_popcount(bytes[i]));
  }
  return dots;
}

}  // namespace corvane::harness
