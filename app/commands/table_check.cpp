// SPDX-License-Identifier: MIT
#include "app/commands/table_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "app/commands/table_inspect.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/json.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/platform.h"
#include "app/support/threads.h"
#include "app/tables/check.h"
#include "app/tables/check_picture.h"
#include "color/table/stored_form.h"

namespace corvane {
namespace {

using nlohmann::ordered_json;

constexpr const char* kPictured = "2,2,0,1,0";  // where no table is named

// The tables to check: those of coloured inks that differ, each under its first indices.
std::vector<IndexedTable> ReadTables(TableFile& file, const std::string& only) {
  std::vector<IndexedTable> tables;
  if (file.DirectoryBytes() == 0) {
    throw Failure(file.Name() + ": has one table for every page, of no medium to check it for");
  }
  if (!only.empty()) {
    const TableIndices indices = ParseTableIndices(only);
    tables.push_back({indices, ReadDecodedTable(file, indices)});
  } else {
    std::map<std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>, bool> known;
    for (const TableEntry& entry : file.Entries()) {
      const std::uint32_t bytes = DecodedTableBytes(entry.indices[0]);
      if (bytes <= kBlackCurveBytes || entry.indices[1] >= kMediaCount) continue;
      if (!known.try_emplace({entry.offset, entry.indices[0], entry.indices[1]}, true).second) {
        continue;
      }
      tables.push_back({entry.indices, ReadDecodedTable(file, entry.indices)});
    }
  }
  if (tables.empty()) {
    throw Failure(file.Name() + ": has no tables of coloured inks to check");
  }
  if (tables.front().bytes.size() <= kBlackCurveBytes) {
    throw Failure(fmt::format("{}: table {} is a curve of black ink, which has no colours to check",
                              file.Name(), only));
  }
  return tables;
}

std::array<int, 3> Bytes(const Srgb& srgb) {
  std::array<int, 3> bytes;
  for (std::size_t i = 0; i < 3; ++i) bytes[i] = static_cast<int>(std::lround(srgb[i] * 255));
  return bytes;
}

ordered_json ToJson(const Finding& finding) {
  return {{"value", finding.value}, {"rgb", Bytes(finding.at)}};
}

ordered_json ToJson(const ChromaKept& kept) { return {{"median", kept.median}, {"low", kept.low}}; }

ordered_json ToJson(const TableCheck& check) {
  ordered_json scenes = ordered_json::object();
  for (const SceneCheck& scene : check.scenes) {
    scenes[scene.name] = {{"chroma", ToJson(scene.chroma)},
                          {"meanDeltaE2000", scene.difference},
                          {"grain", scene.grain}};
  }
  return {{"indices", check.indices},
          {"inside", check.inside},
          {"holes", check.holes},
          {"worstInside", ToJson(check.worstInside)},
          {"printable", check.printable},
          {"meanDeltaE2000", check.mean},
          {"deltaE2000of95Percent", check.most95},
          {"bendOf99.9Percent", check.bend999},
          {"bend", ToJson(check.bend)},
          {"notch", ToJson(check.notch)},
          {"fall", ToJson(check.fall)},
          {"cornersRYGCBM", check.corners},
          {"shadows", ToJson(check.shadows)},
          {"scenes", scenes},
          {"highlightGrain", check.highlightGrain},
          {"inkPercent", check.ink * 100},
          {"inkLimitPercent", check.inkLimit * 100},
          {"greyInkPercent", check.greyInk * 100},
          {"neutralChroma", check.neutral},
          {"blackFromLightness", check.blackFrom},
          {"blackAlone", check.blackAlone},
          {"betweenQualities", check.quality ? ordered_json(*check.quality) : ordered_json()},
          {"misses", MissesOf(check)}};
}

double SceneChroma(const TableCheck& check) {
  double least = 9;
  for (const SceneCheck& scene : check.scenes) least = std::min(least, scene.chroma.median);
  return least;
}

double SkinGrain(const TableCheck& check) {
  for (const SceneCheck& scene : check.scenes) {
    if (std::string_view(scene.name) == "skin") return scene.grain;
  }
  return 0;
}

constexpr const char* kHeading =
    "table      holes deepest  mean  95 %   bend  most notch  fall corner  shadows  scenes   ink  "
    "grey neutral  K from quality  grain  skin\n";

std::string QualityOf(const TableCheck& check) {
  return check.quality ? fmt::format("{:.1f}", *check.quality) : "-";
}

std::string LineOf(const TableCheck& check) {
  return fmt::format(
      "{:<10} {:>5} {:>7.1f} {:>5.2f} {:>5.2f} {:>6.1f} {:>5.1f} {:>5.1f} {:>5.2f} {:>6.2f} "
      "{:>4.2f} {:>4.2f} {:>6.2f} {:>5.0f} {:>5.0f} {:>7.1f} {:>7.0f} {:>7} {:>6.2f} {:>5.2f}\n",
      fmt::format("{}", fmt::join(check.indices, " ")), check.holes, check.worstInside.value,
      check.mean, check.most95, check.bend999, check.bend.value, check.notch.value,
      check.fall.value, check.corner, check.shadows.median, check.shadows.low, SceneChroma(check),
      check.ink * 100, check.greyInk * 100, check.neutral, check.blackFrom, QualityOf(check),
      check.highlightGrain, SkinGrain(check));
}

// The worst of each column: a line that says in one look whether all is well.
std::string SummaryOf(const std::vector<TableCheck>& checks) {
  const auto most = [&](auto of) {
    double value = 0;
    for (const TableCheck& check : checks) value = std::max<double>(value, of(check));
    return value;
  };
  const auto least = [&](auto of) {
    double value = 9;
    for (const TableCheck& check : checks) value = std::min<double>(value, of(check));
    return value;
  };
  const auto holes = most([](const TableCheck& c) { return c.holes; });
  const auto compared = std::max_element(
      checks.begin(), checks.end(),
      [](const TableCheck& a, const TableCheck& b) { return a.quality < b.quality; });
  return fmt::format(
      "worst of {} tables: {:.0f} holes, {:.1f} deep; bend {:.1f}, largest {:.1f}; notch {:.1f}; "
      "fall {:.2f};\ncorner {:.2f}; shadows {:.2f}, {:.2f}; scenes {:.2f}; between qualities "
      "{}\n",
      checks.size(), holes, most([](const TableCheck& c) { return c.worstInside.value; }),
      most([](const TableCheck& c) { return c.bend999; }),
      most([](const TableCheck& c) { return c.bend.value; }),
      most([](const TableCheck& c) { return c.notch.value; }),
      most([](const TableCheck& c) { return c.fall.value; }),
      least([](const TableCheck& c) { return c.corner; }),
      least([](const TableCheck& c) { return c.shadows.median; }),
      least([](const TableCheck& c) { return c.shadows.low; }), least(SceneChroma),
      QualityOf(*compared));
}

std::string ToText(const TableFile& file, const std::vector<TableCheck>& checks) {
  std::string text = Printable(file.Name()) + "\n" + kHeading;
  std::string missed;
  for (const TableCheck& check : checks) {
    text += LineOf(check);
    const std::vector<std::string> misses = MissesOf(check);
    if (misses.empty()) continue;
    missed += fmt::format("({}) {}", fmt::join(check.indices, " "), fmt::join(misses, "; "));
    if (check.holes > 0) {
      missed += fmt::format("; deepest at RGB {}", fmt::join(Bytes(check.worstInside.at), " "));
    }
    missed += '\n';
  }
  return text + SummaryOf(checks) + (missed.empty() ? "every aim is met\n" : "missed:\n" + missed);
}

}  // namespace

int RunTableCheck(const TableCheckOptions& options) {
  CheckDrawingName(options.picture);
  CheckOutputNames({options.picture}, {options.file, options.inks});
  TableFile file(options.file);
  const InkData inks = InksFrom(options.inks);
  const std::vector<IndexedTable> tables = ReadTables(file, options.indices);
  const int processors = ProcessorCount();
  std::optional<IndexedTable> pictured;
  if (!options.picture.empty()) {
    const TableIndices indices =
        ParseTableIndices(options.indices.empty() ? kPictured : options.indices);
    pictured = {indices, ReadDecodedTable(file, indices)};
  }
  const std::vector<TableCheck> checks = CheckTables(
      tables, inks, options.jobs > 0 ? options.jobs : processors, [] { ThrowIfInterrupted(); });
  if (options.json) {
    ordered_json list = ordered_json::array();
    for (const TableCheck& check : checks) list.push_back(ToJson(check));
    const ordered_json json = {{"file", file.Name()}, {"inks", inks.name}, {"tables", list}};
    WriteStandardOutput(JsonText(json) + '\n');
  } else {
    WriteStandardOutput(ToText(file, checks));
  }
  if (pictured) {
    const TableIndices& indices = pictured->indices;
    const PrintModel model(inks, static_cast<int>(indices[1]));
    WriteDrawing(options.picture,
                 DrawTableCheck(*pictured, model,
                                fmt::format("Table {} with \"{}\" on {}", fmt::join(indices, " "),
                                            inks.name, inks.media[indices[1]].name)));
  }
  const bool good = std::all_of(checks.begin(), checks.end(),
                                [](const TableCheck& check) { return MissesOf(check).empty(); });
  return good ? 0 : 1;
}

}  // namespace corvane
