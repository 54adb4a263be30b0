// SPDX-License-Identifier: MIT
#include "app/report/report_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <numbers>
#include <string_view>
#include <utility>

#include "app/report/packed.h"
#include "app/report/page_files.h"
#include "app/support/interrupt.h"
#include "app/support/json.h"
#include "app/support/markup.h"
#include "app/support/units.h"

namespace corvane {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::uint32_t kTileSide = 512;

std::string WebColour(const Triple& bands, const Triple& paper) {
  const Triple linear =
      LinearSrgbFromBands({bands[0] * paper[0], bands[1] * paper[1], bands[2] * paper[2]});
  return fmt::format("#{:02x}{:02x}{:02x}", SrgbByte(linear[0]), SrgbByte(linear[1]),
                     SrgbByte(linear[2]));
}

std::string PackedFloats(const std::vector<Triple>& triples) {
  std::vector<std::uint8_t> bytes;
  for (const Triple& triple : triples) {
    for (const double value : triple) {
      const auto bits = std::bit_cast<std::uint32_t>(static_cast<float>(value));
      for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<std::uint8_t>(bits >> shift));
      }
    }
  }
  return PackedBytes(bytes);
}

Json InksJson(const PressCheck& check, const CellColours& colours) {
  const PrintModel& model = colours.Model();
  Json inks = Json::array();
  for (const Ink ink : check.cells.inks) {
    InkAmounts full{};
    full[static_cast<std::size_t>(ink)] = 1;
    inks.push_back({{"name", kInkNames[static_cast<std::size_t>(ink)]},
                    {"colour", WebColour(colours.Bands(full), model.PaperBands())},
                    {"fullArea", colours.FullArea(ink)},
                    {"place", static_cast<int>(ink)},
                    {"dye", static_cast<int>(DyeOf(ink))},
                    {"strength", model.Strength(ink)},
                    {"layer", model.LayerDensity(ink)},
                    {"densities", PackedFloats(colours.Densities(ink))}});
  }
  return inks;
}

Json ModelJson(const CellColours& colours, const InkData& inks, int media) {
  const PrintModel& model = colours.Model();
  Json terms = Json::array();
  for (const OverprintTerm& term : inks.overprints) {
    Triple density = term.density;
    for (double& band : density) band *= inks.media[static_cast<std::size_t>(media)].density;
    terms.push_back({{"dyes", term.dyes}, {"inks", term.inks}, {"density", density}});
  }
  return {{"name", inks.name},
          {"measured", inks.measured},
          {"paper", model.PaperBands()},
          {"steps", CellColours::kStepsOfFull},
          {"solids", model.Overprints()},
          {"terms", terms},
          {"mostDye", PrintModel::kMostOverprint}};
}

Json PlanesJson(const PressCheck& check, const CellColours& colours, const InkData& inks) {
  Json planes = Json::array();
  for (const PlaneShape& shape : check.page.planes) {
    const double area = colours.Model().SpotArea(DropPicolitres(inks, *check.page.mode, shape.ink));
    planes.push_back({{"name", shape.name},
                      {"ink", kInkNames[static_cast<std::size_t>(shape.ink)]},
                      {"drops", 1 << shape.bit},
                      {"dpi", shape.horizontalDpi},
                      {"width", shape.width},
                      {"radius", std::sqrt(area / std::numbers::pi) / 1000}});
  }
  return planes;
}

Json AreasJson(const PressCheck& check) {
  Json areas = Json::array();
  for (const ZoomArea& area : check.areas) {
    Json planes = Json::array();
    for (const ZoomArea::Plane& plane : area.planes) {
      planes.push_back({{"first", plane.firstPixel},
                        {"pixels", plane.pixels},
                        {"bits", PackedBytes(plane.bits)}});
    }
    areas.push_back({{"firstRow", area.firstRow}, {"rows", area.rows}, {"planes", planes}});
  }
  return areas;
}

Json LevelsJson(const PressCheck& check) {
  Json levels = Json::array();
  for (const PictureLevel& level : check.picture) {
    levels.push_back({{"perInch", level.perInch},
                      {"width", level.width},
                      {"height", level.height},
                      {"tiles", PackedTiles(level, kTileSide)}});
  }
  return levels;
}

Json DropsJson(const DropCells& cells) {
  Json drops = Json::array();
  for (const auto& ink : cells.drops) drops.push_back(PackedNumbers(ink, cells.grid.columns));
  return drops;
}

// The rows of a linear map.
Json MatrixJson(Triple (*map)(const Triple&)) {
  const std::array<Triple, 3> columns = {map({1, 0, 0}), map({0, 1, 0}), map({0, 0, 1})};
  Json rows = Json::array();
  for (std::size_t i = 0; i < 3; ++i) rows.push_back({columns[0][i], columns[1][i], columns[2][i]});
  return rows;
}

// What is shown for `parts` by `parts` cells together: their mean colour, and the one that differs
// most.
Json WantedJson(const PressCheck& check, const CellGrid& coarse, std::uint32_t parts) {
  const WantedCheck& wanted = *check.wanted;
  const CellGrid& fine = check.cells.grid;
  std::array<std::vector<std::uint32_t>, 3> sums;
  for (auto& sum : sums) sum.resize(coarse.Cells());
  std::vector<std::uint32_t> counts(coarse.Cells()), differences(coarse.Cells()),
      verdicts(coarse.Cells());
  for (std::size_t cell = 0; cell < fine.Cells(); ++cell) {
    const std::size_t column = cell % fine.columns / parts, row = cell / fine.columns / parts;
    const std::size_t shown = row * coarse.columns + column;
    for (std::size_t i = 0; i < 3; ++i) sums[i][shown] += wanted.srgb[3 * cell + i];
    if (counts[shown]++ == 0 || wanted.difference[cell] > differences[shown]) {
      differences[shown] = wanted.difference[cell];
      verdicts[shown] = wanted.verdicts[cell];
    }
  }
  Json srgb = Json::array();
  for (auto& sum : sums) {
    for (std::size_t i = 0; i < sum.size(); ++i) sum[i] /= std::max(counts[i], 1u);
    srgb.push_back(PackedNumbers(sum, coarse.columns));
  }
  return {{"srgb", srgb},
          {"difference", PackedNumbers(differences, coarse.columns)},
          {"verdicts", PackedNumbers(verdicts, coarse.columns)},
          {"apart", kApart}};
}

// Text of a script element: what would end it is escaped.
std::string ScriptText(const Json& json) {
  std::string text;
  for (const char c : JsonText(json, -1)) {
    if (c == '<') {
      text += "\\u003c";
    } else {
      text += c;
    }
  }
  return text;
}

using PageValues = std::map<std::string_view, std::string>;

// The frame with a value in the place of each {{NAME}}; one that is not there is left out.
std::string Filled(std::string_view frame, const PageValues& values) {
  std::string page;
  for (std::size_t at = 0; at < frame.size();) {
    const std::size_t open = frame.find("{{", at);
    page += frame.substr(at, open - at);
    if (open == std::string_view::npos) break;
    const std::size_t close = frame.find("}}", open);
    const auto value = values.find(frame.substr(open + 2, close - open - 2));
    if (value != values.end()) page += value->second;
    at = close + 2;
  }
  return page;
}

class Table {
 public:
  explicit Table(const std::vector<std::string>& columns) {
    body_ += "<tr>";
    for (const std::string& column : columns) {
      body_ += "<th scope=\"col\">" + MarkupText(column) + "</th>";
    }
    body_ += "</tr>\n";
  }
  void Row(const std::vector<std::string>& cells) {
    body_ += "<tr>";
    for (std::size_t i = 0; i < cells.size(); ++i) {
      body_ += (i == 0 ? "<th scope=\"row\">" : "<td>") + MarkupText(cells[i]) +
               (i == 0 ? "</th>" : "</td>");
    }
    body_ += "</tr>\n";
  }
  std::string Text() const { return "<table>\n" + body_ + "</table>\n"; }

 private:
  std::string body_;
};

std::string InkTable(const PressCheck& check) {
  std::vector<std::string> columns = {"Plane", "Drops", "nl"};
  if (!check.currency.empty()) columns.push_back(check.currency);
  Table table(columns);
  const auto row = [&](const PlaneUse& use) {
    std::vector<std::string> cells = {use.name, fmt::to_string(use.drops),
                                      fmt::format("{:.1f}", use.nanolitres)};
    if (!check.currency.empty()) cells.push_back(fmt::format("{:.4f}", use.cost));
    table.Row(cells);
  };
  for (const PlaneUse& use : check.planes) row(use);
  row(check.Total());
  return table.Text();
}

std::string FeedTable(const FeedCheck& feed) {
  if (!feed.problem.empty()) return "<p>No plan: " + MarkupText(feed.problem) + "</p>\n";
  Table table({"Region", "Swaths", "First row", "Last row"});
  for (const FeedRegion& region : feed.regions) {
    table.Row({NameOf(region.region), fmt::to_string(region.swaths),
               fmt::to_string(region.rows.first), fmt::to_string(region.rows.last)});
  }
  std::string text = table.Text();
  Table checks({"Check", "", ""});
  for (const PlanCheck& check : feed.checks) {
    checks.Row({check.name, check.passed ? "ok" : "FAULT", check.detail});
  }
  return text + checks.Text();
}

std::string WantedTable(const PressCheck& check) {
  if (!check.wanted) return {};
  Table table({"Part", "Mean", "95 %", "Most", "Clipped", "Faults"});
  const auto row = [&](const DifferenceOver& over) {
    const auto percent = [&](std::size_t cells) {
      return fmt::format("{:.1f} %", over.cells > 0 ? 100.0 * static_cast<double>(cells) /
                                                          static_cast<double>(over.cells)
                                                    : 0);
    };
    table.Row({over.name, fmt::format("{:.2f}", over.mean), fmt::format("{:.2f}", over.most95),
               fmt::format("{:.2f}", over.most), percent(over.clipped), percent(over.faults)});
  };
  row(check.wanted->page);
  for (const DifferenceOver& over : check.wanted->regions) row(over);
  return fmt::format(
      "<section aria-labelledby=\"h-wanted\"><h2 id=\"h-wanted\">Against {}</h2>\n<p>CIEDE2000 of "
      "the print as modelled and the image; A1 is the upper left of 3 by 4 parts. Clipped: more "
      "than {:g} off, and the inks do not have the colour. Fault: they do.</p>\n{}</section>\n",
      MarkupText(check.wanted->image), kApart, table.Text());
}

std::string FactsTable(const PressCheck& check) {
  Table table({"What", "Value"});
  const PageShape& page = check.page;
  table.Row({"document", page.title});
  table.Row({"print mode",
             fmt::format("{} {}, alternate mode {}", static_cast<int>(page.mode->descriptor),
                         page.mode->name, page.alternateMode)});
  table.Row({"inks", check.inks + " on " + check.medium});
  for (const auto& [name, value] : check.facts) table.Row({name, value});
  return table.Text();
}

std::string WarningList(const PressCheck& check) {
  if (check.warnings.empty()) return "<p>None.</p>\n";
  std::string list = "<ul>\n";
  for (const std::string& warning : check.warnings) {
    list += "<li>" + MarkupText(warning) + "</li>\n";
  }
  return list + "</ul>\n";
}

Json DataJson(const PressCheck& check, const CellColours& colours, const InkData& inks, int media) {
  Json summary = Json::parse(PressCheckJson(check));
  return {{"summary", std::move(summary)},
          {"widthMm", check.cells.grid.pageWidth * kMillimetresPerInch},
          {"heightMm", check.cells.grid.pageHeight * kMillimetresPerInch},
          {"verticalDpi", check.page.verticalDpi},
          {"tileSide", kTileSide},
          {"inks", InksJson(check, colours)},
          {"model", ModelJson(colours, inks, media)},
          {"planes", PlanesJson(check, colours, inks)},
          {"matrices",
           {{"xyzOfBands", MatrixJson(&XyzFromBands)},
            {"srgbOfBands", MatrixJson(&LinearSrgbFromBands)},
            {"bandsOfSrgb", MatrixJson(&BandsFromLinearSrgb)}}},
          {"feedDpi", check.page.mode->verticalDpi},
          {"limit", check.load.limit}};
}

std::string ComparedTable(const PrintComparison& comparison) {
  Table table({"Place", "Millimetres", "Pixels", "Rows", "Drops more and fewer", "dE"});
  std::size_t number = 0;
  for (const DifferentRegion& region : comparison.regions) {
    table.Row({fmt::to_string(++number),
               fmt::format("{:.2f}, {:.2f}", region.window.left * kMillimetresPerInch,
                           region.window.top * kMillimetresPerInch),
               fmt::format("{}-{}", region.left, region.right),
               fmt::format("{}-{}", region.top, region.bottom), ChangeText(region.change),
               fmt::format("{:.2f}", region.mostDifference)});
  }
  return fmt::format(
      "<section aria-labelledby=\"h-compared\"><h2 id=\"h-compared\">Differences</h2>\n<p>{} drops "
      "in {} of {} rows; {} more regions with fewer drops are not listed.</p>\n{}</section>\n",
      comparison.change.Drops(), comparison.rowsThatDiffer, comparison.rows,
      comparison.furtherRegions, table.Text());
}

// One print, or two of one form.
class PageMaker {
 public:
  PageMaker(std::vector<const PressCheck*> checks, const CellColours& colours, const InkData& inks,
            int media)
      : checks_(std::move(checks)), data_(DataJson(*checks_[0], colours, inks, media)) {
    data_["prints"] = Json::array();
    for (const PressCheck* print : checks_) {
      data_["prints"].push_back(Json{{"levels", LevelsJson(*print)}, {"areas", AreasJson(*print)}});
    }
    const PressCheck& check = *checks_[0];
    Put("title", MarkupText(check.file));
    Put("style", std::string(kPageStyle));
    Put("script", std::string(kPageScript));
    Put("warnings", WarningList(check));
    Put("inks", InkTable(check));
    Put("feed", FeedTable(check.feed));
    Put("wanted", WantedTable(check));
    Put("facts", FactsTable(check));
  }

  void Put(std::string_view name, std::string text) { values_[name] = std::move(text); }

  // In pictures and cells as fine as the size allows.
  std::string Page() {
    const PressCheck& check = *checks_[0];
    MakeRoomForCells();
    for (std::uint32_t parts = 1;; ++parts) {
      ThrowIfInterrupted();
      const CellGrid grid = Coarser(check.cells.grid, parts);
      data_["grid"] = {{"perInch", grid.perInch}, {"columns", grid.columns}, {"rows", grid.rows}};
      for (std::size_t i = 0; i < checks_.size(); ++i) {
        data_["prints"][i]["drops"] = DropsJson(Coarser(checks_[i]->cells, parts));
      }
      if (check.wanted) data_["wanted"] = WantedJson(check, grid, parts);
      values_["data"] = ScriptText(data_);
      std::string page = Filled(kPageFrame, values_);
      if (page.size() <= kMostPageBytes || grid.Cells() <= 1) return page;
    }
  }

 private:
  // Pictures of noise hardly get smaller: the finest go until the cells have a quarter of the page.
  void MakeRoomForCells() {
    constexpr std::size_t kMost = kMostPageBytes / 4 * 3;
    Json& prints = data_["prints"];
    while (prints.dump().size() > kMost && prints[0]["levels"].size() > 1) {
      for (Json& print : prints) print["levels"].erase(0);
    }
  }

  std::vector<const PressCheck*> checks_;
  Json data_;
  PageValues values_;
};

}  // namespace

std::string ReportPage(const PressCheck& check, const CellColours& colours, const InkData& inks,
                       int media) {
  return PageMaker({&check}, colours, inks, media).Page();
}

std::string ComparisonPage(const PrintComparison& comparison, const PressCheck& first,
                           const PressCheck& second, const CellColours& colours,
                           const InkData& inks, int media) {
  PageMaker maker({&first, &second}, colours, inks, media);
  maker.Put("title", MarkupText(first.file + " and " + second.file));
  maker.Put("compared", ComparedTable(comparison));
  return maker.Page();
}

}  // namespace corvane
