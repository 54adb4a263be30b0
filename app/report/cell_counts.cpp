// SPDX-License-Identifier: MIT
//
// One body for every level, the plain one too; only the count of a word's bits differs.
#include "app/report/cell_counts.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

constexpr std::uint32_t kMostPixels = 56;  // that a word holds wherever in a byte they begin

inline std::uint32_t SetBitsOf(std::uint64_t word) {
#if CORVANE_SIMD_LEVEL >= 2
  return static_cast<std::uint32_t>(__builtin_popcountll(word));
#else
  // Sums of 2, of 4 and of 8 bits side by side, then of all bytes in the top one.
  word -= word >> 1 & 0x5555555555555555;
  word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
  word = (word + (word >> 4)) & 0x0F0F0F0F0F0F0F0F;
  return static_cast<std::uint32_t>(word * 0x0101010101010101 >> 56);
#endif
}

// The first pixel in the top bit.
inline std::uint64_t PixelsFrom(const std::uint8_t* bits, std::uint32_t pixel) {
  std::uint64_t word = 0;
  __builtin_memcpy(&word, bits + pixel / 8, sizeof word);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  word = __builtin_bswap64(word);
#endif
  return word << pixel % 8;
}

}  // namespace

void AddCellCounts(const std::uint8_t* bits, const std::uint32_t* first, std::size_t cells,
                   int shift, std::uint32_t* drops) {
  for (std::size_t i = 0; i < cells; ++i) {
    std::uint32_t sum = 0;
    for (std::uint32_t pixel = first[i]; pixel < first[i + 1]; pixel += kMostPixels) {
      const std::uint32_t left = first[i + 1] - pixel;
      const std::uint32_t count = left < kMostPixels ? left : kMostPixels;
      sum += SetBitsOf(PixelsFrom(bits, pixel) >> (64 - count));
    }
    drops[i] += sum << shift;
  }
}

}  // namespace corvane::CORVANE_SIMD_NAMESPACE
