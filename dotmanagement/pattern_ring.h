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
// holds at `index`. Rings have 2, 4 or 8 nodes.
template <class Entry>
std::uint64_t RingMask(const PatternNode<Entry>* node, unsigned index, unsigned bit) {
  std::uint64_t byte = 0;
  for (int pixel = 0; pixel < 8; ++pixel, node = node->next) {
    byte = byte << 1 | (node->table[index] >> bit & 1u);
  }
  return byte * 0x0101010101010101u;
}

}  // namespace corvane
