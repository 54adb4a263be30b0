// SPDX-License-Identifier: MIT
//
// Cyclic lists of pattern tables: the table of a pixel is the one of the next node.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace corvane {

template <class Entry>
struct PatternNode {
  const Entry* table;
  const PatternNode* next;
};

// Owns the nodes of one ring.
template <class Entry>
class PatternRing {
 public:
  static constexpr std::size_t kMostNodes = 8;

  PatternRing() = default;
  PatternRing(const PatternRing& other) { *this = other; }
  PatternRing& operator=(const PatternRing& other) {
    count_ = other.count_;
    for (std::size_t i = 0; i < count_; ++i) Set(i, other.nodes_[i].table);
    return *this;
  }

  // Links one node to each table, in order.
  template <std::size_t kCount>
  void Build(const std::array<const Entry*, kCount>& tables) {
    static_assert(kCount <= kMostNodes);
    count_ = kCount;
    for (std::size_t i = 0; i < kCount; ++i) Set(i, tables[i]);
  }

  const PatternNode<Entry>* First() const { return nodes_.data(); }

 private:
  void Set(std::size_t i, const Entry* table) {
    nodes_[i] = {table, &nodes_[i + 1 == count_ ? 0 : i + 1]};
  }

  std::array<PatternNode<Entry>, kMostNodes> nodes_{};
  std::size_t count_ = 0;
};

// A word of 64 pixels from `node` on, the first in bit 63: bit `bit` of what each pixel's table
// holds at `index`. `kNodes` is the number of the ring's nodes.
template <unsigned kNodes, class Entry>
std::uint64_t RingMask(const PatternNode<Entry>* node, unsigned index, unsigned bit) {
  constexpr std::uint64_t kRepeat = ~std::uint64_t{0} / ((1u << kNodes) - 1);
  std::uint64_t period = 0;
  for (unsigned i = 0; i < kNodes; ++i, node = node->next) {
    period = period << 1 | (node->table[index] >> bit & 1u);
  }
  return period * kRepeat;
}

}  // namespace corvane
