// SPDX-License-Identifier: MIT
//
// A sheet that several pages share, each in a cell of a grid.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "app/image/row_source.h"
#include "app/page/place.h"
#include "app/support/scratch_file.h"

namespace corvane {

struct Grid {
  std::uint32_t columns = 1, rows = 1;

  std::uint32_t Cells() const { return columns * rows; }
};

// "2", "4", "6", "9" or "16", whose longer side lies along that of the area, or "3x2". Throws
// UsageFailure for anything else.
Grid ParseGrid(const std::string& text, bool wide);

// The cells of an area in reading order, as large as each other but for a pixel. Throws
// UsageFailure when there are more than pixels.
std::vector<SheetArea> CellsOf(const SheetArea& area, const Grid& grid);

// The rows of such a sheet. The rows of one line of cells are held in a scratch file, so that a
// page may be read after the other; memory holds a row.
class CellRows : public RowSource {
 public:
  using RowReceiver = std::function<void(const std::uint8_t* row)>;
  // Delivers the rows of a page, as many and as wide as its cell, from the top.
  using ReadPage = std::function<void(std::size_t page, const RowReceiver& receiver)>;

  // The first `pages` cells are filled, in their order. With four bytes a pixel the last is a tag.
  CellRows(const Sheet& sheet, std::vector<SheetArea> cells, std::size_t pages,
           std::size_t bytesPerPixel, ReadPage read);

  // Throws what reading a page throws.
  void ReadRow(std::uint8_t* row) override;

 private:
  void StoreLine();
  void StorePage();

  std::vector<SheetArea> cells_;
  std::size_t pages_;
  ReadPage read_;
  std::vector<std::uint8_t> white_;
  ScratchFile scratch_;
  std::size_t next_ = 0;                             // cell
  std::uint32_t y_ = 0, lineTop_ = 0, lineEnd_ = 0;  // of the sheet, and of the cells in the file
};

}  // namespace corvane
