// SPDX-License-Identifier: MIT
#include "app/commands/chart.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "app/calibration/chart_page.h"
#include "app/calibration/reference.h"
#include "app/chain/chain.h"
#include "app/commands/print_page.h"
#include "app/image/row_source.h"
#include "app/output/tiff.h"
#include "app/page/paper.h"
#include "app/page/planes.h"
#include "app/page/settings.h"
#include "app/support/failure.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

PageSettings SettingsFrom(const ChartOptions& options) {
  PageSettings settings = DefaultSettings(ParsePrintMode(options.mode), options.alternateMode);
  settings.mediaType = SettingValue(kMediaType, options.media);
  CheckResolution(settings);
  return settings;
}

ChartChoice ChoiceFrom(const ChartOptions& options, const PageSettings& settings) {
  ChartChoice choice;
  choice.media = settings.mediaType - 1;
  choice.kind = options.update ? ChartKind::Update : ChartKind::Whole;
  // Of modes that lose a plane on its way the inks that reach the paper.
  const RowPlanes placed = PlanesAfter(Stage::Placed, *settings.mode, settings.alternateMode);
  for (const Ink ink : PrintedInks(*settings.mode)) {
    if (placed.Holds(ink)) choice.inks.push_back(ink);
  }
  choice.inkLimit =
      options.inkLimit ? *options.inkLimit / 100 : DefaultInkData().media[*choice.media].inkLimit;
  return choice;
}

// A later page of a chart that had more would look like one of this one's.
void CheckLaterPages(const fs::path& folder, int pages) {
  const fs::path later = folder / fmt::format("chart-{}.tif", pages + 1);
  std::error_code error;
  if (!fs::exists(later, error)) return;
  throw Failure(fmt::format(
      "{}: this page and any after it are of another chart: remove them, or take another folder",
      later.string()));
}

ChartReading ReadingFrom(const std::string& text) {
  if (text == "strip") return ChartReading::Strip;
  if (text == "hand") return ChartReading::HandHeld;
  throw UsageFailure(text + ": an instrument is read by strip or by hand");
}

// A page of ink amounts as rows of contone planes.
class InkPageRows : public RowSource {
 public:
  InkPageRows(InkPage page, std::vector<Ink> inks)
      : RowSource(page.Size().width, page.Size().height, inks.size()),
        page_(std::move(page)),
        inks_(std::move(inks)) {}

  void ReadRow(std::uint8_t* row) override { page_.Row(y_++, inks_, {row, RowBytes()}); }

 private:
  InkPage page_;
  std::vector<Ink> inks_;
  std::uint32_t y_ = 0;
};

PageJob JobOf(const InkPage& page, const std::string& name, const PaperSize& paper,
              const PageSettings& settings) {
  PageJob job;
  job.image = job.title = name;
  job.paper = paper;
  job.settings = settings;
  const Sheet& sheet = page.Size();
  std::vector<Ink> inks;
  for (const PlaneShape& plane :
       ContonePageShape(*settings.mode, settings.alternateMode, sheet.width, sheet.height,
                        settings.horizontalDpi, settings.verticalDpi)
           .planes) {
    inks.push_back(plane.ink);
    job.inks.push_back(plane.name);
  }
  job.openRows = [page, inks] { return std::make_unique<InkPageRows>(page, inks); };
  return job;
}

}  // namespace

int RunChart(const ChartOptions& options) {
  const PageSettings settings = SettingsFrom(options);
  const ChartChoice choice = ChoiceFrom(options, settings);
  const PaperSize paper = ParsePaperSize(options.paper);
  const std::vector<ChartPatch> patches = PatchesOf(choice);
  const ChartLayout layout(paper, ReadingFrom(options.reading), patches.size());
  const Sheet sheet = MakeSheet(paper, settings.horizontalDpi, settings.verticalDpi);

  const fs::path folder = options.output;
  CheckLaterPages(folder, layout.Pages());
  OutputStage stage(folder);
  const PluginLibrary library;
  ChainSetup setup;
  setup.elements = kChainOfInks;
  Chain chain(library, setup);
  const auto print = [&](const InkPage& page, const std::string& name) {
    TiffSink sink(stage.Create(folder / (name + ".tif")), 2);
    PageReceivers receivers;
    receivers.binary = {&sink};
    PrintPage(JobOf(page, name, paper, settings), nullptr, chain, receivers);
  };
  const std::string title =
      fmt::format("Corvane {} {} {}", static_cast<int>(settings.mode->descriptor), options.media,
                  options.update ? "update chart" : "chart");
  const std::vector<InkPage> pages = ChartPages(patches, layout, sheet, choice.inks, title);
  for (std::size_t i = 0; i < pages.size(); ++i) {
    print(pages[i], fmt::format("chart-{}", i + 1));
  }
  print(NozzlePage(sheet, choice.inks, title + ": nozzles"), "nozzles");
  print(AlignmentPage(sheet, choice.inks, title + ": alignment"), "alignment");

  const PrintModel model(DefaultInkData(), settings.mediaType - 1);
  stage.Create(folder / "chart.ti1").Append(CgatsText(TargetValues(choice, model)));
  stage.Create(folder / "chart.ti2").Append(CgatsText(PlacedTarget(choice, model, layout, paper)));
  stage.Commit();
  if (!options.quiet) {
    Tell(fmt::format("{}: {} patches of {} on {} page{}, {} steps a strip, ink to {:.0f} %\n",
                     Printable(folder.string()), patches.size(), InkCombination(choice.inks),
                     pages.size(), pages.size() == 1 ? "" : "s", layout.Steps(),
                     choice.inkLimit * 100));
  }
  return 0;
}

}  // namespace corvane
