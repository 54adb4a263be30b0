// SPDX-License-Identifier: MIT
#include "dotmanagement/pattern_tables.h"

#include <algorithm>
#include <iterator>

namespace corvane {
namespace {

constexpr unsigned kLeft = 0b10;
constexpr unsigned kRight = 0b01;
constexpr std::uint8_t kNewState = 0x80;

constexpr unsigned OtherSide(unsigned side) { return side ^ 0b11; }

// ---- Three inks, one dot each (T and U) --------------------------------------------------------

enum Ink : unsigned { kCyan, kMagenta, kYellow };

using Sides = std::array<unsigned, 3>;  // default side of each ink

constexpr std::array<Sides, 4> kBestGlossySides = {{
    // cyan, magenta, yellow
    {kLeft, kRight, kLeft},
    {kLeft, kRight, kRight},
    {kRight, kLeft, kRight},
    {kRight, kLeft, kLeft},
}};

constexpr std::array<Sides, 4> kBetterGlossySides = {{
    {kLeft, kRight, kLeft},
    {kRight, kLeft, kRight},
    {kRight, kLeft, kLeft},
    {kLeft, kRight, kRight},
}};

// What a rule needs to know of one ink at one pixel.
struct InkAtPixel {
  bool dot;
  bool hasNeighbour;  // of the same ink
  bool disturbs;      // keeps a dot of another ink from being an isolated one
};
using Inks = std::array<InkAtPixel, 3>;

constexpr bool IsIsolated(const Inks& inks, unsigned ink) {
  const InkAtPixel& second = inks[(ink + 1) % 3];
  const InkAtPixel& third = inks[(ink + 2) % 3];
  return inks[ink].dot && !inks[ink].hasNeighbour && !second.disturbs && !third.disturbs;
}

// Parts a yellow dot from the dot of the ink it shares its side with, where the third ink leaves
// the other side free: yellow moves if it has no neighbour, else the sharing ink if it has none.
constexpr void SeparateYellow(const Inks& inks, Sides& sides) {
  const unsigned sharing = sides[kCyan] == sides[kYellow] ? kCyan : kMagenta;
  const unsigned alone = sharing == kCyan ? kMagenta : kCyan;
  if (!inks[kYellow].dot || !inks[sharing].dot || inks[alone].dot) return;
  const unsigned moving = inks[kYellow].hasNeighbour ? sharing : unsigned{kYellow};
  if (!inks[moving].hasNeighbour) sides[moving] = OtherSide(sides[moving]);
}

constexpr std::uint8_t PlaceThreeInks(Sides sides, bool state, const Inks& inks) {
  bool newState = state;
  bool isolated = false;
  for (unsigned ink : {kCyan, kMagenta, kYellow}) {
    if (!IsIsolated(inks, ink)) continue;
    isolated = true;
    newState = !state;
    if (state) sides[ink] = OtherSide(sides[ink]);
  }
  if (!isolated) SeparateYellow(inks, sides);
  unsigned entry = newState ? kNewState : 0;
  for (unsigned ink : {kCyan, kMagenta, kYellow}) {
    if (inks[ink].dot) entry |= sides[ink] << (4 - 2 * ink);
  }
  return static_cast<std::uint8_t>(entry);
}

constexpr InkAtPixel FromNeighbourhood(unsigned bits) {
  return {(bits & 0b010) != 0, (bits & 0b101) != 0, bits != 0};
}

constexpr InkAtPixel FromPair(unsigned bits) {
  return {(bits & 0b10) != 0, (bits & 0b01) != 0, (bits & 0b10) != 0};
}

constexpr BestGlossyTable MakeBestGlossyTable(const Sides& sides) {
  BestGlossyTable table{};
  for (unsigned index = 0; index < table.size(); ++index) {
    table[index] =
        PlaceThreeInks(sides, index >> 9,
                       {FromNeighbourhood(index >> 6 & 7), FromNeighbourhood(index >> 3 & 7),
                        FromNeighbourhood(index & 7)});
  }
  return table;
}

constexpr BetterGlossyTable MakeBetterGlossyTable(const Sides& sides) {
  BetterGlossyTable table{};
  for (unsigned index = 0; index < table.size(); ++index) {
    table[index] =
        PlaceThreeInks(sides, index >> 6,
                       {FromPair(index >> 4 & 3), FromPair(index >> 2 & 3), FromPair(index & 3)});
  }
  return table;
}

// ---- Second expansion (S) ----------------------------------------------------------------------

constexpr std::uint8_t PlaceTwoPlanes(unsigned firstSide, unsigned secondSide, unsigned index) {
  const bool state = index >> 4;
  const unsigned first = index >> 2 & 3;
  const unsigned second = index & 3;
  const bool isolated = (first == 0b10 && second == 0) || (second == 0b10 && first == 0);
  if (isolated && state) {
    firstSide = OtherSide(firstSide);
    secondSide = OtherSide(secondSide);
  }
  unsigned entry = state != isolated ? kNewState : 0;
  if (first & 0b10) entry |= firstSide << 2;
  if (second & 0b10) entry |= secondSide;
  return static_cast<std::uint8_t>(entry);
}

constexpr SecondExpansionTable MakeSecondExpansionTable(unsigned firstSide, unsigned secondSide) {
  SecondExpansionTable table{};
  for (unsigned index = 0; index < table.size(); ++index) {
    table[index] = PlaceTwoPlanes(firstSide, secondSide, index);
  }
  return table;
}

// ---- Cells of two by two sub-dots (V) ----------------------------------------------------------

// A cell: the code of the first output row in bits 3-2, that of the second in bits 1-0.
using Cell = unsigned;

struct YellowMove {
  CellDots dots;
  Cell cell;
};

// The cells of one and of two dots of each ink, and where yellow without a neighbour goes
// elsewhere.
struct CellRule {
  std::array<Cell, 2> cyan, magenta, yellow;
  YellowMove yellowMoves[5];
};

// clang-format off
constexpr std::array<CellRule, 8> kCellRules = {{
    // cyan               magenta             yellow              yellow moves
    {{0b10'00, 0b10'01}, {0b00'10, 0b01'10}, {0b00'01, 0b10'01},  // V0
     {{{1, 0, 2}, 0b01'01}, {{1, 1, 2}, 0b01'01}, {{2, 0, 2}, 0b01'10}, {{2, 1, 1}, 0b01'00}}},
    {{0b00'10, 0b01'10}, {0b10'00, 0b10'01}, {0b01'00, 0b01'10},  // V1
     {{{0, 1, 2}, 0b10'01}, {{1, 0, 2}, 0b01'01}, {{1, 1, 2}, 0b01'01}, {{2, 0, 2}, 0b10'01}, {{2, 1, 1}, 0b00'01}}},
    {{0b00'01, 0b10'01}, {0b01'00, 0b01'10}, {0b10'00, 0b10'01},  // V2
     {{{1, 0, 2}, 0b10'10}, {{1, 1, 2}, 0b10'10}, {{2, 0, 2}, 0b01'10}, {{2, 1, 1}, 0b00'10}}},
    {{0b01'00, 0b01'10}, {0b00'01, 0b10'01}, {0b00'10, 0b01'10},  // V3
     {{{0, 1, 2}, 0b10'01}, {{1, 0, 2}, 0b10'10}, {{1, 1, 2}, 0b10'10}, {{2, 0, 2}, 0b10'01}, {{2, 1, 1}, 0b10'00}}},
    {{0b01'00, 0b01'10}, {0b00'01, 0b10'01}, {0b10'00, 0b10'01},  // V4
     {{{0, 1, 2}, 0b10'10}, {{0, 2, 2}, 0b01'10}, {{1, 1, 2}, 0b10'10}, {{1, 2, 1}, 0b00'10}}},
    {{0b00'01, 0b10'01}, {0b01'00, 0b01'10}, {0b00'10, 0b01'10},  // V5
     {{{0, 1, 2}, 0b10'10}, {{0, 2, 2}, 0b10'01}, {{1, 0, 2}, 0b10'01}, {{1, 1, 2}, 0b10'10}, {{1, 2, 1}, 0b10'00}}},
    {{0b00'10, 0b01'10}, {0b10'00, 0b10'01}, {0b00'01, 0b10'01},  // V6
     {{{0, 1, 2}, 0b01'01}, {{0, 2, 2}, 0b01'10}, {{1, 1, 2}, 0b01'01}, {{1, 2, 1}, 0b01'00}}},
    {{0b10'00, 0b10'01}, {0b00'10, 0b01'10}, {0b01'00, 0b01'10},  // V7
     {{{0, 1, 2}, 0b01'01}, {{0, 2, 2}, 0b10'01}, {{1, 0, 2}, 0b10'01}, {{1, 1, 2}, 0b01'01}, {{1, 2, 1}, 0b00'01}}},
}};
// clang-format on

constexpr bool EveryMoveIsListed() {
  for (const CellRule& rule : kCellRules) {
    for (const YellowMove& move : rule.yellowMoves) {
      if (move.dots == CellDots{}) continue;
      const auto* end = std::end(kYellowExceptions);
      if (std::find(std::begin(kYellowExceptions), end, move.dots) == end) return false;
    }
  }
  return true;
}
static_assert(EveryMoveIsListed());

// A second-plane dot counts two whatever the first plane holds.
constexpr std::uint8_t DotCount(unsigned code) { return code & 0b010 ? 2 : code & 0b100 ? 1 : 0; }

constexpr Cell UsualCell(const std::array<Cell, 2>& cells, unsigned dots) {
  return dots == 0 ? 0 : cells[dots - 1];
}

constexpr Cell YellowCell(const CellRule& rule, const CellDots& dots, bool hasNeighbour) {
  if (!hasNeighbour) {
    for (const YellowMove& move : rule.yellowMoves) {
      if (move.dots == dots) return move.cell;
    }
  }
  return UsualCell(rule.yellow, dots.yellow);
}

constexpr std::uint16_t PlaceCells(const CellRule& rule, unsigned index) {
  const CellDots dots = {DotCount(index >> 6 & 7), DotCount(index >> 3 & 7), DotCount(index & 7)};
  const std::array<Cell, 3> cells = {UsualCell(rule.cyan, dots.cyan),
                                     UsualCell(rule.magenta, dots.magenta),
                                     YellowCell(rule, dots, index & 1)};
  unsigned entry = 0;
  for (unsigned ink : {kCyan, kMagenta, kYellow}) {
    const unsigned shift = 4 - 2 * ink;
    entry |= (cells[ink] >> 2) << (8 + shift) | (cells[ink] & 0b11) << shift;
  }
  return static_cast<std::uint16_t>(entry);
}

constexpr CellTable MakeCellTable(const CellRule& rule) {
  CellTable table{};
  for (unsigned index = 0; index < table.size(); ++index) table[index] = PlaceCells(rule, index);
  return table;
}

template <class Table, class Rule, std::size_t kCount, class Make>
constexpr std::array<Table, kCount> MakeTables(const std::array<Rule, kCount>& rules, Make make) {
  std::array<Table, kCount> tables{};
  for (std::size_t i = 0; i < kCount; ++i) tables[i] = make(rules[i]);
  return tables;
}

}  // namespace

constinit const std::array<BestGlossyTable, 4> kBestGlossyTables =
    MakeTables<BestGlossyTable>(kBestGlossySides, MakeBestGlossyTable);

constinit const std::array<SecondExpansionTable, 2> kSecondExpansionTables = {
    MakeSecondExpansionTable(kRight, kLeft), MakeSecondExpansionTable(kLeft, kRight)};

constinit const std::array<BetterGlossyTable, 4> kBetterGlossyTables =
    MakeTables<BetterGlossyTable>(kBetterGlossySides, MakeBetterGlossyTable);

constinit const std::array<CellTable, 8> kCellTables =
    MakeTables<CellTable>(kCellRules, MakeCellTable);

}  // namespace corvane
