// SPDX-License-Identifier: MIT
//
// Builds stored tables for the tests from row codes in the clear.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace corvane::harness {

using ByteVector = std::vector<unsigned char>;

inline void Append(ByteVector& target, const ByteVector& more) {
  target.insert(target.end(), more.begin(), more.end());
}

// Header, cube modes and row codes, scrambled from byte 5 on.
inline ByteVector CodedTable(std::uint32_t checksum, const ByteVector& modes,
                             const ByteVector& rowCodes) {
  ByteVector stored;
  for (int shift = 24; shift >= 0; shift -= 8) {
    stored.push_back(static_cast<unsigned char>(checksum >> shift));
  }
  stored.push_back(static_cast<unsigned char>(modes.size()));
  Append(stored, modes);
  Append(stored, rowCodes);

  const auto size = static_cast<std::uint32_t>(stored.size());
  std::uint32_t mask = size + ~(size * 0x10000u);
  for (std::uint32_t i = 5; i < size; ++i) {
    stored[i] ^= mask & 0xFF;
    mask = (mask & 1) << 31 | mask >> 1;
  }
  return stored;
}

inline std::uint32_t ChecksumOf(const ByteVector& decoded) {
  std::uint32_t sum = 0;
  for (std::uint32_t i = 0; i < decoded.size(); ++i) {
    sum += (decoded[i] + 1u) * i;
    sum = sum >> 4 | sum << 28;
  }
  return sum;
}

// The stored bytes at the end of a buffer of the expected size, zero in front.
inline ByteVector AtEndOf(std::size_t expected, const ByteVector& stored) {
  ByteVector buffer(expected);
  std::copy(stored.begin(), stored.end(),
            buffer.end() - static_cast<std::ptrdiff_t>(stored.size()));
  return buffer;
}

}  // namespace corvane::harness
