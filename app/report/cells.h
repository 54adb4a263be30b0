// SPDX-License-Identifier: MIT
//
// A page as a grid of cells, and the drops of each ink in them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "app/inks/ink_model.h"
#include "app/page/page_sink.h"

namespace corvane {

// Cells lie in rows from the top left corner of the page; those at its right and lower edges may
// be smaller. A pixel belongs to the cell that holds its centre.
struct CellGrid {
  double perInch = 0;
  std::uint32_t columns = 0, rows = 0;
  double pageWidth = 0, pageHeight = 0;  // inches

  std::size_t Cells() const { return std::size_t{columns} * rows; }
  double Width(std::uint32_t column) const;  // inches
  double Height(std::uint32_t row) const;    // inches
};

// As fine as `most` cells allow: `finest` cells per inch, or a whole part of that.
CellGrid MakeCellGrid(const PageShape& page, double finest, std::size_t most);
// The grid whose cells are `parts` by `parts` of another's.
CellGrid Coarser(const CellGrid& grid, std::uint32_t parts);

// The inks of a page's planes, in the order of Ink.
std::vector<Ink> InksOf(const PageShape& page);

// Counts the drops of a page's rows as they come. Rows need 8 bytes of room behind them.
class CellRowCounter {
 public:
  // `drops` has a count for each column, ink after ink.
  using Output =
      std::function<void(std::uint32_t cellRow, const std::vector<std::uint32_t>& drops)>;

  CellRowCounter(const PageShape& page, const CellGrid& grid, Output output);

  void AddRow(const std::uint8_t* row);
  // After the last row.
  void Finish();

  // Drops of a plane of the page, of the rows so far.
  std::uint64_t Drops(std::size_t plane) const { return planes_[plane].drops; }

 private:
  struct Plane {
    std::size_t offset, bytes;
    int bit;
    std::size_t ink;                   // place among the page's
    std::vector<std::uint32_t> first;  // pixel of each cell, and the end
    std::uint64_t drops = 0;           // of the rows so far
  };

  void FinishCellRows(std::uint32_t end);

  CellGrid grid_;
  Output output_;
  double verticalDpi_;
  std::vector<Plane> planes_;
  std::vector<std::uint32_t> drops_;
  std::uint32_t row_ = 0, cellRow_ = 0;
};

// The drops of all cells.
struct DropCells {
  CellGrid grid;
  std::vector<Ink> inks;
  std::vector<std::vector<std::uint32_t>> drops;  // for each ink, row by row

  DropCells() = default;
  DropCells(const PageShape& page, const CellGrid& cells);
  // Adds a row of cells as CellRowCounter gives it, of a grid of which `cellsPerCell` make one
  // of these, each way.
  void Add(std::uint32_t cellRow, const std::vector<std::uint32_t>& rowDrops, std::uint32_t columns,
           std::uint32_t cellsPerCell);
};

DropCells Coarser(const DropCells& cells, std::uint32_t parts);

// What a page's drops look like: the colour of a cell is that of an even tint of its drops.
class CellColours {
 public:
  // `media` is 0..5.
  CellColours(const InkData& inks, int media, const PrintMode& mode);

  // The ink of `drops` drops on a cell of `area` square inches; 1 is full strength.
  double Amount(Ink ink, double drops, double area) const {
    return drops * fullArea_[static_cast<std::size_t>(ink)] / area;
  }
  InkAmounts Amounts(const DropCells& cells, std::uint32_t column, std::uint32_t row) const;

  // Relative to the paper.
  Triple Bands(const InkAmounts& amounts) const;
  Triple Lab(const InkAmounts& amounts) const { return LabFromBands(Bands(amounts)); }

  const PrintModel& Model() const { return model_; }
  double FullArea(Ink ink) const { return fullArea_[static_cast<std::size_t>(ink)]; }

  // The density of an ink alone, by steps of its amount, straight in between.
  static constexpr int kStepsOfFull = 128;
  static constexpr int kSteps = 4 * kStepsOfFull;  // amounts above are taken for the last
  const std::vector<Triple>& Densities(Ink ink) const {
    return densities_[static_cast<std::size_t>(ink)];
  }

 private:
  PrintModel model_;
  std::array<double, kInkCount> fullArea_{};  // square inches that a drop covers at full strength
  std::array<std::vector<Triple>, kInkCount> densities_;  // kSteps + 1 of each
};

}  // namespace corvane
