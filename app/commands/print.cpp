// SPDX-License-Identifier: MIT
#include "app/commands/print.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "app/chain/message_recorder.h"
#include "app/commands/placed_page.h"
#include "app/commands/print_check.h"
#include "app/commands/print_page.h"
#include "app/commands/print_plan.h"
#include "app/commands/print_report.h"
#include "app/commands/standard_input.h"
#include "app/image/folder.h"
#include "app/image/page_stream.h"
#include "app/inks/drop_counter.h"
#include "app/output/raw.h"
#include "app/output/tiff.h"
#include "app/page/cells.h"
#include "app/page/place.h"
#include "app/page/placing.h"
#include "app/preview/sink.h"
#include "app/support/failure.h"
#include "app/support/limits.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/platform.h"
#include "app/support/progress.h"
#include "app/support/threads.h"
#include "app/tables/page_tables.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

// ---------------------------------------------------------------------------------------------
// What was typed, checked.

void CheckTogether(const PrintOptions& options) {
  if (options.jobs < 1 || options.jobs > limits::kPagesAtATime) {
    throw UsageFailure(
        fmt::format("{}: pages at a time may be 1 to {}", options.jobs, limits::kPagesAtATime));
  }
  if (IsPipeOrDevice(options.output) && (options.contone || options.contonePlanes)) {
    throw UsageFailure(
        fmt::format("-o {} takes the printhead data alone, without --contone", options.output));
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
  const int cores = ProcessorCount();
  const int wanted = options.encoderThreads > 0 ? options.encoderThreads : cores / options.jobs;
  return std::clamp(wanted, 1, kMost);
}

// The files of a page in the stage; null for what is not written.
struct StagedPage {
  StagedPage(const PageFileNames& names, bool raw, OutputStage& stage) {
    const auto add = [&](const fs::path& path) {
      return path.empty() ? nullptr : &stage.CreateSpooled(path);
    };
    // Rows go out as they come; a TIFF file, which is written forth and back, when it is done.
    data = raw ? &stage.CreateStream(names.data) : add(names.data);
    sidecar = add(names.sidecar);
    contone = add(names.contone);
    preview = add(names.preview);
    inkMap = add(names.inkMap);
    report = add(names.report);
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const StagedFile* file : {data, sidecar, contone, preview, inkMap, report}) {
      if (file != nullptr) names.push_back(file->Path().string());
    }
    return names;
  }

  StagedFile *data, *sidecar, *contone, *preview, *inkMap, *report;
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

// Of the pages, each once: what is wrong with a document is so on every page.
std::vector<std::string> RemarksOn(const std::vector<PrintedPage>& pages) {
  std::vector<std::string> remarks;
  std::set<std::string_view> said;
  for (const PrintedPage& page : pages) {
    for (const std::string& remark : page.remarks) {
      if (said.insert(remark).second) remarks.push_back(remark);
    }
  }
  return remarks;
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
    for (std::size_t i = 0; i < pages_.size(); ++i) {
      const PlannedPage& page = pages_[i];
      if (page.document) report_.sandboxed = page.document->Sandboxed();
      if (page.isStandardInput && page.copies > 1 && options.copies == 0) {
        report_.pages[i].remarks.push_back(fmt::format(
            "{}: asks for {} copies, for which -o has to name a folder, and is printed once",
            StandardInput::kName, page.copies));
      }
      if (!keepsPages_) staged_.emplace_back(page.files, IsRaw(), stage_);
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
    std::erase_if(report_.pages, [](const PrintedPage& page) { return page.files.empty(); });
    report_.remarks = RemarksOn(report_.pages);
    report_.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    report_.peakMemoryBytes = PeakMemoryBytes();
    return std::move(report_);
  }

 private:
  struct Stopped {};

  bool IsRaw() const { return options_.format == "raw"; }

  static fs::path FolderOf(const PrintOptions& options) {
    return NamesFolder(options.output) ? fs::path(options.output) : fs::path();
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
  }

  // Behind a page that has been read for a sheet.
  void TakeRemarks(GroupReading& reading, std::size_t sheet) {
    if (!reading.stream) return;
    std::string remarks = reading.stream->TakeRemarks();
    if (!remarks.empty()) report_.pages[sheet].remarks.push_back(std::move(remarks));
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
  std::unique_ptr<RowSource> RowsOfCells(std::size_t number) {
    const PlannedPage& sheet = pages_[number];
    const std::size_t bytesPerPixel = sheet.tagged ? 4 : 3;
    auto reading = std::make_shared<GroupReading>(GroupReading{sheet.cells, {0, 0}});
    const auto read = [=, this, &sheet](std::size_t index, const CellRows::RowReceiver& receiver) {
      const PageJob& job = sheet.cells[index].job;
      NamingMemory(job.image, [&] {
        GoToCell(index, *reading);
        PlacedPage page(job, reading->stream.get(), SheetOf(job));
        ReadTagged(page, SheetOf(job).width, bytesPerPixel, TagOf(job), receiver);
        if (reading->stream) reading->stream->Finish();
        TakeRemarks(*reading, number);
      });
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
      PrintOne(index, StagedPage(page.files, IsRaw(), stage), reading);
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
    if (!page.cells.empty()) job.openRows = [&] { return RowsOfCells(index); };
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
    TakeRemarks(reading, index);
    if (files.report == nullptr) return;
    files.data->Finish();
    WriteReport(options_, page, printed, *files.data, *files.report);
  }

  const PrintOptions& options_;
  std::vector<PlannedPage> pages_;
  std::vector<PageGroup> groups_;
  bool keepsPages_;
  PluginLibrary library_;
  ChainSetup setup_;
  PreviewSettings preview_;
  OutputStage stage_;
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
  const bool onePage = options.inputs.size() == 1 && !NamesFolder(options.output) &&
                       options.onlyPage == 0 && options.pages.empty() && options.copies <= 1 &&
                       !options.separations && options.nup.empty();
  if (onePage && options.standardInput->IsPageStream()) return;
  *named = options.standardInput->Store();
}

PrintReport PrintOpened(const PrintOptions& options) {
  const PageSettings settings = PageSettingsFrom(options);
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

PageSettings PageSettingsFrom(const PrintOptions& options) {
  PageSettings settings = DefaultSettings(ParsePrintMode(options.mode), options.alternateMode);
  settings.mediaType = SettingValue(kMediaType, options.media);
  if (!options.quality.empty())
    settings.printQuality = SettingValue(kPrintQuality, options.quality);
  settings.pageIntent = SettingValue(kPageIntent, options.intent);
  settings.colorPreference = SettingValue(kColorPreference, options.preference);
  if (!options.paperCharacteristics.empty()) {
    settings.paperCharacteristics =
        SettingValue(kPaperCharacteristics, options.paperCharacteristics);
    if (settings.paperCharacteristics != 0 && settings.mode->inkSet != InkSet::Seven) {
      throw UsageFailure(
          fmt::format("{}: mode {} has no tables without black ink{}", options.paperCharacteristics,
                      options.mode,
                      settings.mode->inkSet == InkSet::Nine ? " but those of --quality best" : ""));
    }
  }
  settings.points = options.points;
  if (!options.overspray.empty()) {
    settings.leftOverspray = options.overspray[0];
    settings.rightOverspray = options.overspray[1];
  }
  if (!options.resolution.empty()) {
    settings.horizontalDpi = options.resolution[0];
    settings.verticalDpi = options.resolution.back();
  }
  CheckResolution(settings);
  return settings;
}

std::vector<PageEstimate> EstimatePages(const PrintOptions& options) {
  const PageSettings settings = PageSettingsFrom(options);
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
  if (!options.quiet || options.json) {
    const auto write = [&](std::string_view text) {
      WriteReportBeside(WritesToStandardOutput(options), options.json, text);
    };
    options.json ? WriteReportJson(report, write) : write(ReportText(report));
  }
  if (report.failures.empty()) return 0;
  ComplainOf(report);
  return 1;
}

}  // namespace corvane
