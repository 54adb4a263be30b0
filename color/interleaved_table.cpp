// SPDX-License-Identifier: MIT
#include "color/interleaved_table.h"

#include <algorithm>
#include <cstring>

namespace corvane {
namespace {

// Writes channel 8 at the corners of every cell.
void FillCells(const unsigned char* channel, InterleavedTable& table) {
  constexpr unsigned kCells = InterleavedTable::kEdge - 1;  // along one axis
  constexpr auto& kSteps = InterleavedTable::kAxisSteps;
  for (unsigned r = 0; r < kCells; ++r) {
    for (unsigned g = 0; g < kCells; ++g) {
      for (unsigned b = 0; b < kCells; ++b) {
        const unsigned node = r * kSteps[0] + g * kSteps[1] + b * kSteps[2];
        for (unsigned corner = 0; corner < InterleavedTable::kLanes; ++corner) {
          const unsigned offset = (corner >> 2 & 1) * kSteps[0] + (corner >> 1 & 1) * kSteps[1] +
                                  (corner & 1) * kSteps[2];
          table.cells[node][corner] = channel[node + offset];
        }
      }
    }
  }
}

}  // namespace

void Interleave(const unsigned char* table, unsigned planes, InterleavedTable& result) {
  constexpr unsigned kNodes = InterleavedTable::kNodes;
  constexpr unsigned kLanes = InterleavedTable::kLanes;
  std::memset(&result, 0, sizeof result);
  for (unsigned plane = 0; plane < std::min(planes, kLanes); ++plane) {
    const unsigned char* const channel = table + plane * kNodes;
    for (unsigned node = 0; node < kNodes; ++node) result.nodes[node][plane] = channel[node];
  }
  if (planes > kLanes) FillCells(table + kLanes * kNodes, result);
}

}  // namespace corvane
