// SPDX-License-Identifier: MIT
#include "app/print_drops.h"

#include <cstring>

namespace corvane {
namespace {

#if defined(__x86_64__) && defined(__GNUC__) && defined(__linux__)
#define CORVANE_COUNT_CLONES __attribute__((target_clones("popcnt", "default")))
#else
#define CORVANE_COUNT_CLONES
#endif

CORVANE_COUNT_CLONES std::uint64_t SetBits(const std::uint8_t* bytes, std::size_t count) {
  std::uint64_t bits = 0;
  std::size_t i = 0;
  for (; i + sizeof(std::uint64_t) <= count; i += sizeof(std::uint64_t)) {
    std::uint64_t word;
    std::memcpy(&word, bytes + i, sizeof word);
    bits += static_cast<std::uint64_t>(__builtin_popcountll(word));
  }
  for (; i < count; ++i) bits += static_cast<std::uint64_t>(__builtin_popcount(bytes[i]));
  return bits;
}

}  // namespace

void DropCounter::StartPage(const PageShape& page) { page_ = page; }

void DropCounter::WriteRow(const std::uint8_t* row) {
  for (const PlaneShape& plane : page_.planes) {
    drops_[static_cast<std::size_t>(plane.ink)] += SetBits(row + plane.offset, plane.bytes)
                                                   << plane.bit;
  }
}

}  // namespace corvane
