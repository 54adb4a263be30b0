// SPDX-License-Identifier: MIT
#include "app/report/difference.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <numeric>
#include <utility>

#include "app/report/press_check.h"
#include "app/support/interrupt.h"
#include "app/support/json.h"
#include "app/support/message.h"
#include "app/support/units.h"

namespace corvane {
namespace {

// Cells this far apart, and nearer, are one region.
constexpr int kReach = 3;

// A cell with dots that differ, and where in it.
struct CellDifference {
  std::uint32_t column = 0, row = 0;
  std::array<std::uint32_t, kInkCount> more{}, fewer{};
  std::uint32_t left = std::numeric_limits<std::uint32_t>::max(), top = 0, right = 0, bottom = 0;
};

// Collects the dots that differ, row by row, in cells.
class DifferenceFinder {
 public:
  DifferenceFinder(const PageShape& page, const CellGrid& grid)
      : page_(page), grid_(grid), places_(grid.Cells()) {
    for (const PlaneShape& plane : page.planes) {
      finestDpi_ = std::max(finestDpi_, plane.horizontalDpi);
    }
  }

  double FinestDpi() const { return finestDpi_; }
  std::vector<CellDifference>& Cells() { return cells_; }

  // Whether the row is another one.
  bool AddRow(std::uint32_t y, const std::uint8_t* first, const std::uint8_t* second) {
    if (std::memcmp(first, second, page_.rowBytes) == 0) return false;
    const auto row = std::min(
        static_cast<std::uint32_t>((y + 0.5) / page_.verticalDpi * grid_.perInch), grid_.rows - 1);
    for (const PlaneShape& plane : page_.planes) {
      const std::uint8_t* const a = first + plane.offset;
      const std::uint8_t* const b = second + plane.offset;
      for (std::size_t i = 0; i < plane.bytes; ++i) {
        for (unsigned rest = a[i] ^ b[i]; rest != 0;) {
          const int leading = std::countl_zero(static_cast<std::uint8_t>(rest));
          rest &= ~(0x80u >> leading);
          const bool more = (b[i] & 0x80 >> leading) != 0;
          AddDot(plane, static_cast<std::uint32_t>(8 * i) + static_cast<std::uint32_t>(leading), y,
                 row, more);
        }
      }
    }
    return true;
  }

 private:
  void AddDot(const PlaneShape& plane, std::uint32_t x, std::uint32_t y, std::uint32_t row,
              bool more) {
    const auto column =
        std::min(static_cast<std::uint32_t>((x + 0.5) / plane.horizontalDpi * grid_.perInch),
                 grid_.columns - 1);
    std::uint32_t& place = places_[std::size_t{row} * grid_.columns + column];
    if (place == 0) {
      cells_.emplace_back();
      cells_.back().column = column;
      cells_.back().row = row;
      cells_.back().top = y;
      place = static_cast<std::uint32_t>(cells_.size());
    }
    CellDifference& cell = cells_[place - 1];
    (more ? cell.more : cell.fewer)[static_cast<std::size_t>(plane.ink)] += 1u << plane.bit;
    const auto scale = static_cast<std::uint32_t>(std::lround(finestDpi_ / plane.horizontalDpi));
    cell.left = std::min(cell.left, x * scale);
    cell.right = std::max(cell.right, x * scale + scale - 1);
    cell.bottom = y;
  }

  const PageShape& page_;
  CellGrid grid_;
  double finestDpi_ = 0;
  std::vector<std::uint32_t> places_;  // in cells_, from 1; 0: none
  std::vector<CellDifference> cells_;
};

std::vector<std::string> FormDifferences(const PageShape& a, const PageShape& b) {
  std::vector<std::string> found;
  if (a.mode != b.mode) {
    found.push_back(fmt::format("print mode {} and {}", static_cast<int>(a.mode->descriptor),
                                static_cast<int>(b.mode->descriptor)));
  }
  if (a.rows != b.rows) found.push_back(fmt::format("{} and {} rows", a.rows, b.rows));
  if (a.verticalDpi != b.verticalDpi) {
    found.push_back(fmt::format("{} and {} rows per inch", a.verticalDpi, b.verticalDpi));
  }
  const auto names = [](const PageShape& page) {
    std::string text;
    for (const PlaneShape& plane : page.planes) text += (text.empty() ? "" : ", ") + plane.name;
    return text;
  };
  if (names(a) != names(b)) {
    found.push_back(fmt::format("planes {} and {}", names(a), names(b)));
    return found;
  }
  for (std::size_t i = 0; i < a.planes.size(); ++i) {
    const PlaneShape &p = a.planes[i], &q = b.planes[i];
    if (p.width == q.width && p.horizontalDpi == q.horizontalDpi) continue;
    found.push_back(fmt::format("plane {} of {} pixels at {} per inch and {} at {}", p.name,
                                p.width, p.horizontalDpi, q.width, q.horizontalDpi));
  }
  return found;
}

DropCells CountDrops(SeparationReader& reader, const CellGrid& grid) {
  DropCells cells(reader.Shape(), grid);
  CellRowCounter counter(reader.Shape(), grid,
                         [&](std::uint32_t row, const std::vector<std::uint32_t>& drops) {
                           cells.Add(row, drops, grid.columns, 1);
                         });
  reader.GoTo(0);
  for (std::uint32_t row = 0; row < reader.Shape().rows; ++row) {
    ThrowIfInterrupted();
    counter.AddRow(reader.ReadRow());
  }
  counter.Finish();
  return cells;
}

// The sets of cells that lie near one another, by their places in `cells`.
std::vector<std::vector<std::size_t>> NearOnes(const std::vector<CellDifference>& cells,
                                               const CellGrid& grid) {
  std::vector<std::uint32_t> places(grid.Cells());
  const auto at = [&](std::int64_t column, std::int64_t row) -> std::uint32_t& {
    return places[static_cast<std::size_t>(row * grid.columns + column)];
  };
  for (std::size_t i = 0; i < cells.size(); ++i) {
    at(cells[i].column, cells[i].row) = static_cast<std::uint32_t>(i + 1);
  }
  std::vector<std::vector<std::size_t>> sets;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (std::exchange(at(cells[i].column, cells[i].row), 0) == 0) continue;
    std::vector<std::size_t> set = {i};
    for (std::size_t next = 0; next < set.size(); ++next) {
      const std::int64_t column = cells[set[next]].column, row = cells[set[next]].row;
      const std::int64_t bottom = std::min<std::int64_t>(row + kReach, grid.rows - 1);
      const std::int64_t right = std::min<std::int64_t>(column + kReach, grid.columns - 1);
      for (std::int64_t y = std::max<std::int64_t>(row - kReach, 0); y <= bottom; ++y) {
        for (std::int64_t x = std::max<std::int64_t>(column - kReach, 0); x <= right; ++x) {
          const std::uint32_t place = std::exchange(at(x, y), 0);
          if (place != 0) set.push_back(place - 1);
        }
      }
    }
    sets.push_back(std::move(set));
  }
  return sets;
}

// What the colours of both prints are, cell by cell.
struct ColouredCells {
  DropCells first, second;
  const CellColours& colours;

  double Difference(std::uint32_t column, std::uint32_t row) const {
    return DeltaE2000(colours.Lab(colours.Amounts(first, column, row)),
                      colours.Lab(colours.Amounts(second, column, row)));
  }
};

DifferentRegion RegionOf(const std::vector<CellDifference>& cells,
                         const std::vector<std::size_t>& set, const ColouredCells& coloured,
                         const PageShape& page, double finestDpi) {
  DifferentRegion region;
  region.left = region.top = std::numeric_limits<std::uint32_t>::max();
  double sum = 0;
  for (const std::size_t i : set) {
    const CellDifference& cell = cells[i];
    region.left = std::min(region.left, cell.left);
    region.top = std::min(region.top, cell.top);
    region.right = std::max(region.right, cell.right);
    region.bottom = std::max(region.bottom, cell.bottom);
    for (std::size_t ink = 0; ink < kInkCount; ++ink) {
      region.change.more[ink] += cell.more[ink];
      region.change.fewer[ink] += cell.fewer[ink];
    }
    const double difference = coloured.Difference(cell.column, cell.row);
    region.mostDifference = std::max(region.mostDifference, difference);
    sum += difference;
  }
  region.meanDifference = sum / static_cast<double>(set.size());
  region.window = {region.left / finestDpi, region.top / page.verticalDpi,
                   (region.right - region.left + 1) / finestDpi,
                   (region.bottom - region.top + 1) / page.verticalDpi};
  return region;
}

nlohmann::ordered_json ChangeJson(const DropChange& change) {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  for (std::size_t ink = 0; ink < kInkCount; ++ink) {
    if (change.more[ink] == 0 && change.fewer[ink] == 0) continue;
    json[kInkNames[ink]] = {{"more", change.more[ink]}, {"fewer", change.fewer[ink]}};
  }
  return json;
}

}  // namespace

std::string ChangeText(const DropChange& change) {
  std::string text;
  for (std::size_t ink = 0; ink < kInkCount; ++ink) {
    if (change.more[ink] == 0 && change.fewer[ink] == 0) continue;
    text += text.empty() ? "" : ", ";
    text += kInkNames[ink];
    if (change.more[ink] > 0) text += fmt::format(" +{}", change.more[ink]);
    if (change.fewer[ink] > 0) text += fmt::format(" -{}", change.fewer[ink]);
  }
  return text;
}

std::uint64_t DropChange::Drops() const {
  return std::accumulate(more.begin(), more.end(), std::uint64_t{0}) +
         std::accumulate(fewer.begin(), fewer.end(), std::uint64_t{0});
}

void DropChange::Add(const DropChange& other) {
  for (std::size_t ink = 0; ink < kInkCount; ++ink) {
    more[ink] += other.more[ink];
    fewer[ink] += other.fewer[ink];
  }
}

PrintComparison ComparePrints(SeparationReader& first, SeparationReader& second,
                              const InkData& inks, int media) {
  const PageShape& page = first.Shape();
  PrintComparison comparison;
  comparison.otherForm = FormDifferences(page, second.Shape());
  if (!comparison.otherForm.empty()) return comparison;

  const CellGrid grid = JudgedGrid(page);
  DifferenceFinder finder(page, grid);
  comparison.rows = page.rows;
  comparison.cellsPerInch = grid.perInch;
  for (std::uint32_t row = 0; row < page.rows; ++row) {
    ThrowIfInterrupted();
    const std::uint8_t* const a = first.ReadRow();
    if (finder.AddRow(row, a, second.ReadRow())) ++comparison.rowsThatDiffer;
  }
  if (comparison.rowsThatDiffer == 0) return comparison;

  const CellColours colours(inks, media, *page.mode);
  const ColouredCells coloured = {CountDrops(first, grid), CountDrops(second, grid), colours};
  std::vector<DifferentRegion>& regions = comparison.regions;
  for (const auto& set : NearOnes(finder.Cells(), grid)) {
    regions.push_back(RegionOf(finder.Cells(), set, coloured, page, finder.FinestDpi()));
    comparison.change.Add(regions.back().change);
  }
  std::ranges::stable_sort(regions, std::greater<>(),
                           [](const DifferentRegion& region) { return region.change.Drops(); });
  if (regions.size() > kMostRegions) {
    comparison.furtherRegions = regions.size() - kMostRegions;
    regions.resize(kMostRegions);
  }
  return comparison;
}

std::string ComparisonText(const PrintComparison& comparison, const std::string& first,
                           const std::string& second) {
  const std::string both = Printable(first) + " and " + Printable(second);
  if (!comparison.otherForm.empty()) {
    return fmt::format("{} differ in form: {}\n", both,
                       Printable(fmt::format("{}", fmt::join(comparison.otherForm, "; "))));
  }
  if (comparison.Equal()) return fmt::format("{} are equal, {} rows\n", both, comparison.rows);
  std::string text =
      fmt::format("{} differ in {} drops, {} of {} rows: {}\n", both, comparison.change.Drops(),
                  comparison.rowsThatDiffer, comparison.rows, ChangeText(comparison.change));
  for (const DifferentRegion& region : comparison.regions) {
    const PageWindow& window = region.window;
    text += fmt::format(
        "  {:.2f},{:.2f},{:.2f},{:.2f} mm, pixels {}-{} of rows {}-{}: {}, dE {:.2f}, mean "
        "{:.2f}\n",
        window.left * kMillimetresPerInch, window.top * kMillimetresPerInch,
        window.width * kMillimetresPerInch, window.height * kMillimetresPerInch, region.left,
        region.right, region.top, region.bottom, ChangeText(region.change), region.mostDifference,
        region.meanDifference);
  }
  if (comparison.furtherRegions > 0) {
    text += fmt::format("  and {} regions with fewer drops\n", comparison.furtherRegions);
  }
  return text;
}

std::string ComparisonJson(const PrintComparison& comparison, const std::string& first,
                           const std::string& second) {
  using Json = nlohmann::ordered_json;
  Json regions = Json::array();
  for (const DifferentRegion& region : comparison.regions) {
    regions.push_back(
        {{"left", region.left},
         {"top", region.top},
         {"right", region.right},
         {"bottom", region.bottom},
         {"millimetres",
          {region.window.left * kMillimetresPerInch, region.window.top * kMillimetresPerInch,
           region.window.width * kMillimetresPerInch, region.window.height * kMillimetresPerInch}},
         {"inks", ChangeJson(region.change)},
         {"mostDifference", region.mostDifference},
         {"meanDifference", region.meanDifference}});
  }
  return JsonText(Json{{"first", first},
                       {"second", second},
                       {"equal", comparison.Equal()},
                       {"otherForm", comparison.otherForm},
                       {"rows", comparison.rows},
                       {"rowsThatDiffer", comparison.rowsThatDiffer},
                       {"drops", comparison.change.Drops()},
                       {"inks", ChangeJson(comparison.change)},
                       {"cellsPerInch", comparison.cellsPerInch},
                       {"regions", regions},
                       {"furtherRegions", comparison.furtherRegions}}) +
         '\n';
}

}  // namespace corvane
