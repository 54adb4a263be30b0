// SPDX-License-Identifier: MIT
#include "dotmanagement/pattern_tables.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

unsigned Best(int table, unsigned state, unsigned cyan, unsigned magenta, unsigned yellow) {
  return kBestGlossyTables[table][state << 9 | cyan << 6 | magenta << 3 | yellow];
}
unsigned Better(int table, unsigned state, unsigned cyan, unsigned magenta, unsigned yellow) {
  return kBetterGlossyTables[table][state << 6 | cyan << 4 | magenta << 2 | yellow];
}
unsigned Second(int table, unsigned state, unsigned first, unsigned second) {
  return kSecondExpansionTables[table][state << 4 | first << 2 | second];
}
unsigned Cell(int table, unsigned cyan, unsigned magenta, unsigned yellow) {
  return kCellTables[table][cyan << 6 | magenta << 3 | yellow];
}

TEST(PatternTables, HaveTheEntriesWorkedOutByHand) {
  const struct {
    unsigned actual, entry;
  } cases[] = {
      // clang-format off
      {Best(0, 0, 0b010, 0, 0), 0xA0},         {Best(0, 1, 0b010, 0, 0), 0x10},
      {Best(0, 0, 0b010, 0, 0b010), 0x21},     {Best(0, 0, 0b010, 0, 0b011), 0x12},
      {Best(0, 0, 0b011, 0, 0b011), 0x22},     {Best(0, 0, 0b010, 0b010, 0b010), 0x26},
      {Best(1, 0, 0b010, 0, 0b111), 0x21},     {Best(3, 0, 0, 0b010, 0b011), 0x06},
      {Best(2, 0, 0b111, 0b111, 0b111), 0x19},
      {Best(0, 1, 0b010, 0b100, 0), 0xA0},  // another ink two columns away: no isolated dot

      {Better(0, 0, 0b10, 0, 0), 0xA0},        {Better(1, 0, 0b10, 0, 0), 0x90},
      {Better(1, 1, 0b10, 0, 0), 0x20},        {Better(0, 0, 0b11, 0, 0), 0x20},
      {Better(0, 0, 0b10, 0b01, 0b01), 0xA0},  // their neighbours
      {Better(2, 0, 0, 0b10, 0b10), 0x09},     // yellow parts
      {Better(2, 1, 0, 0b10, 0b11), 0x86},     {Better(3, 0, 0, 0b11, 0b11), 0x05},
      {Better(1, 0, 0b10, 0, 0b10), 0x12},     {Better(3, 0, 0b11, 0b11, 0b11), 0x25},

      {Second(0, 0, 0b10, 0), 0x84},           {Second(0, 1, 0b10, 0), 0x08},
      {Second(1, 0, 0, 0b10), 0x81},           {Second(1, 1, 0, 0b10), 0x02},
      {Second(0, 1, 0b10, 0b01), 0x84},        // the other's context counts
      {Second(0, 0, 0b11, 0), 0x04},
      {Second(1, 1, 0b10, 0b10), 0x89},        {Second(0, 1, 0b01, 0b01), 0x80},

      // First-row codes in the high byte, second-row codes in the low one.
      {Cell(0, 0b010, 0, 0), 0x2010},          {Cell(0, 0b110, 0, 0), 0x2010},  // both: two dots
      {Cell(0, 0b010, 0, 0b010), 0x2112},
      {Cell(0, 0b010, 0, 0b011), 0x2211},      // yellow neighbour
      {Cell(0, 0b011, 0b001, 0b010), 0x2112},  // other inks' neighbours do not count
      {Cell(1, 0, 0b100, 0b010), 0x0A01},      {Cell(3, 0b010, 0b100, 0b100), 0x1224},
      {Cell(4, 0, 0b010, 0b010), 0x0906},      {Cell(5, 0b100, 0, 0b010), 0x0211},
      {Cell(6, 0b100, 0b010, 0b100), 0x0924},  {Cell(7, 0b100, 0b010, 0b100), 0x2409},
      {Cell(2, 0b100, 0b100, 0b100), 0x0610},
      // clang-format on
  };
  for (const auto& c : cases) EXPECT_EQ(c.actual, c.entry) << "case " << &c - cases;
}

// Every dot that goes in comes out, and nothing else.
TEST(PatternTables, EveryEntryKeepsItsDots) {
  const auto dotsOf = [](unsigned entry, unsigned shift) {
    return static_cast<unsigned>(__builtin_popcount(entry >> shift & 3));
  };
  for (unsigned ink = 0; ink < 3; ++ink) {
    const unsigned out = 4 - 2 * ink;
    const auto expectDots = [&](const auto& tables, auto dotsIn) {
      for (const auto& table : tables) {
        for (unsigned i = 0; i < table.size(); ++i) {
          ASSERT_EQ(dotsOf(table[i], out) + dotsOf(table[i], out + 8), dotsIn(i));
        }
      }
    };
    expectDots(kBestGlossyTables, [=](unsigned i) { return i >> (7 - 3 * ink) & 1; });
    expectDots(kBetterGlossyTables, [=](unsigned i) { return i >> (5 - 2 * ink) & 1; });
    expectDots(kCellTables, [=](unsigned i) {
      const unsigned planes = i >> (7 - 3 * ink) & 3;
      return planes & 1 ? 2 : planes >> 1;
    });
  }
}

}  // namespace
}  // namespace corvane
