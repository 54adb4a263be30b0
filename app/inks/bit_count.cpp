// SPDX-License-Identifier: MIT
#include "app/inks/bit_count.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

inline std::uint64_t SetBitsOf(std::uint64_t word) {
#if CORVANE_SIMD_LEVEL >= 2
  return static_cast<std::uint64_t>(__builtin_popcountll(word));
#else
  // Sums of 2, of 4 and of 8 bits side by side, then of all bytes in the top one.
  word -= word >> 1 & 0x5555555555555555;
  word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
  word = (word + (word >> 4)) & 0x0F0F0F0F0F0F0F0F;
  return word * 0x0101010101010101 >> 56;
#endif
}

}  // namespace

std::uint64_t CountSetBits(const std::uint8_t* bytes, std::size_t count) {
  std::uint64_t bits = 0;
  std::uint64_t word = 0;
  std::size_t i = 0;
  for (; i + sizeof word <= count; i += sizeof word) {
    __builtin_memcpy(&word, bytes + i, sizeof word);
    bits += SetBitsOf(word);
  }
  word = 0;
  __builtin_memcpy(&word, bytes + i, count - i);
  return bits + SetBitsOf(word);
}

}  // namespace corvane::CORVANE_SIMD_NAMESPACE
