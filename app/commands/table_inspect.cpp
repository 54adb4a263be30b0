// SPDX-License-Identifier: MIT
#include "app/commands/table_inspect.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <vector>

#include "app/support/failure.h"
#include "app/support/json.h"
#include "app/support/output_stage.h"
#include "app/tables/chart.h"
#include "app/tables/file.h"
#include "app/tables/lookup.h"
#include "app/tables/page_tables.h"
#include "app/tables/stored_table.h"

namespace corvane {
namespace {

constexpr int kPngScale = 2;

template <std::size_t N>
std::array<std::uint32_t, N> ParseNumbers(const std::string& text, std::uint32_t most,
                                          const char* what) {
  std::array<std::uint32_t, N> numbers{};
  const char *at = text.data(), *const end = text.data() + text.size();
  for (std::size_t i = 0; i < N; ++i) {
    const auto [stop, error] = std::from_chars(at, end, numbers[i]);
    const bool last = i + 1 == N;
    if (error != std::errc() || numbers[i] > most ||
        (last ? stop != end : stop == end || *stop != ',')) {
      throw UsageFailure(fmt::format("{}: is not {}", text, what));
    }
    at = stop + (last ? 0 : 1);
  }
  return numbers;
}

std::string ColourReport(const TableInspectOptions& options, const std::vector<std::uint8_t>& table,
                         const PrintModel& model) {
  const auto numbers = ParseNumbers<3>(options.rgb, 255, "a colour as R,G,B, each 0 to 255");
  Rgb8 rgb;
  for (std::size_t i = 0; i < 3; ++i) rgb[i] = static_cast<std::uint8_t>(numbers[i]);
  const Contone contone = LookUp(table, rgb);
  const InkAmounts amounts = AmountsOf(contone);
  const Triple wanted = LabFromBands(
      BandsFromLinearSrgb(LinearFromSrgb({rgb[0] / 255.0, rgb[1] / 255.0, rgb[2] / 255.0})));
  const Triple printed = LabFromBands(model.Bands(amounts));
  const double difference = DeltaE2000(wanted, printed);
  double total = 0;
  for (const double amount : amounts) total += amount * 100;

  if (options.json) {
    nlohmann::ordered_json inks = nlohmann::ordered_json::object();
    for (std::size_t i = 0; i < kInkCount; ++i) inks[kInkNames[i]] = contone[i];
    const nlohmann::ordered_json json = {
        {"rgb", rgb},          {"inks", inks},        {"totalPercent", total},
        {"wantedLab", wanted}, {"modelLab", printed}, {"deltaE2000", difference}};
    return JsonText(json) + "\n";
  }
  std::string text = fmt::format("RGB {}\n  inks   ", fmt::join(rgb, " "));
  for (std::size_t i = 0; i < kInkCount; ++i) {
    if (contone[i] != 0) text += fmt::format(" {} {}", kInkNames[i], contone[i]);
  }
  const auto lab = [](const Triple& value) {
    return fmt::format("Lab {:.1f} {:.1f} {:.1f}", value[0], value[1], value[2]);
  };
  return text +
         fmt::format(
             "\n  total   {:.0f} %\n  wanted  {}\n  model   {}\n  difference {:.2f} (CIEDE2000)\n",
             total, lab(wanted), lab(printed), difference);
}

}  // namespace

TableIndices ParseTableIndices(const std::string& text) {
  const TableIndices indices = ParseNumbers<kTableIndexCount>(text, 255, "five table indices");
  if (indices[1] >= kMediaCount) throw UsageFailure(text + ": there is no such medium");
  return indices;
}

std::vector<std::uint8_t> ReadDecodedTable(TableFile& file, const TableIndices& indices) {
  const TableEntry* entry = file.Find(indices);
  const std::uint32_t bytes = DecodedTableBytes(indices[0]);
  if (file.DirectoryBytes() == 0 || entry == nullptr || !file.Holds(*entry) || bytes == 0) {
    throw Failure(
        fmt::format("{}: has no table with the indices {}", file.Name(), fmt::join(indices, ",")));
  }
  if (entry->size > bytes) {
    throw Failure(fmt::format("{}: the table is longer than its ink set's", file.Name()));
  }
  return ReadTable(file, *entry);
}

void CheckDrawingName(const std::string& path) {
  if (path.empty() || EndingOf(path) == ".svg" || EndingOf(path) == ".png") return;
  throw UsageFailure(path + ": ends in neither .svg nor .png");
}

void WriteDrawing(const std::string& path, const Drawing& drawing) {
  WriteOutput(path, EndingOf(path) == ".svg" ? ToSvg(drawing) : ToPng(drawing, kPngScale));
}

int RunTableInspect(const TableInspectOptions& options) {
  const TableIndices indices = ParseTableIndices(options.indices);
  CheckDrawingName(options.chart);
  CheckOutputNames({options.chart}, {options.file, options.inks});
  TableFile file(options.file);
  const std::vector<std::uint8_t> table = ReadDecodedTable(file, indices);
  const InkData inks = InksFrom(options.inks);
  const PrintModel model(inks, static_cast<int>(indices[1]));
  if (!options.rgb.empty()) WriteStandardOutput(ColourReport(options, table, model));
  if (!options.chart.empty()) {
    WriteDrawing(options.chart,
                 DrawTableChart(table, model,
                                fmt::format("Table {}: inks along the ramps, colours by \"{}\"",
                                            fmt::join(indices, " "), inks.name)));
  }
  return 0;
}

}  // namespace corvane
