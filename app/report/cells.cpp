// SPDX-License-Identifier: MIT
#include "app/report/cells.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "app/inks/bit_count.h"
#include "app/report/cell_counts.h"

namespace corvane {
namespace {

// Terms of an ink file may add up to anything.
constexpr double kLeastDensity = -1, kMostDensity = 20;
constexpr double kRounding = 1e-6;  // of a cell: sizes are quotients

CellGrid GridOf(double width, double height, double perInch) {
  CellGrid grid;
  grid.perInch = perInch;
  grid.pageWidth = width;
  grid.pageHeight = height;
  const auto cells = [&](double inches) {
    return static_cast<std::uint32_t>(std::max(1.0, std::ceil(inches * perInch - kRounding)));
  };
  grid.columns = cells(width);
  grid.rows = cells(height);
  return grid;
}

}  // namespace

double CellGrid::Width(std::uint32_t column) const {
  return std::min(1 / perInch, pageWidth - column / perInch);
}

double CellGrid::Height(std::uint32_t row) const {
  return std::min(1 / perInch, pageHeight - row / perInch);
}

CellGrid MakeCellGrid(const PageShape& page, double finest, std::size_t most) {
  double width = 0;
  for (const PlaneShape& plane : page.planes) {
    width = std::max(width, plane.width / plane.horizontalDpi);
  }
  const double height = page.rows / page.verticalDpi;
  for (double part = 1;; ++part) {
    const CellGrid grid = GridOf(width, height, finest / part);
    if (grid.Cells() <= std::max<std::size_t>(most, 1)) return grid;
  }
}

CellGrid Coarser(const CellGrid& grid, std::uint32_t parts) {
  CellGrid coarse = GridOf(grid.pageWidth, grid.pageHeight, grid.perInch / parts);
  // Which rounding would give one less, or more.
  coarse.columns = (grid.columns + parts - 1) / parts;
  coarse.rows = (grid.rows + parts - 1) / parts;
  return coarse;
}

std::vector<Ink> InksOf(const PageShape& page) {
  std::vector<Ink> inks;
  for (const PlaneShape& plane : page.planes) inks.push_back(plane.ink);
  std::ranges::sort(inks);
  inks.erase(std::unique(inks.begin(), inks.end()), inks.end());
  return inks;
}

CellRowCounter::CellRowCounter(const PageShape& page, const CellGrid& grid, Output output)
    : grid_(grid), output_(std::move(output)), verticalDpi_(page.verticalDpi) {
  const std::vector<Ink> inks = InksOf(page);
  for (const PlaneShape& shape : page.planes) {
    Plane plane;
    plane.offset = shape.offset;
    plane.bytes = shape.bytes;
    plane.bit = shape.bit;
    plane.ink = static_cast<std::size_t>(std::ranges::find(inks, shape.ink) - inks.begin());
    for (std::uint32_t column = 0; column <= grid.columns; ++column) {
      const double first = std::ceil(column / grid.perInch * shape.horizontalDpi - 0.5 - kRounding);
      plane.first.push_back(
          static_cast<std::uint32_t>(std::clamp(first, 0.0, double{1} * shape.width)));
    }
    plane.first.back() = shape.width;
    planes_.push_back(std::move(plane));
  }
  drops_.resize(inks.size() * grid.columns);
}

void CellRowCounter::AddRow(const std::uint8_t* row) {
  static const auto addCellCounts =
      CORVANE_OF_LEVEL(SelectedCpuLevel(), &plain::AddCellCounts, AddCellCounts);
  const auto cellRow =
      static_cast<std::uint32_t>((row_ + 0.5) / verticalDpi_ * grid_.perInch + kRounding);
  ++row_;
  FinishCellRows(std::min(cellRow, grid_.rows - 1));
  static const auto countSetBits =
      CORVANE_OF_LEVEL(SelectedCpuLevel(), &plain::CountSetBits, CountSetBits);
  for (Plane& plane : planes_) {
    const std::uint8_t* const bits = row + plane.offset;
    const std::uint64_t set = countSetBits(bits, plane.bytes);
    // Most planes of most rows hold nothing.
    if (set == 0) continue;
    plane.drops += set << plane.bit;
    addCellCounts(bits, plane.first.data(), grid_.columns, plane.bit,
                  drops_.data() + plane.ink * grid_.columns);
  }
}

void CellRowCounter::FinishCellRows(std::uint32_t end) {
  for (; cellRow_ < end; ++cellRow_) {
    output_(cellRow_, drops_);
    std::ranges::fill(drops_, 0);
  }
}

void CellRowCounter::Finish() { FinishCellRows(grid_.rows); }

DropCells::DropCells(const PageShape& page, const CellGrid& cells)
    : grid(cells), inks(InksOf(page)) {
  drops.assign(inks.size(), std::vector<std::uint32_t>(grid.Cells()));
}

void DropCells::Add(std::uint32_t cellRow, const std::vector<std::uint32_t>& rowDrops,
                    std::uint32_t columns, std::uint32_t cellsPerCell) {
  for (std::size_t ink = 0; ink < inks.size(); ++ink) {
    const std::uint32_t* const from = rowDrops.data() + ink * columns;
    std::uint32_t* const to =
        drops[ink].data() + std::size_t{cellRow / cellsPerCell} * grid.columns;
    for (std::uint32_t column = 0; column < columns; ++column) {
      to[column / cellsPerCell] += from[column];
    }
  }
}

DropCells Coarser(const DropCells& cells, std::uint32_t parts) {
  DropCells coarse;
  coarse.grid = Coarser(cells.grid, parts);
  coarse.inks = cells.inks;
  for (const std::vector<std::uint32_t>& drops : cells.drops) {
    std::vector<std::uint32_t> sums(coarse.grid.Cells());
    for (std::size_t i = 0; i < drops.size(); ++i) {
      const std::size_t column = i % cells.grid.columns, row = i / cells.grid.columns;
      sums[row / parts * coarse.grid.columns + column / parts] += drops[i];
    }
    coarse.drops.push_back(std::move(sums));
  }
  return coarse;
}

CellColours::CellColours(const InkData& inks, int media, const PrintMode& mode)
    : model_(inks, media) {
  for (std::size_t i = 0; i < kInkCount; ++i) {
    const Ink ink = static_cast<Ink>(i);
    const double drops = DropsPerSquareInch(mode, ink);
    fullArea_[i] = drops > 0 ? 1 / drops : 0;
    for (int step = 0; step <= kSteps; ++step) {
      densities_[i].push_back(model_.InkDensity(ink, static_cast<double>(step) / kStepsOfFull));
    }
  }
}

Triple CellColours::Bands(const InkAmounts& amounts) const {
  Triple density{};
  bool blank = true;
  for (std::size_t ink = 0; ink < kInkCount; ++ink) {
    if (amounts[ink] <= 0) continue;
    blank = false;
    const double position = std::min(amounts[ink] * kStepsOfFull, double{kSteps});
    const auto step = std::min(static_cast<std::size_t>(position), std::size_t{kSteps - 1});
    const Triple &low = densities_[ink][step], &high = densities_[ink][step + 1];
    const double part = position - static_cast<double>(step);
    for (std::size_t band = 0; band < 3; ++band) {
      density[band] += low[band] + part * (high[band] - low[band]);
    }
  }
  if (blank) return {1, 1, 1};
  if (model_.HasOverprints()) {
    const Triple overprint = model_.OverprintDensity(amounts);
    for (std::size_t band = 0; band < 3; ++band) density[band] += overprint[band];
  }
  Triple bands;
  for (std::size_t band = 0; band < 3; ++band) {
    bands[band] =
        std::exp(-std::numbers::ln10 * std::clamp(density[band], kLeastDensity, kMostDensity));
  }
  return bands;
}

InkAmounts CellColours::Amounts(const DropCells& cells, std::uint32_t column,
                                std::uint32_t row) const {
  const double area = cells.grid.Width(column) * cells.grid.Height(row);
  const std::size_t cell = std::size_t{row} * cells.grid.columns + column;
  InkAmounts amounts{};
  for (std::size_t i = 0; i < cells.inks.size(); ++i) {
    amounts[static_cast<std::size_t>(cells.inks[i])] =
        Amount(cells.inks[i], cells.drops[i][cell], area);
  }
  return amounts;
}

}  // namespace corvane
