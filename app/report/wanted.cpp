// SPDX-License-Identifier: MIT
#include "app/report/wanted.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <numeric>
#include <utility>

#include "app/image/reader.h"
#include "app/image/tags.h"
#include "app/page/place.h"
#include "app/page/placed_image.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/tables/best_inks.h"

namespace corvane {
namespace {

constexpr double kSheetDpi = 300;
constexpr std::uint32_t kZonesAcross = 3, kZonesDown = 4;
// Colours are asked for in steps of this size in Lab, for searches take their time, and no more of
// them than these: those of the most cells come first.
constexpr double kLabStep = 3;
constexpr std::size_t kMostSearches = 1500;
// Encoded values that lie further apart than this, in a cell or in those around it, are an edge.
constexpr int kEdge = 48;
// Lab distance up to which the inks can print a colour.
constexpr double kPrintable = 1.5;

// The light of placed rows, summed over cells.
class LightSums {
 public:
  LightSums(const CellGrid& grid, const Sheet& sheet) : grid_(grid), sheet_(sheet) {
    for (std::size_t i = 0; i < light_.size(); ++i) {
      const double encoded = static_cast<double>(i) / 255;
      light_[i] = LinearFromSrgb({encoded, encoded, encoded})[0];
    }
    sums_.resize(grid.Cells());
    pixels_.resize(grid.Cells());
    darkest_.assign(grid.Cells(), 255);
    lightest_.assign(grid.Cells(), 0);
  }

  void AddRow(const std::uint8_t* rgb) {
    ThrowIfInterrupted();
    const std::uint32_t row = CellOf(row_++, sheet_.verticalDpi, grid_.rows);
    for (std::uint32_t x = 0; x < sheet_.width; ++x, rgb += 3) {
      const std::size_t cell =
          std::size_t{row} * grid_.columns + CellOf(x, sheet_.horizontalDpi, grid_.columns);
      for (std::size_t i = 0; i < 3; ++i) sums_[cell][i] += light_[rgb[i]];
      ++pixels_[cell];
      const auto grey = static_cast<std::uint8_t>((rgb[0] + 2 * rgb[1] + rgb[2]) / 4);
      darkest_[cell] = std::min(darkest_[cell], grey);
      lightest_[cell] = std::max(lightest_[cell], grey);
    }
  }

  // A cell that no pixel of the sheet has its centre in is paper.
  void Finish(WantedColours& wanted) {
    for (std::size_t cell = 0; cell < sums_.size(); ++cell) {
      for (double& sum : sums_[cell]) sum = pixels_[cell] > 0 ? sum / pixels_[cell] : 1.0;
      if (pixels_[cell] == 0) darkest_[cell] = lightest_[cell] = 255;
    }
    wanted.linear = std::move(sums_);
    wanted.darkest = std::move(darkest_);
    wanted.lightest = std::move(lightest_);
  }

 private:
  std::uint32_t CellOf(std::uint32_t pixel, double dpi, std::uint32_t cells) const {
    return std::min(static_cast<std::uint32_t>((pixel + 0.5) / dpi * grid_.perInch), cells - 1);
  }

  const CellGrid& grid_;
  const Sheet& sheet_;
  std::array<double, 256> light_{};
  std::vector<Triple> sums_;
  std::vector<std::uint32_t> pixels_;
  std::vector<std::uint8_t> darkest_, lightest_;
  std::uint32_t row_ = 0;
};

// Calls `take` with a cell and each of its neighbours.
template <typename Take>
void ForEachAround(const CellGrid& grid, std::uint32_t column, std::uint32_t row, Take take) {
  const std::uint32_t right = std::min(column + 1, grid.columns - 1);
  for (std::uint32_t y = row > 0 ? row - 1 : 0; y <= std::min(row + 1, grid.rows - 1); ++y) {
    for (std::uint32_t x = column > 0 ? column - 1 : 0; x <= right; ++x) {
      take(std::size_t{y} * grid.columns + x);
    }
  }
}

// The mean of each cell and its neighbours.
std::vector<Triple> Smoothed(const std::vector<Triple>& cells, const CellGrid& grid) {
  std::vector<Triple> smooth;
  smooth.reserve(cells.size());
  for (std::uint32_t row = 0; row < grid.rows; ++row) {
    for (std::uint32_t column = 0; column < grid.columns; ++column) {
      Triple sum{};
      int count = 0;
      ForEachAround(grid, column, row, [&](std::size_t cell) {
        for (std::size_t i = 0; i < 3; ++i) sum[i] += cells[cell][i];
        ++count;
      });
      for (double& part : sum) part /= count;
      smooth.push_back(sum);
    }
  }
  return smooth;
}

bool LiesOnEdge(const WantedColours& wanted, const CellGrid& grid, std::size_t cell) {
  std::uint8_t darkest = 255, lightest = 0;
  ForEachAround(grid, static_cast<std::uint32_t>(cell % grid.columns),
                static_cast<std::uint32_t>(cell / grid.columns), [&](std::size_t other) {
                  darkest = std::min(darkest, wanted.darkest[other]);
                  lightest = std::max(lightest, wanted.lightest[other]);
                });
  return lightest - darkest > kEdge;
}

std::vector<Triple> PrintedBands(const DropCells& cells, const CellColours& colours) {
  std::vector<Triple> bands;
  bands.reserve(cells.grid.Cells());
  for (std::uint32_t row = 0; row < cells.grid.rows; ++row) {
    for (std::uint32_t column = 0; column < cells.grid.columns; ++column) {
      bands.push_back(colours.Bands(colours.Amounts(cells, column, row)));
    }
  }
  return bands;
}

// Whether the inks of the print can make a colour, remembered in steps.
class Printables {
 public:
  Printables(const CellColours& colours, const std::vector<Ink>& inks)
      : best_(colours.Model(), ChoiceOf(colours, inks)) {}

  // A colour that is asked for in so many cells.
  void Ask(const Triple& lab) { ++asked_[KeyOf(lab)]; }

  void Search() {
    std::vector<std::pair<std::size_t, Key>> order;
    for (const auto& [key, cells] : asked_) order.emplace_back(cells, key);
    std::ranges::sort(order, std::greater<>());
    if (order.size() > kMostSearches) order.resize(kMostSearches);
    for (const auto& [cells, key] : order) {
      ThrowIfInterrupted();
      const Triple lab = {key[0] * kLabStep, key[1] * kLabStep, key[2] * kLabStep};
      printable_[key] = best_.Nearest(lab).distance <= kPrintable;
    }
  }

  // What was never searched for counts as printable: it is shown rather than excused.
  bool Printable(const Triple& lab) const {
    const auto found = printable_.find(KeyOf(lab));
    return found == printable_.end() || found->second;
  }

 private:
  using Key = std::array<int, 3>;

  static InkChoice ChoiceOf(const CellColours& colours, const std::vector<Ink>& inks) {
    const auto has = [&](Ink ink) { return std::ranges::find(inks, ink) != inks.end(); };
    return {has(Ink::cd), has(Ink::K), colours.Model().InkLimit()};
  }

  static Key KeyOf(const Triple& lab) {
    Key key;
    for (std::size_t i = 0; i < 3; ++i) key[i] = static_cast<int>(std::lround(lab[i] / kLabStep));
    return key;
  }

  BestInks best_;
  std::map<Key, std::size_t> asked_;
  std::map<Key, bool> printable_;
};

DifferenceOver Over(const WantedCheck& check, const CellGrid& grid, const std::string& name,
                    std::array<std::uint32_t, 4> cells) {
  const auto [left, top, right, bottom] = cells;
  DifferenceOver over;
  over.name = name;
  over.window = {left / grid.perInch, top / grid.perInch, (right - left) / grid.perInch,
                 (bottom - top) / grid.perInch};
  std::vector<std::uint16_t> values;
  for (std::uint32_t row = top; row < bottom; ++row) {
    for (std::uint32_t column = left; column < right; ++column) {
      const std::size_t cell = std::size_t{row} * grid.columns + column;
      if (check.verdicts[cell] == static_cast<std::uint8_t>(Verdict::Edge)) {
        ++over.edges;
        continue;
      }
      values.push_back(check.difference[cell]);
      over.clipped += check.verdicts[cell] == static_cast<std::uint8_t>(Verdict::Clipped);
      over.faults += check.verdicts[cell] == static_cast<std::uint8_t>(Verdict::Fault);
    }
  }
  over.cells = values.size();
  if (values.empty()) return over;
  over.mean =
      std::accumulate(values.begin(), values.end(), 0.0) / 100 / static_cast<double>(values.size());
  const auto most95 = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) * 95 / 100);
  std::nth_element(values.begin(), most95, values.end());
  over.most95 = *most95 / 100.0;
  over.most = *std::ranges::max_element(values) / 100.0;
  return over;
}

// The page in a few parts, "A1" at the upper left.
void JudgeRegions(const CellGrid& grid, WantedCheck& check) {
  check.page = Over(check, grid, "page", {0, 0, grid.columns, grid.rows});
  for (std::uint32_t down = 0; down < kZonesDown; ++down) {
    for (std::uint32_t across = 0; across < kZonesAcross; ++across) {
      const std::string name = {static_cast<char>('A' + across), static_cast<char>('1' + down)};
      check.regions.push_back(
          Over(check, grid, name,
               {grid.columns * across / kZonesAcross, grid.rows * down / kZonesDown,
                grid.columns * (across + 1) / kZonesAcross, grid.rows * (down + 1) / kZonesDown}));
    }
  }
}

}  // namespace

WantedColours ReadWantedColours(const std::string& image, int page, const CellGrid& grid,
                                const ImagePlacing& placing) {
  const auto pixels = [&](double inches) {
    return static_cast<std::uint32_t>(std::max(1L, std::lround(inches * kSheetDpi)));
  };
  const Sheet sheet = {pixels(grid.pageWidth), pixels(grid.pageHeight), kSheetDpi, kSheetDpi};
  PlacedImage placed = OpenPlaced(OpenImage(image, page), sheet, placing);
  // The colours alone are judged.
  constexpr std::size_t kTaggedBytes = 4;
  if (placed.rows->BytesPerPixel() == kTaggedBytes) placed.rows = DropTags(std::move(placed.rows));
  const Placement& placement = placed.placement;
  WantedColours wanted;
  wanted.image = image;
  wanted.pixelsPerInch =
      placement.width > 0 ? placement.sourceWidth / placement.width * kSheetDpi : 0;
  LightSums sums(grid, sheet);
  PlaceRows(*placed.rows, placement, sheet, [&](const std::uint8_t* row) { sums.AddRow(row); });
  sums.Finish(wanted);
  return wanted;
}

WantedCheck CheckAgainst(const WantedColours& wanted, const DropCells& cells,
                         const CellColours& colours) {
  const std::vector<Triple> printed = Smoothed(PrintedBands(cells, colours), cells.grid);
  const std::vector<Triple> light = Smoothed(wanted.linear, cells.grid);
  WantedCheck check;
  check.image = wanted.image;
  std::vector<Triple> wantedLab;
  Printables printables(colours, cells.inks);
  for (std::size_t cell = 0; cell < printed.size(); ++cell) {
    for (const double part : wanted.linear[cell]) check.srgb.push_back(SrgbByte(part));
    const Triple lab = LabFromBands(BandsFromLinearSrgb(light[cell]));
    const double difference = DeltaE2000(LabFromBands(printed[cell]), lab);
    Verdict verdict = Verdict::Close;
    if (difference > kApart) {
      verdict = LiesOnEdge(wanted, cells.grid, cell) ? Verdict::Edge : Verdict::Fault;
    }
    if (verdict == Verdict::Fault) printables.Ask(lab);
    check.difference.push_back(static_cast<std::uint16_t>(std::lround(difference * 100)));
    check.verdicts.push_back(static_cast<std::uint8_t>(verdict));
    wantedLab.push_back(lab);
  }
  printables.Search();
  for (std::size_t cell = 0; cell < printed.size(); ++cell) {
    std::uint8_t& verdict = check.verdicts[cell];
    if (verdict == static_cast<std::uint8_t>(Verdict::Fault) &&
        !printables.Printable(wantedLab[cell])) {
      verdict = static_cast<std::uint8_t>(Verdict::Clipped);
    }
  }
  JudgeRegions(cells.grid, check);
  return check;
}

}  // namespace corvane
