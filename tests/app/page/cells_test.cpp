// SPDX-License-Identifier: MIT
#include "app/page/cells.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "app/support/failure.h"

namespace corvane {
namespace {

TEST(Cells, LieAlongTheLongerSide) {
  const struct {
    const char* text;
    bool wide;
    std::uint32_t columns, rows;
  } kCases[] = {{"2", false, 1, 2},   {"2", true, 2, 1},    {"6", false, 2, 3},
                {"6", true, 3, 2},    {"9", true, 3, 3},    {"16", true, 4, 4},
                {"3x1", false, 3, 1}, {"1x20", true, 1, 20}};
  for (const auto& test : kCases) {
    const Grid grid = ParseGrid(test.text, test.wide);
    EXPECT_EQ(grid.columns, test.columns) << test.text;
    EXPECT_EQ(grid.rows, test.rows) << test.text;
  }
  for (const char* text : {"", "0", "1", "5", "-2", "2x", "x2", "0x2", "21x1", "2x2x2", "2 x 2"}) {
    EXPECT_THROW(ParseGrid(text, false), UsageFailure) << text;
  }
  EXPECT_THROW(CellsOf({0, 0, 3, 9}, {4, 1}), UsageFailure);
}

// Cells that differ by a pixel, a margin around them, and fewer pages than cells.
TEST(Cells, ShowTheirPages) {
  const Sheet sheet = {10, 9, 100, 100};
  const std::vector<SheetArea> cells = CellsOf({1, 2, 7, 5}, {2, 2});
  for (const std::size_t bytesPerPixel : {3u, 4u}) {
    std::vector<std::size_t> pages;
    CellRows rows(sheet, cells, 3, bytesPerPixel, [&](std::size_t page, const auto& receiver) {
      pages.push_back(page);
      for (std::uint32_t y = 0; y < cells[page].height; ++y) {
        receiver(std::vector<std::uint8_t>(bytesPerPixel * cells[page].width,
                                           static_cast<std::uint8_t>(10 * page + y))
                     .data());
      }
    });
    // The first bytes of the pixels; . is bare paper.
    const std::array<const char*, 9> kSheet = {"..........", "..........", ".aaabbbb..",
                                               ".cccdddd..", ".eee......", ".fff......",
                                               ".ggg......", "..........", ".........."};
    const std::array<int, 7> kValues = {0, 10, 1, 11, 20, 21, 22};
    std::vector<std::uint8_t> row(rows.RowBytes());
    for (std::size_t y = 0; y < kSheet.size(); ++y) {
      rows.ReadRow(row.data());
      for (std::size_t x = 0; x < sheet.width; ++x) {
        const char cell = kSheet[y][x];
        const int value = cell == '.' ? 255 : kValues[static_cast<std::size_t>(cell - 'a')];
        EXPECT_EQ(row[bytesPerPixel * x], value) << x << ", " << y;
        EXPECT_EQ(row[bytesPerPixel * (x + 1) - 1], cell == '.' && bytesPerPixel == 4 ? 0 : value);
      }
    }
    EXPECT_EQ(pages, (std::vector<std::size_t>{0, 1, 2}));
  }
}

}  // namespace
}  // namespace corvane
