// SPDX-License-Identifier: MIT
#include "app/modes.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "app/output_file.h"
#include "app/print_planes.h"

namespace corvane {
namespace {

// Names of the planes that leave the chain, an ink with two planes once, with its mark.
std::string PlanesText(const PrintMode& mode, int alternateMode) {
  std::string text;
  const std::vector<PlaneInk> planes = PrintheadPlanes(mode, alternateMode);
  for (std::size_t i = 0; i < planes.size(); ++i) {
    const bool two = i + 1 < planes.size() && planes[i + 1].ink == planes[i].ink;
    if (!text.empty()) text += ' ';
    text += kInkNames[static_cast<int>(planes[i].ink)];
    if (two) text += ":2";
    if (two) ++i;
  }
  return text;
}

PageShape InchOf(const PrintMode& mode, int alternateMode) {
  const ModeGeometry geometry = GeometryOf(mode, alternateMode);
  return BinaryPageShape(mode, alternateMode, geometry.halftoneDpi, 1, geometry.halftoneDpi,
                         mode.verticalDpi);
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
  return mode.layout[a] != mode.layout[0] ||
         PixelsPerInchText(mode, a) != PixelsPerInchText(mode, 0) ||
         PlanesText(mode, a) != PlanesText(mode, 0) ||
         GeometryOf(mode, a).halftoneDpi != GeometryOf(mode, 0).halftoneDpi ||
         GeometryOf(mode, a).placesDots != GeometryOf(mode, 0).placesDots;
}

std::string Notes(const PrintMode& mode, int alternateMode) {
  const ModeGeometry geometry = GeometryOf(mode, alternateMode);
  std::string notes;
  if (geometry.placesDots)
    notes = geometry.doublesRows ? "dots placed, two rows a row" : "dots placed";
  if (geometry.expandsFurther) notes += ", no black plane";
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
                   first ? mode.printedInks : "",
                   first ? fmt::format("{} x {}", mode.horizontalDpi, mode.verticalDpi) : "",
                   first ? std::to_string(mode.passes) : "", std::to_string(a),
                   std::to_string(mode.layout[a]), PixelsPerInchText(mode, a), PlanesText(mode, a),
                   Notes(mode, a));
    }
  }
  text +=
      "\nalt: the alternate mode, --uam; a value that is not listed prints as 0 does.\n"
      "C:2: an ink with two planes, which hold the count of drops, bit 0 first.\n"
      "109 with --uam 0 or 1: the second expansion of cd and md leaves no room for black, and the\n"
      "printhead data have no black plane; --uam 2 sends all nine planes.\n";
  return text;
}

std::string Json() {
  using Json = nlohmann::ordered_json;
  Json modes = Json::array();
  for (const PrintMode& mode : kPrintModes) {
    Json alternates = Json::array();
    for (int a = 0; a < kAlternateModes; ++a) {
      const ModeGeometry geometry = GeometryOf(mode, a);
      const PageShape shape = InchOf(mode, a);
      Json planes = Json::array();
      for (const PlaneShape& plane : shape.planes) {
        planes.push_back({{"name", plane.name}, {"horizontalDpi", plane.horizontalDpi}});
      }
      alternates.push_back({{"useAlternateModes", a},
                            {"layoutCode", mode.layout[a]},
                            {"halftoneDpi", geometry.halftoneDpi},
                            {"placesDots", geometry.placesDots},
                            {"twoRowsPerRow", geometry.doublesRows},
                            {"planes", planes}});
    }
    modes.push_back({{"value", static_cast<int>(mode.descriptor)},
                     {"name", mode.name},
                     {"inks", mode.printedInks},
                     {"horizontalDpi", mode.horizontalDpi},
                     {"verticalDpi", mode.verticalDpi},
                     {"passes", mode.passes},
                     {"contonePlanes", PlanesOf(mode.inkSet)},
                     {"alternateModes", alternates}});
  }
  return modes.dump(2) + '\n';
}

}  // namespace

int RunModes(const ModesOptions& options) {
  WriteStandardOutput(options.json ? Json() : Table());
  return 0;
}

}  // namespace corvane
