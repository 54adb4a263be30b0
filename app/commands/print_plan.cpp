// SPDX-License-Identifier: MIT
#include "app/commands/print_plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

#include "app/chain/chain.h"
#include "app/chain/message_recorder.h"
#include "app/commands/standard_input.h"
#include "app/image/ink_planes.h"
#include "app/image/kind.h"
#include "app/image/page_stream.h"
#include "app/image/reader.h"
#include "app/page/cells.h"
#include "app/page/page_ranges.h"
#include "app/page/placing.h"
#include "app/page/planes.h"
#include "app/support/failure.h"
#include "app/support/limits.h"
#include "app/support/lines.h"
#include "app/support/output_stage.h"
#include "app/support/platform.h"
#include "app/support/units.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

// Instead of a mask: those that pages have of their own are not taken either.
constexpr std::string_view kNoTags = "none";

// Whether documents say how large their sheets are.
bool HasOwnPaper(const PrintOptions& options) { return options.paper == "auto"; }

PaperSize SizeOf(const DocumentPage& page, const std::string& title) {
  constexpr double kMillimetresPerPoint = kMillimetresPerInch / kPointsPerInch;
  return {title, page.widthPoints * kMillimetresPerPoint, page.heightPoints * kMillimetresPerPoint};
}

// A page that has to be drawn on a sheet of another size.
void CheckDrawnSize(PlannedPage& planned) {
  const PaperSize& size = planned.drawnSize;
  const auto isSound = [](double mm) {
    return mm >= limits::kShortestDrawingMm && mm <= limits::kLongestSheetMm;
  };
  if (isSound(size.widthMm) && isSound(size.heightMm)) return;
  planned.problem = fmt::format("{}: a page's sides are {} to {} mm long", planned.job.title,
                                limits::kShortestDrawingMm, limits::kLongestSheetMm);
}

// The first line of a file.
std::string PasswordIn(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string line;
  if (!file) FailOfSystem(path, errno);
  if (!ReadLine(file, path, &line)) throw Failure(path + ": holds no password");
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
  planned.planeFiles = info.files;
  planned.job.paper = {input, info.width / info.horizontalDpi * kMillimetresPerInch,
                       info.height / info.verticalDpi * kMillimetresPerInch};
  planned.job.title = options.untitled ? std::string() : input;
  return planned;
}

// Why nothing can be printed on a sheet of that size; empty: it can.
std::string ProblemOf(const PaperSize& paper) {
  try {
    MakePaperSize(paper.name, paper.widthMm, paper.heightMm);
    return {};
  } catch (const UsageFailure& failure) {
    return failure.what();
  }
}

// Gives a page the sheet that it is made for, which turns with it unless it is shared.
void TakePaper(const PrintOptions& options, PaperSize own, PlannedPage& planned) {
  if (options.landscape) {
    throw UsageFailure(planned.job.image + ": --landscape turns a sheet that --paper names");
  }
  if (IsSideways(planned.job.placing.degrees) && options.nup.empty()) {
    std::swap(own.widthMm, own.heightMm);
  }
  if (options.nup.empty()) planned.problem = ProblemOf(own);
  if (planned.problem.empty()) planned.job.paper = std::move(own);
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
  TakePaper(options, {planned.job.image, page.mediaWidthMm, page.mediaHeightMm}, planned);
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
    const std::string problem = fmt::format("{}: --pages {}", input, failure.what());
    const bool mayBeInOthers =
        options.inputs.size() > 1 && dynamic_cast<const NoSuchPage*>(&failure) != nullptr;
    if (mayBeInOthers) throw Failure(problem);
    throw UsageFailure(problem);
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
  PaperSize size = planned.drawnSize;
  placing.degrees = DegreesOf(placing, size, SheetOf(planned.job));
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

// Whether all pages of a document will most likely be printed one after the other as large as they
// are; who only lists them names no table.
bool WillPrintWhole(const PrintOptions& options, const std::string& colorTable) {
  const double scale = options.placing.scalePercent;
  const bool asLarge = (scale == 0 || scale == 100) && options.placing.margins.empty();
  return asLarge && !colorTable.empty() && options.inputs.size() == 1 && options.jobs == 1 &&
         options.pages.empty() && options.onlyPage == 0 && options.copies <= 1 &&
         HasOwnPaper(options) && options.nup.empty();
}

std::vector<PlannedPage> PlanDocument(const PrintOptions& options, const PageSettings& settings,
                                      const std::string& colorTable, const std::string& input) {
  std::vector<PlannedPage> pages;
  const auto document = std::make_shared<Document>(input, RendererFrom(options));
  if (WillPrintWhole(options, colorTable)) {
    document->Expect(settings.horizontalDpi, settings.verticalDpi);
  }
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
    planned.drawnSize = SizeOf(planned.documentPage, planned.job.title);
    CheckDrawnSize(planned);
    if (HasOwnPaper(options)) TakePaper(options, planned.drawnSize, planned);
    pages.push_back(std::move(planned));
  }
  return pages;
}

// Every page as often as it is wanted: copies of a page follow it, or the whole set where a page
// asks for that.
std::vector<PlannedPage> WithCopies(const PrintOptions& options, std::vector<PlannedPage> pages) {
  const auto wanted = [&](const PlannedPage& page) {
    if (page.isStandardInput) return 1;  // it is read once
    return options.copies > 0 ? options.copies : page.copies;
  };
  std::size_t total = 0;
  int most = 1;
  for (const PlannedPage& page : pages) {
    total += static_cast<std::size_t>(wanted(page));
    most = std::max(most, wanted(page));
  }
  if (total > limits::kPages) {
    throw UsageFailure(fmt::format("{}: {} pages with their copies are more than {} (--copies)",
                                   pages[0].job.image, total, limits::kPages));
  }
  if (most == 1) return pages;
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
  sheet.job.placing = {.margins = sheet.job.placing.margins};
  sheet.job.title =
      pages.size() > 1 ? fmt::format("{} and {} more", first.title, pages.size() - 1) : first.title;
  sheet.problem = ProblemOf(first.paper);
  if (!sheet.problem.empty()) return sheet;
  sheet.job.paper = first.paper;
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

// "a.png" as "a-001.png" for the first of several pages.
fs::path Numbered(const fs::path& file, int number) {
  fs::path numbered = file;
  numbered.replace_extension();
  numbered += fmt::format("-{:03}", number);
  return numbered += file.extension();
}

bool IsDrawnAlike(const PlannedPage& a, const PlannedPage& b) {
  return a.drawnScale == b.drawnScale &&
         IsSideways(a.job.placing.degrees) == IsSideways(b.job.placing.degrees);
}

}  // namespace

bool WritesToStandardOutput(const PrintOptions& options) {
  return IsStandardOutput(options.output) || IsStandardOutput(options.preview.picture) ||
         IsStandardOutput(options.preview.inkMap) || IsStandardOutput(options.report) ||
         IsStandardOutput(options.record);
}

bool KeepsPages(const PrintOptions& options) {
  return !options.allOrNothing && options.record.empty();
}

PaperSize PaperFrom(const PrintOptions& options) {
  PaperSize paper = ParsePaperSize(HasOwnPaper(options) ? "A4" : options.paper);
  if (options.landscape) std::swap(paper.widthMm, paper.heightMm);
  return paper;
}

bool NamesMask(const PrintOptions& options) {
  return !options.tags.empty() && options.tags != kNoTags;
}

std::string NameOf(const PrintOptions& options, const std::string& input) {
  return options.standardInput ? options.standardInput->WithName(input) : input;
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

void NameFiles(const PrintOptions& options, std::vector<PlannedPage>& pages) {
  const bool raw = options.format == "raw";
  const bool folder = NamesFolder(options.output);
  const bool pipe = IsPipeOrDevice(options.output);
  for (const std::string& file :
       {options.output, options.preview.picture, options.preview.inkMap, options.report}) {
    if (pages.size() == 1 || !IsPipeOrDevice(file)) continue;
    throw UsageFailure(fmt::format("{} takes a single page, not {}",
                                   file == options.output ? "-o " + file : file, pages.size()));
  }
  std::map<std::string, int> total, used;
  int number = 1;  // of the page in the command
  const auto stem = [&](const PlannedPage& page) {
    return folder ? fs::path(options.output) / fs::path(NameOf(options, page.job.image)).stem()
                  : fs::path(options.output).replace_extension();
  };
  for (const PlannedPage& page : pages) ++total[FileNameKey(stem(page))];
  for (PlannedPage& page : pages) {
    fs::path base = stem(page);
    const std::string name = base.string(), key = FileNameKey(base);
    const bool numbered = total[key] > 1;
    // Not as another input is called.
    while (numbered && total.contains(FileNameKey(base))) {
      base = fmt::format("{}-{:03}", name, ++used[key]);
    }
    const auto named = [&](const char* ending) { return fs::path(base) += ending; };
    page.files.data = folder || numbered ? named(raw ? ".raw" : ".tif") : fs::path(options.output);
    if (raw && !pipe) page.files.sidecar = named(".json");
    if (options.contone || options.contonePlanes) page.files.contone = named("-contone.tif");
    const auto drawn = [&](const std::string& file) {
      return file.empty() || pages.size() == 1 ? fs::path(file) : Numbered(file, number);
    };
    page.files.preview = drawn(options.preview.picture);
    page.files.inkMap = drawn(options.preview.inkMap);
    page.files.report = drawn(options.report);
    ++number;
  }
}

void CheckFiles(const PrintOptions& options, const std::vector<PlannedPage>& pages,
                const std::string& colorTable) {
  std::vector<fs::path> inputs(options.inputs.begin(), options.inputs.end());
  inputs.insert(inputs.end(), {options.preview.inks, colorTable});
  inputs.emplace_back(options.passwordFile);
  if (NamesMask(options)) inputs.push_back(options.tags);
  std::vector<fs::path> outputs = DiagnosticFilesIn(options.diagnostics, options.saveRgb);
  outputs.emplace_back(options.record);
  for (const PlannedPage& page : pages) {
    const PageFileNames& files = page.files;
    inputs.insert(inputs.end(), page.planeFiles.begin(), page.planeFiles.end());
    outputs.insert(outputs.end(), {files.data, files.sidecar, files.contone, files.preview,
                                   files.inkMap, files.report});
  }
  CheckOutputNames(outputs, inputs);
  if (!NamesFolder(options.output)) {
    CheckEnding(options.output,
                options.format == "raw" ? Endings(kRawEndings) : Endings(kTiffEndings));
  }
  CheckEnding(options.preview.picture, kPngEndings);
  CheckEnding(options.preview.inkMap, kPngEndings);
  CheckEnding(options.record, kMessageEndings);
  if (options.noClobber) CheckAbsence(outputs);
}

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

}  // namespace corvane
