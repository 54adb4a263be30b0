// SPDX-License-Identifier: MIT
#include "app/commands/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>

#include "app/chain/plugin_library.h"
#include "app/output/separations.h"
#include "app/page/settings.h"
#include "app/preview/sink.h"
#include "app/report/press_check.h"
#include "app/report/report_page.h"
#include "app/support/failure.h"
#include "app/support/output_stage.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr double kFewPixels = 150;  // of an image to an inch of the sheet: one sees them

bool WritesPage(const ReportOptions& options) {
  return !options.output.empty() || (!options.text && !options.json);
}

fs::path PageOf(const ReportOptions& options, const std::string& print) {
  if (!WritesPage(options)) return {};
  fs::path beside = fs::path(print).replace_extension(".html");
  if (options.output.empty()) return beside;
  return NamesFolder(options.output) ? options.output / beside.filename()
                                     : fs::path(options.output);
}

PressCheckSettings SettingsOf(const ReportOptions& options) {
  PressCheckSettings settings;
  if (!options.inks.empty()) settings.inks = ReadInkData(options.inks);
  if (!options.prices.empty()) settings.prices = ReadInkPrices(options.prices);
  for (const std::string& area : options.zoomAreas) {
    settings.zoomAreas.push_back(
        {fmt::format("asked for {}", settings.zoomAreas.size() + 1), ParseZoom(area)});
  }
  settings.facts = options.facts;
  settings.warnings = options.warnings;
  return settings;
}

void WarnOfEnlarging(const WantedColours& wanted, const PageShape& page,
                     PressCheckSettings& settings) {
  if (wanted.pixelsPerInch <= 0 || wanted.pixelsPerInch >= kFewPixels) return;
  settings.warnings.push_back(
      fmt::format("{} is enlarged: {:.0f} of its pixels to an inch of the sheet, which has {:.0f}",
                  wanted.image, wanted.pixelsPerInch, page.verticalDpi));
}

// The reports of a command, with what they share.
class Reporter {
 public:
  explicit Reporter(const ReportOptions& options)
      : options_(options),
        settings_(SettingsOf(options)),
        typedMedia_(SettingValueOr(kMediaType, options.media, 0)),
        placing_(PlacingFrom(options.placing)),
        head_(options.head.empty() ? Printhead{} : ReadPrinthead(options.head)) {}

  // `file` holds the print, which is called `print`.
  void Report(const fs::path& file, const std::string& print, StagedFile* page) {
    SeparationReader reader(file.string());
    const PageShape& shape = reader.Shape();
    PressCheckSettings settings = settings_;
    settings.media = (typedMedia_ != 0 ? typedMedia_ : shape.mediaType) - 1;
    std::optional<WantedColours> wanted;
    if (!options_.against.empty()) {
      ImagePlacing placing = placing_;
      const PageSettings printed = DefaultSettings(*shape.mode, shape.alternateMode);
      placing.assumedDpi = options_.againstDpi > 0
                               ? options_.againstDpi
                               : std::max(printed.horizontalDpi, printed.verticalDpi);
      wanted =
          ReadWantedColours(options_.against, options_.againstPage - 1, JudgedGrid(shape), placing);
      if (!options_.againstName.empty()) wanted->image = options_.againstName;
      WarnOfEnlarging(*wanted, shape, settings);
    }
    const CellColours colours(settings.inks, settings.media, *shape.mode);
    PressCheck check = CheckPrint(reader, print, settings, colours, wanted ? &*wanted : nullptr);
    const std::unique_ptr<Movement> movement(
        static_cast<Movement*>(library_.CreateObject("CorvaneMovement")));
    check.feed = CheckFeed(*movement, shape, head_);
    if (page != nullptr) page->Append(ReportPage(check, colours, settings.inks, settings.media));
    const bool taken = IsStandardOutput(options_.output);
    if (options_.text) WriteReportBeside(taken, false, PressCheckText(check));
    if (options_.json) WriteReportBeside(taken, true, PressCheckJson(check));
  }

 private:
  const ReportOptions& options_;
  PressCheckSettings settings_;
  int typedMedia_;  // 0: each print's own
  ImagePlacing placing_;
  Printhead head_;
  PluginLibrary library_;
};

}  // namespace

void ReportOn(const ReportOptions& options, const StagedFile& print, StagedFile& page) {
  Reporter(options).Report(print.PathUntilCommit(), print.Path().string(), &page);
  page.Finish();
}

int RunReport(const ReportOptions& options) {
  if (options.prints.size() > 1) {
    if (!options.output.empty() && !NamesFolder(options.output)) {
      throw UsageFailure(options.output + ": several reports need a folder, a name that ends in /");
    }
    if (options.json) throw UsageFailure("--json takes one print at a time");
  }
  std::vector<fs::path> pages;
  std::vector<fs::path> inputs = {options.inks, options.prices, options.against, options.head};
  for (const std::string& print : options.prints) {
    pages.push_back(PageOf(options, print));
    inputs.emplace_back(print);
  }
  CheckOutputNames(pages, inputs);
  for (const fs::path& page : pages) CheckEnding(page, kHtmlEndings);

  Reporter reporter(options);
  const bool folder = !options.output.empty() && NamesFolder(options.output);
  OutputStage stage(folder ? fs::path(options.output) : fs::path());
  for (std::size_t i = 0; i < pages.size(); ++i) {
    const std::string& print = options.prints[i];
    StagedFile* const page = pages[i].empty() ? nullptr : &stage.CreateStream(pages[i]);
    NamingMemory(print, [&] { reporter.Report(print, print, page); });
    if (page != nullptr) page->Finish();
  }
  stage.Commit();
  return 0;
}

}  // namespace corvane
