// SPDX-License-Identifier: MIT
#include "app/commands/print.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <system_error>
#include <thread>
#include <utility>

#include "app/chain/message_recorder.h"
#include "app/commands/placed_page.h"
#include "app/commands/print_check.h"
#include "app/commands/print_page.h"
#include "app/commands/print_report.h"
#include "app/commands/standard_input.h"
#include "app/document/renderer.h"
#include "app/image/folder.h"
#include "app/image/ink_planes.h"
#include "app/image/kind.h"
#include "app/image/page_stream.h"
#include "app/image/reader.h"
#include "app/inks/drop_counter.h"
#include "app/output/raw.h"
#include "app/output/tiff.h"
#include "app/page/cells.h"
#include "app/page/page_ranges.h"
#include "app/page/paper.h"
#include "app/page/place.h"
#include "app/page/placing.h"
#include "app/page/planes.h"
#include "app/preview/sink.h"
#include "app/support/failure.h"
#include "app/support/limits.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/progress.h"
#include "app/support/scratch_file.h"
#include "app/support/threads.h"
#include "app/support/units.h"
#include "app/tables/page_tables.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

// Instead of a mask: those that pages have of their own are not taken either.
constexpr std::string_view kNoTags = "none";

// ---------------------------------------------------------------------------------------------
// What was typed, checked.

PageSettings SettingsFrom(const PrintOptions& options) {
  PageSettings settings;
  settings.mode = &ParsePrintMode(options.mode);
  settings.alternateMode = options.alternateMode;
  settings.mediaType = SettingValue(kMediaType, options.media);
  settings.printQuality = options.quality.empty()
                              ? DefaultPrintQuality(*settings.mode, settings.alternateMode)
                              : SettingValue(kPrintQuality, options.quality);
  settings.pageIntent = SettingValue(kPageIntent, options.intent);
  settings.colorPreference = SettingValue(kColorPreference, options.preference);
  settings.paperCharacteristics =
      options.paperCharacteristics.empty()
          ? DefaultPaperCharacteristics(*settings.mode)
          : SettingValue(kPaperCharacteristics, options.paperCharacteristics);
  settings.points = options.points;
  if (!options.overspray.empty()) {
    settings.leftOverspray = options.overspray[0];
    settings.rightOverspray = options.overspray[1];
  }
  if (options.resolution.empty()) {
    settings.horizontalDpi = DefaultHorizontalDpi(*settings.mode, settings.alternateMode);
    settings.verticalDpi = DefaultVerticalDpi();
  } else {
    settings.horizontalDpi = options.resolution[0];
    settings.verticalDpi = options.resolution.back();
  }
  CheckResolution(settings);
  return settings;
}

// Whether documents say how large their sheets are.
bool HasOwnPaper(const PrintOptions& options) { return options.paper == "auto"; }

PaperSize PaperOf(const DocumentPage& page, const std::string& title) {
  constexpr double kMillimetresPerPoint = kMillimetresPerInch / 72;
  return MakePaperSize(title, page.widthPoints * kMillimetresPerPoint,
                       page.heightPoints * kMillimetresPerPoint);
}

PaperSize PaperFrom(const PrintOptions& options) {
  PaperSize paper = ParsePaperSize(HasOwnPaper(options) ? "A4" : options.paper);
  if (options.landscape) std::swap(paper.widthMm, paper.heightMm);
  return paper;
}

bool NamesMask(const PrintOptions& options) {
  return !options.tags.empty() && options.tags != kNoTags;
}

// The first line of a file.
std::string PasswordIn(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string line;
  if (!file || !std::getline(file, line)) throw Failure(path + ": no password can be read");
  return line;
}

RendererSettings RendererFrom(const PrintOptions& options) {
  RendererSettings renderer;
  renderer.memoryBytes = options.rendererMiB << 20;
  renderer.pageSeconds = options.rendererSeconds;
  renderer.password =
      options.passwordFile.empty() ? options.password : PasswordIn(options.passwordFile);
  return renderer;
}

// Whether the printhead data go to the standard output.
bool WritesToStandardOutput(const PrintOptions& options) { return options.output == "-"; }

void CheckTogether(const PrintOptions& options) {
  if (options.jobs < 1 || options.jobs > limits::kPagesAtATime) {
    throw UsageFailure(
        fmt::format("{}: pages at a time may be 1 to {}", options.jobs, limits::kPagesAtATime));
  }
  if (WritesToStandardOutput(options) && (options.contone || options.contonePlanes)) {
    throw UsageFailure("-o - takes the printhead data alone, without --contone");
  }
  if (std::count(options.inputs.begin(), options.inputs.end(), StandardInput::kArgument) > 1) {
    throw UsageFailure("- can be read once");
  }
  if (options.jobs > 1 && !options.record.empty()) {
    throw UsageFailure("--record takes one page at a time");
  }
  if (options.jobs > 1 && !options.diagnostics.empty()) {
    throw UsageFailure("--diagnostics takes one page at a time: its files have fixed names");
  }
  if (options.diagnostics.empty() && (options.saveRgb || options.points)) {
    throw UsageFailure("--save-rgb and --points need the folder of --diagnostics");
  }
  if (NamesMask(options) && (options.inputs.size() > 1 || !options.nup.empty())) {
    throw UsageFailure("--tags belong to one input, on a sheet of its own");
  }
  const PreviewOptions& preview = options.preview;
  const bool draws = !preview.picture.empty() || !preview.inkMap.empty();
  if (!draws && (preview.dpi != 0 || !preview.zoom.empty() || !preview.only.empty())) {
    throw UsageFailure(
        "--preview-dpi, --preview-zoom and --preview-only need --preview or --ink-map");
  }
}

// Whether pages are kept as they are done. The messages of a page that failed have no place in a
// record, so a command with one is a whole.
bool KeepsPages(const PrintOptions& options) {
  return !options.allOrNothing && options.record.empty();
}

// ---------------------------------------------------------------------------------------------
// The pages and their files.

// The inks that the mode halftones, which the planes must be: none more and none missing.
std::vector<std::string> InksFor(const PageSettings& settings, const InkPlanesInfo& planes) {
  const auto mode = static_cast<int>(settings.mode->descriptor);
  std::vector<std::string> inks;
  for (const PlaneShape& plane : ContonePageShape(*settings.mode, settings.alternateMode, 1, 1,
                                                  settings.horizontalDpi, settings.verticalDpi)
                                     .planes) {
    inks.push_back(plane.name);
  }
  const auto has = [](const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
  };
  for (const std::string& ink : planes.inks) {
    if (!has(inks, ink))
      throw Failure(fmt::format("{}: mode {} has no ink {}", planes.path, mode, ink));
  }
  for (const std::string& ink : inks) {
    if (!has(planes.inks, ink)) {
      throw Failure(
          fmt::format("{}: has no plane of ink {}, which mode {} takes", planes.path, ink, mode));
    }
  }
  constexpr double kForgivenDpi = 0.01;
  if (std::abs(planes.horizontalDpi - settings.horizontalDpi) > kForgivenDpi ||
      std::abs(planes.verticalDpi - settings.verticalDpi) > kForgivenDpi) {
    throw Failure(fmt::format(
        "{}: {:g} x {:g} dpi instead of the {} x {} of the page (--resolution)", planes.path,
        planes.horizontalDpi, planes.verticalDpi, settings.horizontalDpi, settings.verticalDpi));
  }
  return inks;
}

// Whether OUT names a folder that pages go into.
bool IsFolder(const std::string& output) {
  std::error_code ignored;
  return output.empty() || output.back() == '/' || fs::is_directory(output, ignored);
}

// The files of a page; what is not written has no name.
struct PageFileNames {
  fs::path data;     // the printhead data; "-" is the standard output
  fs::path sidecar;  // describes raw data
  fs::path contone;
  fs::path preview;
  fs::path inkMap;
};

struct PlannedPage {
  PageJob job;
  PageFileNames files;
  bool streamed = false;               // read from a stream of pages
  bool isStandardInput = false;        // which is that stream
  int copies = 1;                      // that it asks for
  bool collated = false;               // with the others, set after set
  int copy = 1;                        // which of its copies this is
  std::shared_ptr<Document> document;  // that it is rendered from; null: none
  DocumentPage documentPage;
  double drawnScale = 1;  // of that page
  PaperSize drawnSize = {};
  bool tagged = false;             // its pixels say what they show
  std::vector<PlannedPage> cells;  // pages that share this sheet, each on one of its cell's size
  std::vector<SheetArea> areas;    // where those may lie
  std::string problem;  // why it cannot be printed, if that is known; a place among the names stays
};

PlannedPage PlanPage(const PrintOptions& options, const PageSettings& settings,
                     const std::string& colorTable, const std::string& input, int page) {
  PlannedPage planned;
  planned.job.image = input;
  planned.job.page = page;
  planned.job.ownTags = options.tags != kNoTags;
  if (planned.job.ownTags) planned.job.tags = options.tags;
  planned.job.paper = PaperFrom(options);
  planned.job.placing = PlacingFrom(options.placing);
  planned.job.settings = settings;
  planned.job.colorTable = colorTable;
  return planned;
}

// A page of ink planes, on a sheet of its size.
PlannedPage PlanSeparations(const PrintOptions& options, const PageSettings& settings,
                            const std::string& input) {
  PlannedPage planned = PlanPage(options, settings, {}, input, 0);
  const InkPlanesInfo info = OpenInkPlanes(input)->Info();
  planned.job.inks = InksFor(settings, info);
  planned.job.paper = {input, info.width / info.horizontalDpi * kMillimetresPerInch,
                       info.height / info.verticalDpi * kMillimetresPerInch};
  planned.job.title = options.untitled ? std::string() : input;
  return planned;
}

// Gives a page the sheet that it is made for, which turns with it unless it is shared.
void TakePaper(const PrintOptions& options, PaperSize own, PlannedPage& planned) {
  if (IsSideways(planned.job.placing.degrees) && options.nup.empty()) {
    std::swap(own.widthMm, own.heightMm);
  }
  planned.job.paper = std::move(own);
}

// A page that has no room on its sheet: the command is wrong when it names the sheet.
void CheckRoom(const PrintOptions& options, PlannedPage& planned) {
  if (!planned.problem.empty()) return;
  const ImagePlacing& placing = planned.job.placing;
  try {
    AreaOn(SheetOf(planned.job), placing.margins, placing.position);
  } catch (const UsageFailure& failure) {
    planned.problem = fmt::format("{}: {}", planned.job.image, failure.what());
    if (!HasOwnPaper(options)) throw UsageFailure(planned.problem);
  }
}

// What a page of a stream asks for: its copies and, where it says that, the sheet it is made for.
void TakeWishes(const PrintOptions& options, const StreamedPage& page, PlannedPage& planned) {
  planned.copies = page.copies;
  planned.collated = page.collated;
  if (!HasOwnPaper(options) || page.mediaWidthMm <= 0 || page.mediaHeightMm <= 0) return;
  try {
    TakePaper(options, MakePaperSize(planned.job.image, page.mediaWidthMm, page.mediaHeightMm),
              planned);
  } catch (const UsageFailure& failure) {
    planned.problem = failure.what();
  }
}

// The one page of a stream that is read as it comes.
PlannedPage PlanStandardInput(const PrintOptions& options, const PageSettings& settings,
                              const std::string& colorTable) {
  PlannedPage planned = PlanPage(options, settings, colorTable, StandardInput::kName, 0);
  planned.streamed = planned.isStandardInput = true;
  TakeWishes(options, options.standardInput->FirstPage(), planned);
  planned.job.title = options.untitled ? "" : StandardInput::kName;
  return planned;
}

std::vector<int> WantedPages(const PrintOptions& options, const std::string& input, int count) {
  try {
    std::vector<int> pages = PagesIn(options.pages, count);
    if (options.onlyPage == 0) return pages;
    std::erase_if(pages, [&](int page) { return page + 1 != options.onlyPage; });
    if (pages.empty()) throw Failure(fmt::format("{}: has no page {}", input, options.onlyPage));
    return pages;
  } catch (const UsageFailure& failure) {
    throw UsageFailure(fmt::format("{}: --pages {}", input, failure.what()));
  }
}

std::vector<PlannedPage> PlanImage(const PrintOptions& options, const PageSettings& settings,
                                   const std::string& colorTable, const std::string& input) {
  std::vector<PlannedPage> pages;
  const bool streamed = IsPageStream(KindOfFile(input));
  const std::vector<StreamedPage> headers =
      streamed ? ListStreamPages(input) : std::vector<StreamedPage>();
  const int count = streamed ? static_cast<int>(headers.size()) : CountImagePages(input);
  // Opened once before anything is written: most bad images show here.
  OpenImage(input, 0);
  for (const int page : WantedPages(options, input, count)) {
    PlannedPage planned = PlanPage(options, settings, colorTable, input, page);
    planned.streamed = streamed;
    if (streamed) {
      const StreamedPage& header = headers[static_cast<std::size_t>(page)];
      TakeWishes(options, header, planned);
      planned.tagged = planned.job.ownTags && header.image.form.tagged;
    }
    planned.job.title = count > 1 ? fmt::format("{}, page {}", input, page + 1) : input;
    pages.push_back(std::move(planned));
  }
  return pages;
}

// How large a page just has room on its sheet.
double FittingScale(const PaperSize& page, const PaperSize& paper, const ImagePlacing& placing) {
  const Margins& margins = placing.margins;
  const double wide = paper.widthMm - margins.left - margins.right - placing.position.leftMm;
  const double high = paper.heightMm - margins.top - margins.bottom - placing.position.topMm;
  const double fitting = std::min(wide / page.widthMm, high / page.heightMm);
  // What tells the sizes of one paper apart is no reason to scale a page.
  constexpr double kSame = 0.002;
  return std::abs(fitting - 1) < kSame ? 1 : fitting;
}

// How a page of a document is drawn, so that its pixels are the sheet's.
void PlaceDrawing(PlannedPage& planned) {
  ImagePlacing& placing = planned.job.placing;
  constexpr double kPerInch = 100 * kMillimetresPerInch;
  const auto hundredths = [](double millimetres) {
    return static_cast<std::uint32_t>(std::lround(millimetres * 100));
  };
  PaperSize size = planned.drawnSize;
  placing.degrees =
      DegreesOf(placing, {hundredths(size.widthMm), hundredths(size.heightMm), kPerInch, kPerInch},
                SheetOf(planned.job));
  if (IsSideways(placing.degrees)) std::swap(size.widthMm, size.heightMm);
  planned.drawnScale =
      placing.scale ? *placing.scale : FittingScale(size, planned.job.paper, placing);
  placing.scale = 1;
}

// When its sheet is known.
void Place(const PrintOptions& options, PlannedPage& planned) {
  CheckRoom(options, planned);
  if (planned.document && planned.problem.empty()) PlaceDrawing(planned);
}

std::vector<PlannedPage> PlanDocument(const PrintOptions& options, const PageSettings& settings,
                                      const std::string& colorTable, const std::string& input) {
  if (HasOwnPaper(options) && options.landscape) {
    throw UsageFailure(input + ": --landscape turns a sheet that --paper names");
  }
  std::vector<PlannedPage> pages;
  const auto document = std::make_shared<Document>(input, RendererFrom(options));
  const std::vector<DocumentPage> sizes = document->Pages();
  const int count = static_cast<int>(sizes.size());
  for (const int page : WantedPages(options, input, count)) {
    PlannedPage planned = PlanPage(options, settings, colorTable, input, page);
    planned.streamed = true;
    planned.document = document;
    planned.documentPage = sizes[static_cast<std::size_t>(page)];
    planned.collated = true;
    planned.job.title = count > 1 ? fmt::format("{}, page {}", input, page + 1) : input;
    planned.tagged = planned.job.ownTags;
    try {
      planned.drawnSize = PaperOf(planned.documentPage, planned.job.title);
      if (HasOwnPaper(options)) TakePaper(options, planned.drawnSize, planned);
    } catch (const UsageFailure& failure) {
      planned.problem = failure.what();
    }
    pages.push_back(std::move(planned));
  }
  return pages;
}

// Every page as often as it is wanted: copies of a page follow it, or the whole set where a page
// asks for that.
std::vector<PlannedPage> WithCopies(const PrintOptions& options, std::vector<PlannedPage> pages) {
  const auto wanted = [&](const PlannedPage& page) {
    return options.copies > 0 ? options.copies : page.copies;
  };
  std::size_t total = 0;
  int most = 1;
  for (const PlannedPage& page : pages) {
    total += static_cast<std::size_t>(wanted(page));
    most = std::max(most, wanted(page));
  }
  if (most == 1) return pages;
  if (total > limits::kPages) {
    throw UsageFailure(fmt::format("{}: {} pages with their copies are more than {} (--copies)",
                                   pages[0].job.image, total, limits::kPages));
  }
  std::vector<PlannedPage> copies;
  for (int copy = 1; copy <= most; ++copy) {
    for (const PlannedPage& page : pages) {
      if (copy > wanted(page)) continue;
      copies.push_back(page);
      copies.back().copy = copy;
    }
  }
  if (!std::ranges::any_of(pages, &PlannedPage::collated)) {
    std::ranges::stable_sort(copies, {}, [](const PlannedPage& page) { return page.job.page; });
  }
  return copies;
}

std::vector<PlannedPage> PlanInput(const PrintOptions& options, const PageSettings& settings,
                                   const std::string& colorTable, const std::string& input) {
  if (input == StandardInput::kArgument) {
    return {PlanStandardInput(options, settings, colorTable)};
  }
  if (options.separations) {
    return {PlanSeparations(options, settings, input)};
  }
  std::vector<PlannedPage> pages = IsDocument(KindOfFile(input))
                                       ? PlanDocument(options, settings, colorTable, input)
                                       : PlanImage(options, settings, colorTable, input);
  if (NamesMask(options) && (pages.size() > 1 || (!pages.empty() && pages[0].document))) {
    throw UsageFailure(input + ": --tags belong to an image of one page");
  }
  for (PlannedPage& page : pages) {
    if (options.untitled) page.job.title.clear();
  }
  return pages;
}

// The sheet that these pages share. It is of the first one's size.
PlannedPage ShareSheet(const PrintOptions& options, std::span<const PlannedPage> pages) {
  const PageJob& first = pages[0].job;
  PlannedPage sheet = PlanPage(options, first.settings, first.colorTable, first.image, first.page);
  sheet.collated = true;
  sheet.job.paper = first.paper;
  sheet.job.placing = {.margins = sheet.job.placing.margins};
  sheet.job.title =
      pages.size() > 1 ? fmt::format("{} and {} more", first.title, pages.size() - 1) : first.title;
  CheckRoom(options, sheet);
  if (!sheet.problem.empty()) return sheet;
  const Sheet size = SheetOf(sheet.job);
  const SheetArea area = AreaOn(size, sheet.job.placing.margins);
  const bool wide = area.width / size.horizontalDpi > area.height / size.verticalDpi;
  sheet.areas = CellsOf(area, ParseGrid(options.nup, wide));
  for (const PlannedPage& page : pages) {
    PlannedPage& cell = sheet.cells.emplace_back(page);
    const SheetArea& own = sheet.areas[sheet.cells.size() - 1];
    cell.job.paper.widthMm = own.width / size.horizontalDpi * kMillimetresPerInch;
    cell.job.paper.heightMm = own.height / size.verticalDpi * kMillimetresPerInch;
    cell.job.placing.margins = {};
    Place(options, cell);
    if (sheet.problem.empty()) sheet.problem = cell.problem;
    if (cell.document) sheet.document = cell.document;
    sheet.tagged = sheet.tagged || cell.tagged;
  }
  return sheet;
}

std::vector<PlannedPage> ShareSheets(const PrintOptions& options,
                                     const std::vector<PlannedPage>& pages) {
  const std::size_t most = ParseGrid(options.nup, false).Cells();
  std::vector<PlannedPage> sheets;
  for (std::size_t at = 0; at < pages.size(); at += most) {
    sheets.push_back(
        ShareSheet(options, std::span(pages).subspan(at, std::min(most, pages.size() - at))));
  }
  return WithCopies(options, std::move(sheets));
}

std::vector<PlannedPage> PlanPages(const PrintOptions& options, const PageSettings& settings,
                                   const std::string& colorTable) {
  std::vector<PlannedPage> pages;
  for (const std::string& input : options.inputs) {
    try {
      std::vector<PlannedPage> more =
          NamingMemory(input, [&] { return PlanInput(options, settings, colorTable, input); });
      if (options.nup.empty()) more = WithCopies(options, std::move(more));
      std::move(more.begin(), more.end(), std::back_inserter(pages));
    } catch (const UsageFailure&) {
      throw;
    } catch (const Failure& failure) {
      if (!KeepsPages(options) || options.inputs.size() == 1) throw;
      pages.push_back(PlanPage(options, settings, colorTable, input, 0));
      pages.back().job.title = input;
      pages.back().problem = failure.what();
    }
  }
  if (!options.nup.empty()) return ShareSheets(options, pages);
  for (PlannedPage& page : pages) Place(options, page);
  return pages;
}

// How an input is called.
std::string NameOf(const PrintOptions& options, const std::string& input) {
  return options.standardInput ? options.standardInput->WithName(input) : input;
}

// "a.png" as "a-001.png" for the first of several pages.
fs::path Numbered(const fs::path& file, int number) {
  fs::path numbered = file;
  numbered.replace_extension();
  numbered += fmt::format("-{:03}", number);
  return numbered += file.extension();
}

// Gives every page its files: OUT itself for a single page, else names in the folder that are
// numbered where they would meet. Previews are numbered through the command.
void NameFiles(const PrintOptions& options, std::vector<PlannedPage>& pages) {
  const bool raw = options.format == "raw";
  const bool folder = IsFolder(options.output);
  if (WritesToStandardOutput(options) && pages.size() > 1) {
    throw UsageFailure(fmt::format("-o - takes a single page, not {}", pages.size()));
  }
  std::map<std::string, int> total, used;
  int number = 1;  // of the page in the command
  const auto stem = [&](const PlannedPage& page) {
    return folder ? fs::path(options.output) / fs::path(NameOf(options, page.job.image)).stem()
                  : fs::path(options.output).replace_extension();
  };
  for (const PlannedPage& page : pages) ++total[stem(page).string()];
  for (PlannedPage& page : pages) {
    fs::path base = stem(page);
    const std::string key = base.string();
    const bool numbered = total[key] > 1;
    if (numbered) base += fmt::format("-{:03}", ++used[key]);
    const auto named = [&](const char* ending) { return fs::path(base) += ending; };
    page.files.data = folder || numbered ? named(raw ? ".raw" : ".tif") : fs::path(options.output);
    if (raw && !WritesToStandardOutput(options)) page.files.sidecar = named(".json");
    if (options.contone || options.contonePlanes) page.files.contone = named("-contone.tif");
    const auto drawn = [&](const std::string& file) {
      return file.empty() || pages.size() == 1 ? fs::path(file) : Numbered(file, number);
    };
    page.files.preview = drawn(options.preview.picture);
    page.files.inkMap = drawn(options.preview.inkMap);
    ++number;
  }
}

void CheckFiles(const PrintOptions& options, const std::vector<PlannedPage>& pages,
                const std::string& colorTable) {
  std::vector<fs::path> inputs(options.inputs.begin(), options.inputs.end());
  inputs.insert(inputs.end(), {options.preview.inks, colorTable});
  if (NamesMask(options)) inputs.push_back(options.tags);
  std::vector<fs::path> outputs = {options.record};
  for (const PlannedPage& page : pages) {
    const PageFileNames& files = page.files;
    outputs.insert(outputs.end(),
                   {files.data, files.sidecar, files.contone, files.preview, files.inkMap});
  }
  CheckOutputNames(outputs, inputs);
  if (!IsFolder(options.output)) {
    CheckEnding(options.output,
                options.format == "raw" ? Endings(kRawEndings) : Endings(kTiffEndings));
  }
  CheckEnding(options.preview.picture, kPngEndings);
  CheckEnding(options.preview.inkMap, kPngEndings);
  CheckEnding(options.record, kMessageEndings);
  if (!options.noClobber) return;
  for (std::size_t i = 0; !options.report.empty() && i < pages.size(); ++i) {
    outputs.push_back(ReportPathOf(options, i, pages.size()));
  }
  CheckAbsence(outputs);
}

// Pages that are printed one after the other: those of a stream, or a single one.
struct PageGroup {
  std::size_t first, count;
};

bool IsDrawnAlike(const PlannedPage& a, const PlannedPage& b) {
  return a.drawnScale == b.drawnScale &&
         IsSideways(a.job.placing.degrees) == IsSideways(b.job.placing.degrees);
}

// Every page in order. A stream is cut where that gives each of `jobs` threads its share.
std::vector<PageGroup> GroupPages(const std::vector<PlannedPage>& pages, int jobs) {
  std::vector<PageGroup> groups;
  for (std::size_t first = 0, next = 0; first < pages.size(); first = next) {
    const auto belongs = [&](const PlannedPage& page) {
      return pages[first].streamed && page.streamed && page.job.image == pages[first].job.image &&
             page.job.page > pages[next - 1].job.page && IsDrawnAlike(page, pages[first]);
    };
    for (next = first + 1; next < pages.size() && belongs(pages[next]);) ++next;
    const std::size_t most = (next - first + jobs - 1) / jobs;
    for (std::size_t at = first; at < next; at += most) {
      groups.push_back({at, std::min(most, next - at)});
    }
  }
  return groups;
}

// ---------------------------------------------------------------------------------------------
// One page with its files.

// What a page is among those that say it pixel by pixel.
std::uint8_t TagOf(const PageJob& job) {
  const bool graphic = job.settings.pageIntent == SettingValue(kPageIntent, "graphic");
  return graphic ? kGraphicsTag : kPhotoTag;
}

// Reads a page with a tag for each pixel where `bytesPerPixel` is 4: `tag` where it has none.
void ReadTagged(PlacedPage& page, std::uint32_t width, std::size_t bytesPerPixel, std::uint8_t tag,
                const CellRows::RowReceiver& receiver) {
  if (page.BytesPerPixel() == bytesPerPixel) return page.Read(receiver);
  std::vector<std::uint8_t> tagged(bytesPerPixel * width, tag);
  page.Read([&](const std::uint8_t* row) {
    for (std::size_t x = 0; x < width; ++x) std::copy_n(row + 3 * x, 3, &tagged[bytesPerPixel * x]);
    receiver(tagged.data());
  });
}

int EncoderThreads(const PrintOptions& options) {
  constexpr int kMost = 8;
  const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  const int wanted = options.encoderThreads > 0 ? options.encoderThreads : cores / options.jobs;
  return std::clamp(wanted, 1, kMost);
}

// The files of a page in the stage; null for what is not written.
struct StagedPage {
  // What is for the standard output goes into `spool`, if there is one, first.
  StagedPage(const PageFileNames& names, OutputStage& stage, const ScratchFile* spool = nullptr) {
    const auto add = [&](const fs::path& path) {
      return path.empty() ? nullptr : &stage.Create(path);
    };
    if (names.data != "-") {
      data = add(names.data);
    } else if (spool != nullptr) {
      data = &stage.Adopt(spool->Duplicate(), "standard output");
    } else {
      data = &stage.CreateStream(names.data);
    }
    sidecar = add(names.sidecar);
    contone = add(names.contone);
    preview = add(names.preview);
    inkMap = add(names.inkMap);
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const StagedFile* file : {data, sidecar, contone, preview, inkMap}) {
      if (file != nullptr) names.push_back(file->Path().string());
    }
    return names;
  }

  StagedFile *data, *sidecar, *contone, *preview, *inkMap;
};

// The sinks of one page.
class PageSinks {
 public:
  PageSinks(const StagedPage& files, const PrintOptions& options, const PreviewSettings& preview,
            PageReceivers& receivers) {
    const int threads = EncoderThreads(options);
    if (options.format == "raw") {
      Take(receivers.binary, std::make_unique<RawSink>(*files.data, files.sidecar));
    } else {
      Take(receivers.binary, std::make_unique<TiffSink>(*files.data, threads));
    }
    if (files.contone != nullptr) {
      const TiffForm form = options.contonePlanes ? TiffForm::Directories : TiffForm::Separated;
      Take(receivers.contone, std::make_unique<TiffSink>(*files.contone, threads, form));
    }
    if (files.preview != nullptr || files.inkMap != nullptr) {
      Take(receivers.binary, std::make_unique<PreviewSink>(preview, files.preview, files.inkMap));
    }
    receivers.binary.push_back(&drops_);
  }

  const DropCounter::Counts& Drops() const { return drops_.Drops(); }

 private:
  void Take(std::vector<PageSink*>& sinks, std::unique_ptr<PageSink> sink) {
    sinks.push_back(sink.get());
    sinks_.push_back(std::move(sink));
  }

  std::vector<std::unique_ptr<PageSink>> sinks_;
  DropCounter drops_;
};

ChainSetup SetupFrom(const PrintOptions& options, const std::string& colorTable) {
  ChainSetup setup;
  if (options.separations) setup.elements = kChainOfInks;
  setup.host.SetProperty("ColorTableFilename", colorTable.c_str(), "Standard");
  if (!options.diagnostics.empty()) {
    setup.elementProperties["EHalftoneModule"].SetProperty("WriteToFile", 1, "EHalftoneModule");
  }
  if (options.saveRgb) {
    setup.elementProperties["EColorInline"].SetProperty("SaveRgb", 1, "EColorInline");
  }
  return setup;
}

// Everything that the pages of a command share.
class PrintRun {
 public:
  PrintRun(const PrintOptions& options, std::vector<PlannedPage> pages,
           const std::string& colorTable)
      : options_(options),
        pages_(std::move(pages)),
        groups_(GroupPages(pages_, options.jobs)),
        keepsPages_(KeepsPages(options) && pages_.size() > 1),
        setup_(SetupFrom(options, colorTable)),
        preview_(PreviewSettingsOf(options.preview, pages_[0].job.settings.mediaType - 1)),
        stage_(FolderOf(options)),
        progress_("printing", InputRows(),
                  ProgressStyleOf(options.progress, options.quiet || options.json)) {
    report_.pages.resize(pages_.size());
    // Rows go out as they come; a TIFF file, which is written forth and back, when it is done.
    if (WritesToStandardOutput(options) && options.format != "raw") spooled_.emplace();
    for (const PlannedPage& page : pages_) {
      if (page.document) report_.sandboxed = page.document->Sandboxed();
      if (page.isStandardInput && page.copies > 1 && options.copies == 0) {
        report_.remarks.push_back(fmt::format(
            "{}: asks for {} copies, for which -o has to name a folder, and is printed once",
            StandardInput::kName, page.copies));
      }
      if (!keepsPages_) staged_.emplace_back(page.files, stage_, spooled_ ? &*spooled_ : nullptr);
    }
    if (!options.record.empty()) {
      recorder_ = std::make_unique<ScriptRecorder>(stage_.CreateStream(options.record), setup_);
    }
  }

  PrintReport Run() {
    const auto start = std::chrono::steady_clock::now();
    const std::size_t threads = std::min(static_cast<std::size_t>(options_.jobs), groups_.size());
    std::vector<std::thread> helpers;
    StartThreads(threads - 1, helpers, [this] { PrintPages(); });
    PrintPages();
    for (std::thread& helper : helpers) helper.join();
    progress_.Clear();
    if (problem_) std::rethrow_exception(problem_);
    stage_.Commit();
    if (spooled_) spooled_->SendToStandardOutput(staged_[0].data->Size());
    std::erase_if(report_.pages, [](const PrintedPage& page) { return page.files.empty(); });
    report_.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    report_.peakMemoryBytes = PeakMemoryBytes();
    return std::move(report_);
  }

 private:
  struct Stopped {};

  static fs::path FolderOf(const PrintOptions& options) {
    return IsFolder(options.output) ? fs::path(options.output) : fs::path();
  }

  std::uint64_t InputRows() const {
    std::uint64_t rows = 0;
    for (const PlannedPage& page : pages_) rows += SheetOf(page.job).height;
    return rows;
  }

  // Takes group after group until there is none left or something has stopped the run.
  void PrintPages() {
    try {
      for (std::size_t i; (i = next_++) < groups_.size() && !failed_;) PrintGroup(groups_[i]);
    } catch (const Stopped&) {
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!problem_) problem_ = std::current_exception();
      failed_ = true;
    }
  }

  // A group while it is printed.
  struct GroupReading {
    const std::vector<PlannedPage>& pages;
    PageGroup group;
    std::unique_ptr<PageStream> stream = nullptr;  // null: not opened yet
  };

  void PrintGroup(const PageGroup& group) {
    GroupReading reading = {pages_, group};
    for (std::size_t i = group.first; i < group.first + group.count && !failed_; ++i) {
      keepsPages_ ? PrintAndKeep(i, reading) : PrintOne(i, staged_[i], reading);
    }
    TakeRemarks(reading);
  }

  void TakeRemarks(GroupReading& reading) {
    const std::string remarks = reading.stream && !failed_ ? reading.stream->Remarks() : "";
    if (remarks.empty()) return;
    const std::lock_guard lock(mutex_);
    report_.remarks.push_back(remarks);
  }

  // Goes to a page, from where the group has been read to.
  void GoTo(std::size_t index, GroupReading& reading) {
    const PlannedPage& page = reading.pages[index];
    if (page.isStandardInput) {
      reading.stream = options_.standardInput->TakeStream();
      return;
    }
    if (!reading.stream && page.document) {
      Rendering rendering;
      rendering.horizontalDpi = page.job.settings.horizontalDpi;
      rendering.verticalDpi = page.job.settings.verticalDpi;
      if (IsSideways(page.job.placing.degrees)) {
        std::swap(rendering.horizontalDpi, rendering.verticalDpi);
      }
      rendering.scale = page.drawnScale;
      rendering.ahead = options_.jobs == 1;
      for (std::size_t i = index; i < reading.group.first + reading.group.count; ++i) {
        rendering.pages.push_back({reading.pages[i].job.page, reading.pages[i].documentPage});
      }
      reading.stream = page.document->Render(rendering);
    } else if (!reading.stream) {
      reading.stream = OpenPageStream(page.job.image);
    }
    reading.stream->GoTo(page.job.page);
  }

  // The rows of a sheet that pages share.
  std::unique_ptr<RowSource> RowsOfCells(const PlannedPage& sheet) {
    const std::size_t bytesPerPixel = sheet.tagged ? 4 : 3;
    auto reading = std::make_shared<GroupReading>(GroupReading{sheet.cells, {0, 0}});
    const auto read = [=, this, &sheet](std::size_t index, const CellRows::RowReceiver& receiver) {
      const PageJob& job = sheet.cells[index].job;
      NamingMemory(job.image, [&] {
        GoToCell(index, *reading);
        PlacedPage page(job, reading->stream.get(), SheetOf(job));
        ReadTagged(page, SheetOf(job).width, bytesPerPixel, TagOf(job), receiver);
      });
      if (index + 1 == reading->group.first + reading->group.count) TakeRemarks(*reading);
    };
    return std::make_unique<CellRows>(SheetOf(sheet.job), sheet.areas, sheet.cells.size(),
                                      bytesPerPixel, read);
  }

  void GoToCell(std::size_t index, GroupReading& reading) {
    for (const PageGroup& group : GroupPages(reading.pages, 1)) {
      if (index != group.first) continue;
      reading.group = group;
      reading.stream.reset();
    }
    if (reading.pages[index].streamed) GoTo(index, reading);
  }

  // A page whose files have their names as soon as they are done; one that fails is reported.
  void PrintAndKeep(std::size_t index, GroupReading& reading) {
    const PlannedPage& page = pages_[index];
    try {
      OutputStage stage;
      PrintOne(index, StagedPage(page.files, stage), reading);
      stage.Commit();
    } catch (const OutputFailure&) {
      throw;
    } catch (const Failure& failure) {
      reading.stream.reset();  // it may be what has failed
      progress_.Clear();
      const std::string reason = NameOf(options_, failure.what());
      Complain(reason);
      const std::lock_guard lock(mutex_);
      report_.pages[index] = {};
      report_.failures.push_back(
          {NameOf(options_, page.job.image), page.job.page, page.job.title, reason});
    }
  }

  void PrintOne(std::size_t index, const StagedPage& files, GroupReading& reading) {
    NamingMemory(pages_[index].job.image, [&] { PrintInto(index, files, reading); });
  }

  void PrintInto(std::size_t index, const StagedPage& files, GroupReading& reading) {
    const PlannedPage& page = pages_[index];
    if (!page.problem.empty()) throw Failure(page.problem);
    if (page.streamed) GoTo(index, reading);
    PageReceivers receivers;
    PageSinks sinks(files, options_, preview_, receivers);
    receivers.progress = [this](std::uint32_t rows) {
      if (failed_) throw Stopped();
      progress_.Advance(rows);
    };
    receivers.forms = options_.forms;
    receivers.formKey = options_.formKey;
    receivers.reused = [&](std::uint32_t rows) { report_.pages[index].reusedRows += rows; };
    if (recorder_) {
      receivers.beforeSend = [this](ZCOM::QObject& message) { recorder_->Record(message); };
    }
    Chain chain(library_, setup_);
    PageJob job = page.job;
    if (!page.cells.empty()) job.openRows = [&] { return RowsOfCells(page); };
    PrintPage(job, reading.stream.get(), chain, receivers);
    CheckDiagnostics(options_.diagnostics);
    if (page.isStandardInput && reading.stream->Next()) {
      throw Failure(std::string(StandardInput::kName) +
                    ": has more than one page, for which -o has to name a folder");
    }

    PrintedPage& printed = report_.pages[index];
    printed.image = NameOf(options_, page.job.image);
    printed.page = page.job.page;
    for (const PlannedPage& cell : page.cells) {
      printed.cells.emplace_back(NameOf(options_, cell.job.image), cell.job.page);
    }
    printed.copies = page.copies;
    printed.copy = page.copy;
    printed.files = files.Names();
    printed.shape = ShapeOf(page.job);
    printed.inkUse = InkUseOf(printed.shape, sinks.Drops(), preview_.inks);
    if (!options_.preview.picture.empty() || !options_.preview.inkMap.empty()) {
      printed.note = PreviewNote(preview_);
    }
  }

  const PrintOptions& options_;
  std::vector<PlannedPage> pages_;
  std::vector<PageGroup> groups_;
  bool keepsPages_;
  PluginLibrary library_;
  ChainSetup setup_;
  PreviewSettings preview_;
  OutputStage stage_;
  std::optional<ScratchFile> spooled_;
  std::vector<StagedPage> staged_;
  std::unique_ptr<ScriptRecorder> recorder_;
  Progress progress_;
  PrintReport report_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<bool> failed_ = false;
  std::mutex mutex_;
  std::exception_ptr problem_;
};

// Names every page that was not printed, behind the summary.
void ComplainOf(const PrintReport& report) {
  std::vector<std::string> titles;
  for (const FailedPage& page : report.failures) titles.push_back(page.title);
  const std::size_t pages = report.pages.size() + titles.size();
  Complain(
      fmt::format("{} of {} pages not printed: {}", titles.size(), pages, fmt::join(titles, "; ")));
}

// Puts the files of a folder in its place.
void OpenFolders(PrintOptions& options) {
  std::vector<std::string> inputs;
  for (const std::string& input : options.inputs) {
    std::error_code ignored;
    const bool folder = !options.separations && fs::is_directory(input, ignored);
    const std::vector<std::string> files =
        folder ? PrintableFilesIn(input) : std::vector<std::string>{input};
    inputs.insert(inputs.end(), files.begin(), files.end());
  }
  options.inputs = std::move(inputs);
}

// Opens the standard input where it is named. A stream of which one page is wanted is read as it
// comes; everything else is stored first, and its path stands for it.
void OpenStandardInput(PrintOptions& options) {
  const auto named =
      std::find(options.inputs.begin(), options.inputs.end(), StandardInput::kArgument);
  if (named == options.inputs.end()) return;
  options.standardInput = std::make_shared<StandardInput>();
  const bool onePage = options.inputs.size() == 1 && !IsFolder(options.output) &&
                       options.onlyPage == 0 && options.pages.empty() && options.copies <= 1 &&
                       !options.separations && options.nup.empty();
  if (onePage && options.standardInput->IsPageStream()) return;
  *named = options.standardInput->Store();
}

PrintReport PrintOpened(const PrintOptions& options) {
  const PageSettings settings = SettingsFrom(options);
  PaperFrom(options);
  const std::string colorTable =
      options.separations ? std::string() : FindColorTable(options.colorTable);
  std::vector<PlannedPage> pages = PlanPages(options, settings, colorTable);
  for (PlannedPage& page : pages) page.job.title = NameOf(options, page.job.title);
  NameFiles(options, pages);
  CheckFiles(options, pages, colorTable);
  UseDiagnosticsFolder(options.diagnostics);
  if (options.points) CheckPoints(options.diagnostics);
  return PrintRun(options, std::move(pages), colorTable).Run();
}

}  // namespace

PrintReport Print(const PrintOptions& options) {
  PrintOptions opened = options;
  OpenFolders(opened);
  CheckTogether(opened);
  OpenStandardInput(opened);
  try {
    return PrintOpened(opened);
  } catch (const UsageFailure& failure) {
    throw UsageFailure(NameOf(opened, failure.what()));
  } catch (const TransientFailure&) {
    throw;
  } catch (const Failure& failure) {
    throw Failure(NameOf(opened, failure.what()));
  }
}

PageSettings PageSettingsFrom(const PrintOptions& options) { return SettingsFrom(options); }

std::vector<PageEstimate> EstimatePages(const PrintOptions& options) {
  const PageSettings settings = SettingsFrom(options);
  std::vector<PageEstimate> estimates;
  for (const PlannedPage& page : PlanPages(options, settings, {})) {
    const PageShape shape = ShapeOf(page.job);
    estimates.push_back({page.job.page, static_cast<double>(shape.rowBytes) * shape.rows});
  }
  return estimates;
}

int RunPrint(const PrintOptions& options) {
  CheckReportOptions(options);
  const PrintReport report = Print(options);
  for (const std::string& remark : report.remarks) Complain(remark);
  WriteReports(options, report);
  if (!options.quiet || options.json) {
    const auto write = [&](std::string_view text) {
      // Where the page has gone to there is no room for a report.
      WritesToStandardOutput(options) ? fmt::print(stderr, "{}", text) : WriteStandardOutput(text);
    };
    options.json ? WriteReportJson(report, write) : write(ReportText(report));
  }
  if (report.failures.empty()) return 0;
  ComplainOf(report);
  return 1;
}

}  // namespace corvane
