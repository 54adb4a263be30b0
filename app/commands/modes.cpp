// SPDX-License-Identifier: MIT
#include "app/commands/modes.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/page/page_check.h"
#include "app/page/planes.h"
#include "app/support/json.h"
#include "app/support/output_stage.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

// Names of the planes that leave the chain, an ink with two planes once, with its mark.
std::string PlanesText(const PrintMode& mode, int alternateMode) {
  std::string text;
  const RowPlanes row = PlanesAfter(Stage::Placed, mode, alternateMode);
  const std::span<const RowPlane> planes = row.Sent();
  for (std::size_t i = 0; i < planes.size(); ++i) {
    const bool two = i + 1 < planes.size() && planes[i + 1].ink == planes[i].ink;
    if (!text.empty()) text += ' ';
    text += kInkNames[static_cast<int>(planes[i].ink)];
    if (two) text += ":2";
    if (two) ++i;
  }
  return text;
}

std::string InksText(const PrintMode& mode) {
  std::string text;
  for (const Ink ink : PrintedInks(mode)) {
    if (!text.empty()) text += ' ';
    text += kInkNames[static_cast<int>(ink)];
  }
  return text;
}

PageShape InchOf(const PrintMode& mode, int alternateMode) {
  const std::uint32_t dpi = mode.alternates[alternateMode].halftoneDpi;
  return BinaryPageShape(mode, alternateMode, dpi, 1, dpi, mode.verticalDpi);
}

// Pixels per inch of the planes, several where they differ: "2400, 4800".
std::string PixelsPerInchText(const PrintMode& mode, int alternateMode) {
  std::string text;
  double last = 0;
  for (const PlaneShape& plane : InchOf(mode, alternateMode).planes) {
    if (plane.horizontalDpi == last) continue;
    if (last != 0) text += ", ";
    text += fmt::format("{:.0f}", plane.horizontalDpi);
    last = plane.horizontalDpi;
  }
  return text;
}

// Whether alternate mode `a` gives other rows than alternate mode 0.
bool Differs(const PrintMode& mode, int a) {
  const AlternateMode &first = mode.alternates[0], &other = mode.alternates[a];
  return other.layout != first.layout || other.halftoneDpi != first.halftoneDpi ||
         other.placing.PlacesDots() != first.placing.PlacesDots() ||
         PixelsPerInchText(mode, a) != PixelsPerInchText(mode, 0) ||
         PlanesText(mode, a) != PlanesText(mode, 0);
}

std::string Notes(const PrintMode& mode, int alternateMode) {
  const Placing& placing = mode.alternates[alternateMode].placing;
  std::string notes;
  if (placing.PlacesDots()) notes = "dots placed";
  if (placing.rows == 2) notes += ", two rows a row";
  if (placing.secondExpansion) notes += ", no black plane";
  return notes;
}

std::string Table() {
  constexpr std::string_view kRow =
      "{:>5}  {:<30} {:<19} {:>11} {:>6} {:>4} {:>6}  {:<11} {:<41} {}";
  const auto line = [&](auto&&... cells) {
    std::string text = fmt::format(fmt::runtime(kRow), cells...);
    text.erase(text.find_last_not_of(' ') + 1);
    return text + '\n';
  };
  std::string text = line("value", "name", "inks", "dpi", "passes", "alt", "layout", "pixels/inch",
                          "planes of the printhead data", "");
  for (const PrintMode& mode : kPrintModes) {
    for (int a = 0; a < kAlternateModes; ++a) {
      if (a > 0 && !Differs(mode, a)) continue;
      const bool first = a == 0;
      text += line(first ? std::to_string(mode.descriptor) : "", first ? mode.name : "",
                   first ? InksText(mode) : "",
                   first ? fmt::format("{} x {}", mode.horizontalDpi, mode.verticalDpi) : "",
                   first ? std::to_string(mode.passes) : "", std::to_string(a),
                   std::to_string(mode.alternates[a].layout), PixelsPerInchText(mode, a),
                   PlanesText(mode, a), Notes(mode, a));
    }
  }
  text +=
      "\nalt: the alternate mode, --uam; 1 or 2 where it is not listed prints as 0 does.\n"
      "C:2: an ink with two planes, which hold the count of drops, bit 0 first.\n"
      "no black plane: the second expansion of cd and md does not carry black over, and the data\n"
      "have none.\n";
  return text;
}

std::string Json() {
  using Json = nlohmann::ordered_json;
  Json modes = Json::array();
  for (const PrintMode& mode : kPrintModes) {
    Json alternates = Json::array();
    for (int a = 0; a < kAlternateModes; ++a) {
      const AlternateMode& page = mode.alternates[a];
      const PageShape shape = InchOf(mode, a);
      Json planes = Json::array();
      for (const PlaneShape& plane : shape.planes) {
        planes.push_back({{"name", plane.name}, {"horizontalDpi", plane.horizontalDpi}});
      }
      alternates.push_back({{"useAlternateModes", a},
                            {"layoutCode", page.layout},
                            {"halftoneDpi", page.halftoneDpi},
                            {"placesDots", page.placing.PlacesDots()},
                            {"twoRowsPerRow", page.placing.rows == 2},
                            {"planes", planes}});
    }
    modes.push_back({{"value", static_cast<int>(mode.descriptor)},
                     {"name", mode.name},
                     {"inks", InksText(mode)},
                     {"horizontalDpi", mode.horizontalDpi},
                     {"verticalDpi", mode.verticalDpi},
                     {"passes", mode.passes},
                     {"contonePlanes", PlanesOf(mode.inkSet)},
                     {"alternateModes", alternates}});
  }
  return JsonText(modes) + '\n';
}

// What the page start of each mode has to hold, where the modes differ in it: a row for each
// alternate mode, a column for each property, as a table of Markdown.
std::string PageStartTable() {
  using Needs = std::map<std::string, std::string>;  // value by property
  std::vector<std::pair<std::string, Needs>> rows;
  std::map<std::string, std::set<std::string>> values;
  for (const PrintMode& mode : kPrintModes) {
    for (int a = 0; a < kAlternateModes; ++a) {
      if (a > 0 && !Differs(mode, a)) continue;
      Needs needs;
      for (const PageRequirement& needed : RequirementsOf(mode, a)) {
        needs[needed.name] = needed.value;
        values[needed.name].insert(needed.value);
      }
      rows.emplace_back(fmt::format("{} | {}", static_cast<int>(mode.descriptor), a),
                        std::move(needs));
    }
  }
  const auto isCommon = [&](const std::string& name) {
    return values[name].size() == 1 &&
           std::ranges::all_of(rows, [&](const auto& row) { return row.second.contains(name); });
  };
  std::erase_if(values, [&](const auto& column) { return isCommon(column.first); });

  std::string text = "| `CMYKBinaryDescriptor` | `UseAlternateModes` |", rule = "|---|---|";
  for (const auto& [name, unused] : values) {
    text += fmt::format(" `{}` |", name);
    rule += "---|";
  }
  text += '\n' + rule + '\n';
  for (const auto& [mode, needs] : rows) {
    text += fmt::format("| {} |", mode);
    for (const auto& [name, unused] : values) {
      const auto needed = needs.find(name);
      text += fmt::format(" {} |", needed == needs.end() ? "any" : needed->second);
    }
    text += '\n';
  }
  return text;
}

}  // namespace

int RunModes(const ModesOptions& options) {
  WriteStandardOutput(options.json ? Json() : options.pageStart ? PageStartTable() : Table());
  return 0;
}

}  // namespace corvane
