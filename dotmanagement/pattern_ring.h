// SPDX-License-Identifier: MIT
//
// Cyclic lists of pattern tables: the table of a pixel is the one of the next node.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace corvane {

template <class Entry>
struct PatternNode {
  const Entry* table;
  const PatternNode* next;
};

// Owns the nodes of one ring; copies share them.
template <class Entry>
class PatternRing {
 public:
  // Links one node to each table, in order. False when memory is short; the ring is then empty.
  template <std::size_t kCount>
  bool Build(const std::array<const Entry*, kCount>& tables) {
    nodes_.reset(new (std::nothrow) PatternNode<Entry>[kCount]);
    if (nodes_ == nullptr) return false;
    for (std::size_t i = 0; i < kCount; ++i) {
      nodes_[i] = {tables[i], &nodes_[(i + 1) % kCount]};
    }
    return true;
  }

  // Null before the ring is built.
  const PatternNode<Entry>* First() const { return nodes_.get(); }

 private:
  std::shared_ptr<PatternNode<Entry>[]> nodes_;
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
