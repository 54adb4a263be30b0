// SPDX-License-Identifier: MIT
//
// A 3-D colour table rearranged for the fast converters, built once per loaded table.
#pragma once

#include <cstdint>

namespace corvane {

struct InterleavedTable {
  static constexpr unsigned kEdge = 17;
  static constexpr unsigned kNodes = kEdge * kEdge * kEdge;
  static constexpr unsigned kLanes = 8;
  static constexpr unsigned kAxisSteps[3] = {kEdge * kEdge, kEdge, 1};  // nodes, along R, G and B

  // Channels 0 to 7 of every node side by side, as wide as the sums they are used in.
  alignas(64) std::uint16_t nodes[kNodes][kLanes];

  // Channel 8 at the eight corners of the cell that begins at a node, one step along R in bit 2 of
  // the corner's number, along G in bit 1, along B in bit 0. Cells outside the cube are 0.
  alignas(64) std::uint8_t cells[kNodes][kLanes];
};

// Rearranges `planes` (7 or 9) channels of 4913 bytes each.
void Interleave(const unsigned char* table, unsigned planes, InterleavedTable& result);

}  // namespace corvane
