// SPDX-License-Identifier: MIT
#include "app/print.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "app/failure.h"
#include "app/image_reader.h"
#include "app/message_recorder.h"
#include "app/output_file.h"
#include "app/output_raw.h"
#include "app/output_staged.h"
#include "app/output_tiff.h"
#include "app/preview_sink.h"
#include "app/print_drops.h"
#include "app/print_page.h"
#include "app/print_planes.h"
#include "app/print_report.h"
#include "app/print_table.h"
#include "app/progress.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr int kMostJobs = 64;

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
    settings.verticalDpi = DefaultVerticalDpi(*settings.mode, settings.alternateMode);
  } else {
    settings.horizontalDpi = options.resolution[0];
    settings.verticalDpi = options.resolution.back();
  }
  CheckResolution(settings);
  return settings;
}

PaperSize PaperFrom(const PrintOptions& options) {
  PaperSize paper = ParsePaperSize(options.paper);
  if (options.landscape) std::swap(paper.widthMm, paper.heightMm);
  return paper;
}

void CheckTogether(const PrintOptions& options) {
  if (options.jobs < 1 || options.jobs > kMostJobs) {
    throw UsageFailure(fmt::format("{}: pages at a time may be 1 to {}", options.jobs, kMostJobs));
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
  if (!options.tags.empty() && options.inputs.size() > 1) {
    throw UsageFailure("--tags belong to one input");
  }
}

// ---------------------------------------------------------------------------------------------
// The pages and their files.

// Whether OUT names a folder that pages go into.
bool IsFolder(const std::string& output) {
  std::error_code ignored;
  return output.empty() || output.back() == '/' || fs::is_directory(output, ignored);
}

// The files of a page; what is not written has no name.
struct PageFileNames {
  fs::path data;     // the printhead data
  fs::path sidecar;  // describes raw data
  fs::path contone;
  fs::path preview;
  fs::path inkMap;
};

struct PlannedPage {
  PageJob job;
  PageFileNames files;
};

std::vector<PlannedPage> PlanPages(const PrintOptions& options, const PageSettings& settings,
                                   const std::string& colorTable) {
  std::vector<PlannedPage> pages;
  for (const std::string& input : options.inputs) {
    const int count = CountImagePages(input);
    if (!options.tags.empty() && count > 1) {
      throw UsageFailure(input + ": --tags belong to an image of one page");
    }
    for (int page = 0; page < count; ++page) {
      // Opened once before anything is written: most bad images show here.
      if (page == 0) OpenImage(input, page);
      PlannedPage planned;
      planned.job.image = input;
      planned.job.page = page;
      planned.job.title = count > 1 ? fmt::format("{}, page {}", input, page + 1) : input;
      planned.job.tags = options.tags;
      planned.job.paper = PaperFrom(options);
      if (options.scalePercent != 0) planned.job.scale = options.scalePercent / 100;
      planned.job.settings = settings;
      planned.job.colorTable = colorTable;
      pages.push_back(std::move(planned));
    }
  }
  return pages;
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
  std::map<std::string, int> total, used;
  int number = 1;  // of the page in the command
  const auto stem = [&](const PlannedPage& page) {
    return folder ? fs::path(options.output) / fs::path(page.job.image).stem()
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
    if (raw) page.files.sidecar = named(".json");
    if (options.contone) page.files.contone = named("-contone.tif");
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
  inputs.insert(inputs.end(), {options.tags, options.preview.inks, colorTable});
  std::vector<fs::path> outputs = {options.record};
  for (const PlannedPage& page : pages) {
    const PageFileNames& files = page.files;
    outputs.insert(outputs.end(),
                   {files.data, files.sidecar, files.contone, files.preview, files.inkMap});
  }
  CheckOutputNames(outputs, inputs);
}

// ---------------------------------------------------------------------------------------------
// One page with its files.

int EncoderThreads(int jobs) {
  const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  return std::clamp(cores / jobs, 1, 8);
}

// The sinks of one page.
class PageFiles {
 public:
  PageFiles(const PageFileNames& files, const PreviewSettings& preview, int encoderThreads,
            OutputStage& stage, PageReceivers& receivers) {
    const auto add = [&](const fs::path& path) -> StagedFile* {
      if (path.empty()) return nullptr;
      names_.push_back(path.string());
      return &stage.Create(path);
    };
    StagedFile& data = *add(files.data);
    if (StagedFile* sidecar = add(files.sidecar)) {
      Take(receivers.binary, std::make_unique<RawSink>(data, *sidecar));
    } else {
      Take(receivers.binary, std::make_unique<TiffSink>(data, encoderThreads));
    }
    if (StagedFile* contone = add(files.contone)) {
      Take(receivers.contone, std::make_unique<TiffSink>(*contone, encoderThreads));
    }
    StagedFile *picture = add(files.preview), *inkMap = add(files.inkMap);
    if (picture != nullptr || inkMap != nullptr) {
      Take(receivers.binary, std::make_unique<PreviewSink>(preview, picture, inkMap));
    }
    receivers.binary.push_back(&drops_);
  }

  const std::vector<std::string>& Names() const { return names_; }
  const DropCounter::Counts& Drops() const { return drops_.Drops(); }

 private:
  void Take(std::vector<PageSink*>& sinks, std::unique_ptr<PageSink> sink) {
    sinks.push_back(sink.get());
    sinks_.push_back(std::move(sink));
  }

  std::vector<std::string> names_;
  std::vector<std::unique_ptr<PageSink>> sinks_;
  DropCounter drops_;
};

ChainSetup SetupFrom(const PrintOptions& options, const std::string& colorTable) {
  ChainSetup setup;
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
        setup_(SetupFrom(options, colorTable)),
        preview_(PreviewSettingsOf(options.preview, pages_[0].job.settings.mediaType - 1)),
        stage_(FolderOf(options)),
        progress_("printing", InputRows(), !options.quiet && !options.json) {
    report_.pages.resize(pages_.size());
    if (!options.record.empty()) {
      recorder_ = std::make_unique<ScriptRecorder>(options.record, setup_);
    }
  }

  PrintReport Run() {
    const auto start = std::chrono::steady_clock::now();
    const std::size_t threads = std::min(static_cast<std::size_t>(options_.jobs), pages_.size());
    std::vector<std::thread> helpers;
    for (std::size_t i = 1; i < threads; ++i) helpers.emplace_back([this] { PrintPages(); });
    PrintPages();
    for (std::thread& helper : helpers) helper.join();
    if (problem_) std::rethrow_exception(problem_);
    if (recorder_) recorder_->Finish();
    stage_.Commit();
    progress_.Clear();
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

  // Takes page after page until there is none left or one has failed.
  void PrintPages() {
    try {
      for (std::size_t i; (i = next_++) < pages_.size();) PrintOne(i);
    } catch (const Stopped&) {
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!problem_) problem_ = std::current_exception();
      failed_ = true;
    }
  }

  void PrintOne(std::size_t index) {
    const PlannedPage& page = pages_[index];
    PageReceivers receivers;
    PageFiles files(page.files, preview_, EncoderThreads(options_.jobs), stage_, receivers);
    receivers.progress = [this](std::uint32_t rows) {
      if (failed_) throw Stopped();
      progress_.Advance(rows);
    };
    if (recorder_) {
      receivers.beforeSend = [this](ZCOM::QObject& message) { recorder_->Record(message); };
    }
    Chain chain(library_, setup_);
    PrintPage(page.job, chain, receivers);

    PrintedPage& printed = report_.pages[index];
    printed.image = page.job.image;
    printed.page = page.job.page;
    printed.files = files.Names();
    printed.shape = ShapeOf(page.job);
    printed.inkUse = InkUseOf(printed.shape, files.Drops(), preview_.inks);
    if (!options_.preview.picture.empty() || !options_.preview.inkMap.empty()) {
      printed.note = PreviewNote(preview_);
    }
  }

  const PrintOptions& options_;
  std::vector<PlannedPage> pages_;
  PluginLibrary library_;
  ChainSetup setup_;
  PreviewSettings preview_;
  OutputStage stage_;
  std::unique_ptr<ScriptRecorder> recorder_;
  Progress progress_;
  PrintReport report_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<bool> failed_ = false;
  std::mutex mutex_;
  std::exception_ptr problem_;
};

}  // namespace

int RunPrint(const PrintOptions& options) {
  CheckTogether(options);
  const PageSettings settings = SettingsFrom(options);
  PaperFrom(options);
  const std::string colorTable = FindColorTable(options.colorTable);
  std::vector<PlannedPage> pages = PlanPages(options, settings, colorTable);
  NameFiles(options, pages);
  CheckFiles(options, pages, colorTable);
  UseDiagnosticsFolder(options.diagnostics);
  const PrintReport report = PrintRun(options, std::move(pages), colorTable).Run();
  if (!options.quiet || options.json) {
    WriteStandardOutput(options.json ? ReportJson(report) : ReportText(report));
  }
  return 0;
}

}  // namespace corvane
