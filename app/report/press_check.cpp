// SPDX-License-Identifier: MIT
#include "app/report/press_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "app/inks/bit_count.h"
#include "app/preview/sink.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/units.h"

namespace corvane {
namespace {

constexpr double kFinestPerInch = 150;  // of the picture
constexpr std::size_t kMostFineCells = 2'300'000;
constexpr std::uint32_t kFineInJudged = 3;
constexpr std::uint32_t kSmallestLevel = 256;  // pixels of the longer side of the coarsest picture

// Squares that are picked: this large, or smaller where that would be more bytes.
constexpr double kAreaInches = 0.28;
constexpr double kMostAreaBytes = 96 << 10;
// Of all that were asked for.
constexpr double kMostAskedBytes = 1 << 20;

CellGrid FineGrid(const PageShape& page) {
  return MakeCellGrid(page, kFinestPerInch, kMostFineCells);
}

double BytesPerSquareInch(const PageShape& page) {
  double bytes = 0;
  for (const PlaneShape& plane : page.planes) bytes += plane.horizontalDpi * page.verticalDpi / 8;
  return bytes;
}

// What one reading of the print gives: drops by plane and by cell, and the finest picture.
class Survey {
 public:
  Survey(const PageShape& page, const CellColours& colours)
      : colours_(colours),
        fine_(FineGrid(page)),
        cells_(page, JudgedGrid(page)),
        counter_(page, fine_, [this](std::uint32_t row, const std::vector<std::uint32_t>& drops) {
          cells_.Add(row, drops, fine_.columns, kFineInJudged);
          AddPixels(row, drops);
        }) {
    picture_.perInch = fine_.perInch;
    picture_.width = fine_.columns;
    picture_.height = fine_.rows;
    picture_.pixels.reserve(std::size_t{3} * fine_.Cells());
  }

  void AddRow(const std::uint8_t* row) { counter_.AddRow(row); }

  void Finish() { counter_.Finish(); }

  std::uint64_t Drops(std::size_t plane) const { return counter_.Drops(plane); }
  DropCells& Cells() { return cells_; }
  PictureLevel& Picture() { return picture_; }

 private:
  void AddPixels(std::uint32_t row, const std::vector<std::uint32_t>& drops) {
    const Triple& paper = colours_.Model().PaperBands();
    const double height = fine_.Height(row);
    InkAmounts amounts{};
    for (std::uint32_t column = 0; column < fine_.columns; ++column) {
      const double area = height * fine_.Width(column);
      for (std::size_t i = 0; i < cells_.inks.size(); ++i) {
        const Ink ink = cells_.inks[i];
        amounts[static_cast<std::size_t>(ink)] =
            colours_.Amount(ink, drops[i * fine_.columns + column], area);
      }
      const Triple bands = colours_.Bands(amounts);
      const Triple linear =
          LinearSrgbFromBands({bands[0] * paper[0], bands[1] * paper[1], bands[2] * paper[2]});
      for (const double part : linear) picture_.pixels.push_back(SrgbByte(part));
    }
  }

  const CellColours& colours_;
  CellGrid fine_;
  DropCells cells_;
  PictureLevel picture_;
  CellRowCounter counter_;
};

// Half as fine: the mean light of two by two pixels.
PictureLevel HalfOf(const PictureLevel& fine) {
  std::array<double, 256> light;
  for (std::size_t i = 0; i < light.size(); ++i) {
    const double encoded = static_cast<double>(i) / 255;
    light[i] = LinearFromSrgb({encoded, encoded, encoded})[0];
  }
  PictureLevel half;
  half.perInch = fine.perInch / 2;
  half.width = (fine.width + 1) / 2;
  half.height = (fine.height + 1) / 2;
  half.pixels.reserve(std::size_t{3} * half.width * half.height);
  for (std::uint32_t y = 0; y < half.height; ++y) {
    const std::size_t rows[2] = {2 * y, std::min(2 * y + 1, fine.height - 1)};
    for (std::uint32_t x = 0; x < half.width; ++x) {
      const std::size_t columns[2] = {2 * x, std::min(2 * x + 1, fine.width - 1)};
      for (std::size_t i = 0; i < 3; ++i) {
        double sum = 0;
        for (const std::size_t row : rows) {
          for (const std::size_t column : columns) {
            sum += light[fine.pixels[3 * (row * fine.width + column) + i]];
          }
        }
        half.pixels.push_back(SrgbByte(sum / 4));
      }
    }
  }
  return half;
}

std::vector<PlaneUse> PlaneUses(const PageShape& page, const Survey& survey,
                                const PressCheckSettings& settings) {
  std::vector<PlaneUse> uses;
  for (std::size_t i = 0; i < page.planes.size(); ++i) {
    const PlaneShape& plane = page.planes[i];
    PlaneUse use;
    use.name = plane.name;
    use.ink = plane.ink;
    use.drops = survey.Drops(i);
    use.nanolitres = static_cast<double>(use.drops) *
                     DropPicolitres(settings.inks, *page.mode, plane.ink) / 1000;
    use.cost = settings.prices.Of(
        {kInkNames[static_cast<std::size_t>(plane.ink)], use.drops, use.nanolitres});
    uses.push_back(use);
  }
  return uses;
}

CellFacts FactsOf(const DropCells& cells, const CellColours& colours) {
  CellFacts facts;
  for (std::uint32_t row = 0; row < cells.grid.rows; ++row) {
    ThrowIfInterrupted();
    for (std::uint32_t column = 0; column < cells.grid.columns; ++column) {
      const InkAmounts amounts = colours.Amounts(cells, column, row);
      float total = 0;
      for (const double amount : amounts) total += static_cast<float>(amount);
      facts.amounts.push_back(amounts);
      facts.totalInk.push_back(total);
      facts.lab.push_back(colours.Lab(amounts));
    }
  }
  return facts;
}

PageWindow CellWindow(const CellGrid& grid, std::size_t cell) {
  const auto column = static_cast<std::uint32_t>(cell % grid.columns);
  const auto row = static_cast<std::uint32_t>(cell / grid.columns);
  return {column / grid.perInch, row / grid.perInch, grid.Width(column), grid.Height(row)};
}

InkLoad LoadOf(const CellFacts& facts, const CellGrid& grid, double limit) {
  InkLoad load;
  load.limit = limit;
  for (std::size_t cell = 0; cell < facts.totalInk.size(); ++cell) {
    const double total = static_cast<double>(facts.totalInk[cell]);
    load.cellsAbove += total > limit * kUnevenness;
    if (total <= load.most) continue;
    load.most = total;
    load.mostAt = CellWindow(grid, cell);
  }
  return load;
}

std::uint32_t PickedSide(const PageShape& page, const CellGrid& grid) {
  const double side = std::min(kAreaInches, std::sqrt(kMostAreaBytes / BytesPerSquareInch(page)));
  return static_cast<std::uint32_t>(std::max(1.0, std::floor(side * grid.perInch)));
}

// The pixels and rows of the print that have their centres in the window.
ZoomArea LayOut(const std::string& name, const PageWindow& window, const PageShape& page) {
  constexpr double kRounding = 1e-6;
  const auto before = [&](double inches, double dpi, std::uint32_t most) {
    return static_cast<std::uint32_t>(
        std::clamp(std::ceil(inches * dpi - 0.5 - kRounding), 0.0, double{1} * most));
  };
  ZoomArea area;
  area.name = name;
  area.window = window;
  area.firstRow = before(window.top, page.verticalDpi, page.rows);
  area.rows = before(window.top + window.height, page.verticalDpi, page.rows) - area.firstRow;
  for (const PlaneShape& shape : page.planes) {
    ZoomArea::Plane plane;
    plane.firstPixel = before(window.left, shape.horizontalDpi, shape.width);
    plane.pixels =
        before(window.left + window.width, shape.horizontalDpi, shape.width) - plane.firstPixel;
    plane.bits.reserve(std::size_t{(plane.pixels + 7) / 8} * area.rows);
    area.planes.push_back(std::move(plane));
  }
  return area;
}

// Appends a row's pixels of the area; the row has room behind it.
void TakeRow(const std::uint8_t* row, const PlaneShape& shape, ZoomArea::Plane& plane) {
  const std::uint8_t* from = row + shape.offset + plane.firstPixel / 8;
  const unsigned shift = plane.firstPixel % 8;
  for (std::uint32_t pixel = 0; pixel < plane.pixels; pixel += 8, ++from) {
    auto byte = static_cast<std::uint8_t>(from[0] << shift | from[1] >> (8 - shift));
    if (plane.pixels - pixel < 8)
      byte &= static_cast<std::uint8_t>(0xFF00 >> (plane.pixels - pixel));
    plane.bits.push_back(byte);
  }
}

void CountDrops(const PageShape& page, const DropCells& cells, const CellColours& colours,
                ZoomArea& area) {
  area.drops.assign(cells.inks.size(), 0);
  InkAmounts amounts{};
  const double size = area.window.width * area.window.height;
  for (std::size_t i = 0; i < area.planes.size(); ++i) {
    const auto ink = static_cast<std::size_t>(std::ranges::find(cells.inks, page.planes[i].ink) -
                                              cells.inks.begin());
    const std::vector<std::uint8_t>& bits = area.planes[i].bits;
    area.drops[ink] += plain::CountSetBits(bits.data(), bits.size()) << page.planes[i].bit;
  }
  for (std::size_t i = 0; i < cells.inks.size(); ++i) {
    amounts[static_cast<std::size_t>(cells.inks[i])] =
        colours.Amount(cells.inks[i], static_cast<double>(area.drops[i]), size);
  }
  area.lab = colours.Lab(amounts);
}

// Reads the rows of all areas, from the top.
void FillAreas(SeparationReader& reader, std::vector<ZoomArea>& areas) {
  const PageShape& page = reader.Shape();
  std::vector<std::uint32_t> starts;
  for (const ZoomArea& area : areas) starts.push_back(area.firstRow);
  std::ranges::sort(starts);
  std::uint32_t row = 0;
  for (const std::uint32_t start : starts) {
    row = std::max(row, start);
    for (bool used = true; used && row < page.rows; ++row) {
      used = false;
      const std::uint8_t* bits = nullptr;
      for (ZoomArea& area : areas) {
        if (row < area.firstRow || row - area.firstRow >= area.rows) continue;
        if (!std::exchange(used, true)) {
          ThrowIfInterrupted();
          reader.GoTo(row);
          bits = reader.ReadRow();
        }
        for (std::size_t i = 0; i < area.planes.size(); ++i) {
          TakeRow(bits, page.planes[i], area.planes[i]);
        }
      }
    }
  }
}

std::vector<ZoomArea> LayOutAreas(const PressCheckSettings& settings, const PageShape& page,
                                  const std::vector<PickedArea>& picked, const CellGrid& grid) {
  std::vector<ZoomArea> areas;
  double bytes = 0;
  for (const PickedArea& asked : settings.zoomAreas) {
    PageWindow window = asked.window;
    if (window.left >= grid.pageWidth || window.top >= grid.pageHeight) {
      throw Failure(fmt::format("a zoom area lies outside the page of {:.0f} x {:.0f} mm",
                                grid.pageWidth * kMillimetresPerInch,
                                grid.pageHeight * kMillimetresPerInch));
    }
    window.width = std::min(window.width, grid.pageWidth - window.left);
    window.height = std::min(window.height, grid.pageHeight - window.top);
    bytes += window.width * window.height * BytesPerSquareInch(page);
    areas.push_back(LayOut(asked.name, window, page));
  }
  if (bytes > kMostAskedBytes) {
    throw Failure(fmt::format(
        "the zoom areas are too large: they may have {:.0f} square millimetres in this mode",
        kMostAskedBytes / BytesPerSquareInch(page) * kMillimetresPerInch * kMillimetresPerInch));
  }
  for (const PickedArea& area : picked) areas.push_back(LayOut(area.name, area.window, page));
  return areas;
}

std::string Place(const PageWindow& window) {
  return fmt::format("{:.1f}, {:.1f} mm", window.left * kMillimetresPerInch,
                     window.top * kMillimetresPerInch);
}

void Warn(PressCheck& check) {
  auto& warnings = check.warnings;
  const InkLoad& load = check.load;
  if (load.cellsAbove > 0) {
    warnings.push_back(fmt::format(
        "{} places hold more than {:.0f} % ink, up to {:.0f} % at {}: it may run or not dry",
        load.cellsAbove, load.limit * 100, load.most * 100, Place(load.mostAt)));
  }
  if (!check.wanted) return;
  const DifferenceOver& page = check.wanted->page;
  const auto percent = [&](std::size_t cells) {
    return 100.0 * static_cast<double>(cells) / static_cast<double>(page.cells);
  };
  if (page.clipped > 0) {
    warnings.push_back(fmt::format(
        "{:.1f} % of the page asks for colours that the inks do not have", percent(page.clipped)));
  }
  if (page.faults > 0) {
    warnings.push_back(
        fmt::format("{:.1f} % of the page differs from what is wanted though the inks have it",
                    percent(page.faults)));
  }
}

}  // namespace

PlaneUse PressCheck::Total() const {
  PlaneUse total;
  total.name = "all";
  for (const PlaneUse& use : planes) {
    total.drops += use.drops;
    total.nanolitres += use.nanolitres;
    total.cost += use.cost;
  }
  return total;
}

PageWindow AreaAround(const PageShape& page, const PageWindow& window) {
  const CellGrid grid = JudgedGrid(page);
  const double side = PickedSide(page, grid) / grid.perInch;
  const auto start = [&](double from, double size, double whole) {
    return std::clamp(from + size / 2 - side / 2, 0.0, std::max(0.0, whole - side));
  };
  return {start(window.left, window.width, grid.pageWidth),
          start(window.top, window.height, grid.pageHeight), side, side};
}

CellGrid JudgedGrid(const PageShape& page) { return Coarser(FineGrid(page), kFineInJudged); }

PressCheck CheckPrint(SeparationReader& reader, const std::string& file,
                      const PressCheckSettings& settings, const CellColours& colours,
                      const WantedColours* wanted) {
  const PageShape& page = reader.Shape();
  Survey survey(page, colours);
  reader.GoTo(0);
  for (std::uint32_t row = 0; row < page.rows; ++row) {
    ThrowIfInterrupted();
    survey.AddRow(reader.ReadRow());
  }
  survey.Finish();

  PressCheck check;
  check.file = file;
  check.page = page;
  check.inks = settings.inks.name;
  check.medium = settings.inks.media[static_cast<std::size_t>(settings.media)].name;
  if (settings.prices.Known()) check.currency = settings.prices.currency;
  check.planes = PlaneUses(page, survey, settings);
  check.cells = std::move(survey.Cells());
  check.picture.push_back(std::move(survey.Picture()));
  while (std::max(check.picture.back().width, check.picture.back().height) > kSmallestLevel) {
    check.picture.push_back(HalfOf(check.picture.back()));
  }
  if (wanted != nullptr) check.wanted = CheckAgainst(*wanted, check.cells, colours);
  const CellGrid& grid = check.cells.grid;
  {
    const CellFacts facts = FactsOf(check.cells, colours);
    check.load = LoadOf(facts, grid, colours.Model().InkLimit());
    std::vector<PickedArea> picked;
    if (settings.picksAreas) {
      picked =
          PickAreas(facts, grid, PickedSide(page, grid), check.wanted ? &*check.wanted : nullptr);
    }
    check.areas = LayOutAreas(settings, page, picked, grid);
  }
  FillAreas(reader, check.areas);
  for (ZoomArea& area : check.areas) CountDrops(page, check.cells, colours, area);
  check.facts = settings.facts;
  check.warnings = settings.warnings;
  Warn(check);
  return check;
}

FeedCheck CheckFeed(Movement& movement, const PageShape& page, const Printhead& head) {
  double width = 0;
  for (const PlaneShape& plane : page.planes) {
    width = std::max(width, plane.width / plane.horizontalDpi);
  }
  const PaperSize paper = {"the sheet", width * kMillimetresPerInch,
                           page.rows / page.verticalDpi * kMillimetresPerInch};
  FeedCheck feed;
  try {
    const SwathPlan plan = PlanSwaths(movement, *page.mode, paper, head, false);
    feed.sound = plan.Sound();
    feed.swaths = plan.swaths.size();
    feed.sheetRows = plan.sheetRows;
    feed.checks = plan.checks;
    for (const Swath& swath : plan.swaths) {
      if (feed.regions.empty() || feed.regions.back().region != swath.region) {
        feed.regions.push_back({swath.region, 0, swath.rows});
      }
      FeedRegion& region = feed.regions.back();
      ++region.swaths;
      if (swath.rows.Empty()) continue;
      if (region.rows.Empty()) region.rows = swath.rows;
      region.rows.first = std::min(region.rows.first, swath.rows.first);
      region.rows.last = std::max(region.rows.last, swath.rows.last);
    }
  } catch (const Failure& failure) {
    feed.problem = failure.what();
  }
  return feed;
}

}  // namespace corvane
