// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

// The pattern tables of the raster filters. Every table maps the surroundings of one pixel to the
// sub-dots that are printed for it. A code of two bits says where the dot of one ink goes: 10 into
// the left half of the doubled pixel, 01 into the right half, 00 no dot.

namespace corvane {

// Index: bit 9 state, bits 8-6 cyan, 5-3 magenta, 2-0 yellow, each (pixel two columns to the left,
// pixel, pixel two columns to the right). Entry: bit 7 new state, codes in bits 5-4, 3-2, 1-0.
using BestGlossyTable = std::array<std::uint8_t, 1024>;
extern const std::array<BestGlossyTable, 4> kBestGlossyTables;  // T0 to T3

// Index: bit 4 state, bits 3-2 first plane, 1-0 second plane, each (pixel, a pixel four columns to
// the left or right). Entry: bit 7 new state, codes in bits 3-2 and 1-0.
using SecondExpansionTable = std::array<std::uint8_t, 32>;
extern const std::array<SecondExpansionTable, 2> kSecondExpansionTables;  // SA, SB

// Index: bit 6 state, bits 5-4 cyan, 3-2 magenta, 1-0 yellow, each (pixel, a pixel one column to
// the left or right). Entry as in the best glossy tables.
using BetterGlossyTable = std::array<std::uint8_t, 128>;
extern const std::array<BetterGlossyTable, 4> kBetterGlossyTables;  // U0 to U3

// Index: bits 8-6 cyan, 5-3 magenta, 2-0 yellow, each (dot in the ink's first plane, dot in its
// second plane, a dot of either one column to the left or right). Entry: the codes of the first
// output row in the high byte, those of the second in the low byte, both in bits 5-4, 3-2, 1-0.
using CellTable = std::array<std::uint16_t, 512>;
extern const std::array<CellTable, 8> kCellTables;  // V0 to V7

// Dots of the three inks at one pixel, 0 to 2 each.
struct CellDots {
  std::uint8_t cyan, magenta, yellow;
  constexpr bool operator==(const CellDots&) const = default;
};

// The only dot counts for which some cell table gives yellow another place than its usual one, and
// only where yellow has no neighbour.
inline constexpr CellDots kYellowExceptions[] = {{0, 1, 2}, {0, 2, 2}, {1, 0, 2}, {1, 1, 2},
                                                 {2, 0, 2}, {2, 1, 1}, {1, 2, 1}};
inline constexpr int kYellowExceptionCount = sizeof kYellowExceptions / sizeof kYellowExceptions[0];

}  // namespace corvane
