// SPDX-License-Identifier: MIT
#include "app/commands/calibrate.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "app/calibration/agreement.h"
#include "app/calibration/faults.h"
#include "app/calibration/fit.h"
#include "app/calibration/reference.h"
#include "app/page/settings.h"
#include "app/report/report_page.h"
#include "app/support/failure.h"
#include "app/support/json.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"

namespace corvane {
namespace {

constexpr std::string_view kInkEndings[] = {".json"};
namespace fs = std::filesystem;
using nlohmann::ordered_json;

constexpr std::size_t kWorst = 8;

void CheckTogether(const CalibrateOptions& options) {
  if (options.update && options.verify) {
    throw UsageFailure("--update and --verify do not go together");
  }
  if ((options.update || options.verify) && options.inks.empty()) {
    throw UsageFailure("--update and --verify need the known inks: --inks FILE");
  }
  if (!options.verify && options.output.empty()) throw UsageFailure("-o, --output is required");
  if (options.verify && !(options.output.empty() && options.name.empty())) {
    throw UsageFailure("--verify writes no inks: neither -o nor --name is taken");
  }
  CheckOutputNames({options.output, options.report}, {options.measurement, options.inks});
  CheckEnding(options.output, kInkEndings);
  CheckEnding(options.report, kHtmlEndings);
}

// The medium that was printed on: a file that does not name it may be known by the chart's limit,
// which is its medium's unless told otherwise.
int MediaOf(const CalibrateOptions& options, const ChartChoice& choice) {
  if (!options.media.empty()) return SettingValue(kMediaType, options.media) - 1;
  if (choice.media) return *choice.media;
  const auto& media = DefaultInkData().media;
  const auto found = std::find_if(media.begin(), media.end(), [&](const Media& medium) {
    return std::abs(medium.inkLimit - choice.inkLimit) < 1e-3;
  });
  if (found == media.end()) throw UsageFailure("a chart with a limit of its own needs --media");
  return static_cast<int>(found - media.begin());
}

std::vector<MeasuredPatch> MeasuredOf(const Measurement& measurement) {
  std::vector<MeasuredPatch> measured;
  for (const ReadPatch& patch : measurement.patches) measured.push_back(patch.measured);
  return measured;
}

InkData KnownInks(const CalibrateOptions& options) { return InksFrom(options.inks); }

// What the measurement says of the inks. The measurement itself is judged by it.
InkData FoundInks(const CalibrateOptions& options, const Measurement& measurement, int media) {
  const FitSettings settings{measurement.choice.inks, media, measurement.choice.inkLimit};
  const bool whole = measurement.choice.kind == ChartKind::Whole;
  if (!options.update && !options.verify && !whole) {
    throw Failure(options.measurement +
                  ": is of the chart for updates, which needs --update and the known inks");
  }
  const std::vector<MeasuredPatch> measured = MeasuredOf(measurement);
  const InkData known = KnownInks(options);
  const bool fits = whole && !options.update;
  InkData inks = fits ? FitInks(measured, settings, known) : UpdateInks(measured, settings, known);
  CheckAgainstFit(measurement, inks, media, options.measurement);
  inks.name = !options.name.empty() ? options.name
              : options.update      ? known.name
                                    : fs::path(options.measurement).stem().string();
  return inks;
}

std::string Line(const char* what, const DifferenceSummary& summary) {
  return fmt::format("{:<11}{:>5} patches   mean {:.2f}   95 % {:.2f}   worst {:.2f}\n", what,
                     summary.count, summary.mean, summary.most95, summary.most);
}

std::string ToText(const Agreement& agreement, const CalibrateOptions& options, int media) {
  std::string text =
      fmt::format("{}, {}: CIEDE2000, predicted against measured\n", Printable(options.measurement),
                  SettingText(kMediaType, media + 1));
  text += Line(options.verify ? "chart" : options.update ? "updated" : "fitted", agreement.fitted);
  const bool heldBack = agreement.heldBack.count > 0;
  if (heldBack) text += Line("held back", agreement.heldBack);
  text += heldBack ? "worst of the held-back patches:\n" : "worst patches:\n";
  for (const PatchAgreement* patch : WorstOf(agreement, kWorst, heldBack)) {
    text += fmt::format("  {:<6}{:>6.2f}   {}\n", patch->name, patch->difference,
                        PatchText(patch->patch.levels));
  }
  return text;
}

ordered_json JsonOf(const DifferenceSummary& summary) {
  return {{"patches", summary.count},
          {"mean", summary.mean},
          {"most95", summary.most95},
          {"worst", summary.most}};
}

std::string ToJson(const Agreement& agreement, const CalibrateOptions& options, int media) {
  const bool heldBack = agreement.heldBack.count > 0;
  ordered_json worst = ordered_json::array();
  for (const PatchAgreement* patch : WorstOf(agreement, kWorst, heldBack)) {
    worst.push_back({{"patch", patch->name},
                     {"inks", PatchText(patch->patch.levels)},
                     {"difference", patch->difference},
                     {"predicted", patch->predicted},
                     {"measured", patch->measured}});
  }
  ordered_json json = {{"measurement", options.measurement},
                       {"media", SettingText(kMediaType, media + 1)},
                       {"fitted", JsonOf(agreement.fitted)}};
  if (heldBack) json["heldBack"] = JsonOf(agreement.heldBack);
  json["worst"] = worst;
  return JsonText(json) + '\n';
}

}  // namespace

int RunCalibrate(const CalibrateOptions& options) {
  CheckTogether(options);
  std::optional<double> inkLimit;
  if (options.inkLimit) inkLimit = *options.inkLimit / 100;
  const Measurement measurement = ReadMeasurement(options.measurement, inkLimit);
  const int media = MediaOf(options, measurement.choice);
  CheckPaper(measurement, options.measurement);
  const InkData found = FoundInks(options, measurement, media);
  const InkData inks = options.verify ? KnownInks(options) : found;

  const Agreement agreement = CompareWith(measurement, inks, media);
  OutputStage stage;
  if (!options.output.empty()) stage.CreateStream(options.output).Append(InkDataText(inks));
  if (!options.report.empty()) {
    stage.CreateStream(options.report)
        .Append(AgreementPage(agreement, inks, media, measurement.choice,
                              options.verify ? inks.name : options.measurement));
  }
  stage.Commit();
  if (!options.quiet) {
    const std::string text =
        options.json ? ToJson(agreement, options, media) : ToText(agreement, options, media);
    WriteReportBeside(IsStandardOutput(options.output) || IsStandardOutput(options.report),
                      options.json, text);
  }
  return 0;
}

}  // namespace corvane
