// SPDX-License-Identifier: MIT
#include "app/page/cells.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/limits.h"

namespace corvane {
namespace {

constexpr Grid kTallGrids[] = {{1, 2}, {2, 2}, {2, 3}, {3, 3}, {4, 4}};

std::optional<Grid> ParseSides(const std::string& text) {
  const char* const end = text.data() + text.size();
  Grid grid;
  const auto columns = std::from_chars(text.data(), end, grid.columns);
  if (columns.ec != std::errc() || columns.ptr == end || *columns.ptr != 'x') return std::nullopt;
  const auto rows = std::from_chars(columns.ptr + 1, end, grid.rows);
  const auto sound = [](std::uint32_t side) {
    return side >= 1 && side <= limits::kCellsAlongSide;
  };
  if (rows.ec != std::errc() || rows.ptr != end) return std::nullopt;
  return sound(grid.columns) && sound(grid.rows) ? std::optional(grid) : std::nullopt;
}

std::uint32_t Part(std::uint32_t whole, std::uint32_t part, std::uint32_t parts) {
  return static_cast<std::uint32_t>(std::uint64_t{whole} * part / parts);
}

}  // namespace

Grid ParseGrid(const std::string& text, bool wide) {
  for (const Grid& grid : kTallGrids) {
    if (text == std::to_string(grid.Cells())) return wide ? Grid{grid.rows, grid.columns} : grid;
  }
  if (const std::optional<Grid> grid = ParseSides(text)) return *grid;
  throw UsageFailure(
      fmt::format("{}: no number of pages on a sheet (2, 4, 6, 9, 16, or COLUMNSxROWS "
                  "of 1 to {})",
                  text, limits::kCellsAlongSide));
}

std::vector<SheetArea> CellsOf(const SheetArea& area, const Grid& grid) {
  if (area.width < grid.columns || area.height < grid.rows) {
    throw UsageFailure("--nup: there are more pages than pixels on the sheet");
  }
  std::vector<SheetArea> cells;
  for (std::uint32_t row = 0; row < grid.rows; ++row) {
    for (std::uint32_t column = 0; column < grid.columns; ++column) {
      const std::uint32_t left = Part(area.width, column, grid.columns);
      const std::uint32_t top = Part(area.height, row, grid.rows);
      cells.push_back({area.left + left, area.top + top,
                       Part(area.width, column + 1, grid.columns) - left,
                       Part(area.height, row + 1, grid.rows) - top});
    }
  }
  return cells;
}

CellRows::CellRows(const Sheet& sheet, std::vector<SheetArea> cells, std::size_t pages,
                   std::size_t bytesPerPixel, ReadPage read)
    : RowSource(sheet.width, sheet.height, bytesPerPixel),
      cells_(std::move(cells)),
      pages_(std::min(pages, cells_.size())),
      read_(std::move(read)),
      white_(WhiteRow(sheet.width, bytesPerPixel)) {}

void CellRows::StorePage() {
  const SheetArea& cell = cells_[next_];
  std::uint64_t at =
      std::uint64_t{RowBytes()} * (cell.top - lineTop_) + BytesPerPixel() * cell.left;
  read_(next_++, [&](const std::uint8_t* row) {
    ThrowIfInterrupted();
    scratch_.Write(at, row, BytesPerPixel() * cell.width);
    at += RowBytes();
  });
}

// The next line of cells. What is beside the pages is bare.
void CellRows::StoreLine() {
  lineTop_ = cells_[next_].top;
  lineEnd_ = lineTop_ + cells_[next_].height;
  for (std::uint32_t y = lineTop_; y < lineEnd_; ++y) {
    scratch_.Write(std::uint64_t{RowBytes()} * (y - lineTop_), white_.data(), white_.size());
  }
  while (next_ < pages_ && cells_[next_].top == lineTop_) StorePage();
}

void CellRows::ReadRow(std::uint8_t* row) {
  const std::uint32_t y = y_++;
  if (y >= lineEnd_ && next_ < pages_ && y == cells_[next_].top) StoreLine();
  if (y < lineTop_ || y >= lineEnd_) {
    std::copy(white_.begin(), white_.end(), row);
  } else {
    scratch_.Read(std::uint64_t{RowBytes()} * (y - lineTop_), row, RowBytes());
  }
}

}  // namespace corvane
