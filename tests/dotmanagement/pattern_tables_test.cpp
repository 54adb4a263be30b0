// SPDX-License-Identifier: MIT
#include "dotmanagement/pattern_tables.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(PatternTables, BestGlossyEntries) {
  struct {
    int table;
    unsigned state, cyan, magenta, yellow, entry;
  } const cases[] = {
      {0, 0, 0b010, 0, 0, 0xA0},
      {0, 1, 0b010, 0, 0, 0x10},
      {0, 0, 0b010, 0, 0b010, 0x21},
      {0, 0, 0b010, 0, 0b011, 0x12},
      {0, 0, 0b011, 0, 0b011, 0x22},
      {0, 0, 0b010, 0b010, 0b010, 0x26},
      {1, 0, 0b010, 0, 0b111, 0x21},
      {3, 0, 0, 0b010, 0b011, 0x06},
      {2, 0, 0b111, 0b111, 0b111, 0x19},
      {0, 1, 0b010, 0b100, 0, 0xA0},  // another ink two columns away: no isolated dot
  };
  for (const auto& c : cases) {
    const unsigned index = c.state << 9 | c.cyan << 6 | c.magenta << 3 | c.yellow;
    EXPECT_EQ(kBestGlossyTables[c.table][index], c.entry) << "T" << c.table << " " << index;
  }
}

TEST(PatternTables, BetterGlossyEntries) {
  struct {
    int table;
    unsigned state, cyan, magenta, yellow, entry;
  } const cases[] = {
      {0, 0, 0b10, 0, 0, 0xA0},    {1, 0, 0b10, 0, 0, 0x90},
      {1, 1, 0b10, 0, 0, 0x20},    {0, 0, 0b10, 0b01, 0b01, 0xA0},  // their neighbours
      {0, 0, 0b11, 0, 0, 0x20},    {2, 0, 0, 0b10, 0b10, 0x09},     // yellow parts
      {2, 1, 0, 0b10, 0b11, 0x86}, {3, 0, 0, 0b11, 0b11, 0x05},
      {1, 0, 0b10, 0, 0b10, 0x12}, {3, 0, 0b11, 0b11, 0b11, 0x25},
  };
  for (const auto& c : cases) {
    const unsigned index = c.state << 6 | c.cyan << 4 | c.magenta << 2 | c.yellow;
    EXPECT_EQ(kBetterGlossyTables[c.table][index], c.entry) << "U" << c.table << " " << index;
  }
}

TEST(PatternTables, SecondExpansionEntries) {
  struct {
    int table;
    unsigned state, first, second, entry;
  } const cases[] = {
      {0, 0, 0b10, 0, 0x84}, {0, 1, 0b10, 0, 0x08},    {1, 0, 0, 0b10, 0x81},
      {1, 1, 0, 0b10, 0x02}, {0, 1, 0b10, 0b01, 0x84},  // the other's context counts
      {0, 0, 0b11, 0, 0x04}, {1, 1, 0b10, 0b10, 0x89}, {0, 1, 0b01, 0b01, 0x80},
  };
  for (const auto& c : cases) {
    const unsigned index = c.state << 4 | c.first << 2 | c.second;
    EXPECT_EQ(kSecondExpansionTables[c.table][index], c.entry) << "S" << c.table << " " << index;
  }
}

// First-row codes in the high byte, second-row codes in the low one.
TEST(PatternTables, CellEntries) {
  struct {
    int table;
    unsigned cyan, magenta, yellow, entry;
  } const cases[] = {
      {0, 0b010, 0, 0, 0x2010},         {0, 0b110, 0, 0, 0x2010},      // both planes: two dots
      {0, 0b010, 0, 0b010, 0x2112},     {0, 0b010, 0, 0b011, 0x2211},  // yellow neighbour
      {0, 0b011, 0b001, 0b010, 0x2112},  // other inks' neighbours do not count
      {1, 0, 0b100, 0b010, 0x0A01},     {3, 0b010, 0b100, 0b100, 0x1224},
      {4, 0, 0b010, 0b010, 0x0906},     {5, 0b100, 0, 0b010, 0x0211},
      {6, 0b100, 0b010, 0b100, 0x0924}, {7, 0b100, 0b010, 0b100, 0x2409},
      {2, 0b100, 0b100, 0b100, 0x0610},
  };
  for (const auto& c : cases) {
    const unsigned index = c.cyan << 6 | c.magenta << 3 | c.yellow;
    EXPECT_EQ(kCellTables[c.table][index], c.entry) << "V" << c.table << " " << index;
  }
}

// Every dot that goes in comes out, and nothing else.
TEST(PatternTables, EveryEntryKeepsItsDots) {
  const auto dotsOf = [](unsigned entry, unsigned shift) {
    return static_cast<unsigned>(__builtin_popcount(entry >> shift & 3));
  };
  for (unsigned ink = 0; ink < 3; ++ink) {
    const unsigned out = 4 - 2 * ink;
    for (const auto& table : kBestGlossyTables) {
      for (unsigned i = 0; i < table.size(); ++i) {
        ASSERT_EQ(dotsOf(table[i], out), i >> (7 - 3 * ink) & 1);
      }
    }
    for (const auto& table : kBetterGlossyTables) {
      for (unsigned i = 0; i < table.size(); ++i) {
        ASSERT_EQ(dotsOf(table[i], out), i >> (5 - 2 * ink) & 1);
      }
    }
    for (const auto& table : kCellTables) {
      for (unsigned i = 0; i < table.size(); ++i) {
        const unsigned planes = i >> (7 - 3 * ink) & 3;
        ASSERT_EQ(dotsOf(table[i], out) + dotsOf(table[i], out + 8), planes & 1 ? 2 : planes >> 1);
      }
    }
  }
}

}  // namespace
}  // namespace corvane
