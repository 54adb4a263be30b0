// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "app/chain/plugin_library.h"
#include "app/commands/job.h"
#include "app/commands/print.h"
#include "app/commands/print_settings.h"
#include "app/jobs/cache.h"
#include "app/jobs/digest.h"
#include "app/jobs/form.h"
#include "app/jobs/record.h"
#include "app/jobs/share.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/platform.h"
#include "app/support/progress.h"
#include "app/support/threads.h"
#include "app/tables/page_tables.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFormBytes = std::size_t{256} << 20;
constexpr double kCostPerProgress = 1000;  // a progress bar counts in whole numbers

// What is wrong with the job and not with one of its pages.
class JobFailure : public Failure {
 public:
  using Failure::Failure;
};

// What came of a share.
struct Tally {
  std::uint64_t printed = 0, cached = 0, there = 0, failed = 0, postponed = 0;
};

// Everything that the pages of a share have in common. Several threads print them.
class JobRun {
 public:
  JobRun(const JobRunOptions& options, const Share& share, int tasks)
      : options_(options),
        tasks_(tasks),
        encoderThreads_(std::max(1, UsableCores(&std::getenv) / tasks)),
        reader_(options.manifest),
        ofShare_(share, reader_.Totals()),
        progress_("printing", InUnits(reader_.Totals().cost / share.of),
                  ProgressStyleOf(options.progress, options.quiet)) {
    if (options.cache.empty()) return;
    cache_ = std::make_unique<PageCache>(options.cache);
    forms_ = std::make_unique<FormStore>(kFormBytes);
  }

  Tally Run() {
    std::vector<std::thread> helpers;
    StartThreads(static_cast<std::size_t>(tasks_ - 1), helpers, [this] { PrintPages(); });
    PrintPages();
    for (std::thread& helper : helpers) helper.join();
    progress_.Clear();
    if (problem_) std::rethrow_exception(problem_);
    return tally_;
  }

 private:
  static std::uint64_t InUnits(double cost) {
    return static_cast<std::uint64_t>(cost / kCostPerProgress) + 1;
  }

  // The share's next page. False behind the last, and once something has stopped the run.
  bool Take(JobPage* page) {
    const std::lock_guard lock(mutex_);
    while (!stopped_ && reader_.Next(page)) {
      if (ofShare_.Has(*page)) return true;
    }
    return false;
  }

  void PrintPages() {
    try {
      for (JobPage page; Take(&page);) {
        ThrowIfInterrupted();
        Settle(page);
        progress_.Advance(InUnits(page.cost));
      }
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!problem_) problem_ = std::current_exception();
      stopped_ = true;
    }
  }

  // Makes a page done or failed, or leaves it to another run.
  void Settle(const JobPage& page) {
    try {
      const PageStanding standing = StandingOf(options_.manifest, page);
      if (standing.state == PageState::Done) return Count(&Tally::there);
      if (standing.state == PageState::Failed && !options_.retryFailed) {
        return Count(&Tally::failed);
      }
      if (standing.isOfAnotherJob) {
        throw JobFailure(ResolvePath(options_.manifest, page.output).string() +
                         ": belongs to another job");
      }
      TryTwice([&] {
        CheckFiles(page);
        Print(page);
      });
    } catch (const OutputFailure&) {
      throw;
    } catch (const JobFailure&) {
      throw;
    } catch (const TransientFailure& failure) {
      Complain(page, failure.what());
      Count(&Tally::postponed);
    } catch (const Failure& failure) {
      RecordFailure(page, failure.what());
      Complain(page, failure.what());
      Count(&Tally::failed);
    }
  }

  // A page is printed from the very bytes that the manifest tells of.
  void CheckFiles(const JobPage& page) {
    const auto check = [&](const fs::path& path, const std::string& sha256) {
      if (sha256.empty() || digests_.Of(path).sha256 == sha256) return;
      throw Failure(path.string() + ": is not the file that the job was made for");
    };
    check(ResolvePath(options_.manifest, page.input), page.inputSha256);
    const auto tags = page.settings.find("tags");
    if (tags != page.settings.end() && NamesFile(tags->first, tags->second)) {
      check(ResolvePath(options_.manifest, tags->second), page.tagsSha256);
    }
    CheckColorTable(page);
  }

  // Without its table no page can be printed, so this ends the run and not the page.
  void CheckColorTable(const JobPage& page) {
    const auto table = page.settings.find("color-table");
    const bool own = table == page.settings.end();
    const fs::path file =
        own ? fs::path(FindColorTable("")) : ResolvePath(options_.manifest, table->second);
    std::string sha256;
    try {
      sha256 = digests_.Of(file).sha256;
    } catch (const TransientFailure&) {
      throw;
    } catch (const Failure& failure) {
      throw JobFailure(failure.what());
    }
    if (sha256 != page.colorTableSha256) {
      throw JobFailure(file.string() + ": is not the colour table that the job was made for");
    }
  }

  PrintOptions OptionsOf(const JobPage& page) const {
    PrintSettings settings = page.settings;
    for (auto& [name, value] : settings) {
      if (NamesFile(name, value)) value = ResolvePath(options_.manifest, value).string();
    }
    PrintOptions options = PrintOptionsFrom(settings);
    options.inputs = {ResolvePath(options_.manifest, page.input).string()};
    options.onlyPage = page.inputPage;
    options.output = ResolvePath(options_.manifest, page.output).string();
    options.untitled = true;
    options.allOrNothing = true;
    options.quiet = true;
    options.forms = forms_.get();
    options.formKey = FormKeyOf(page);
    options.encoderThreads = encoderThreads_;
    return options;
  }

  void Print(const JobPage& page) {
    const auto start = std::chrono::steady_clock::now();
    const PrintOptions options = OptionsOf(page);
    MakeFolder(fs::path(options.output).parent_path());
    if (IsPipeOrDevice(options.output)) {
      throw Failure(options.output + ": is not an ordinary file");
    }
    if (TakeFromCache(page, options.output)) return Count(&Tally::cached);
    const PrintReport report = corvane::Print(options);
    PageRecord record = NewRecord(page);
    for (const std::string& file : report.pages[0].files) {
      const FileDigest digest = DigestOfFile(file);
      record.files.push_back({fs::path(file).filename().string(), digest.bytes, digest.sha256});
    }
    for (const InkUse& use : report.pages[0].inkUse) {
      record.inks.push_back({kInkNames[static_cast<int>(use.ink)], use.drops, use.nanolitres});
    }
    record.reusedRows = report.pages[0].reusedRows;
    record.remarks = report.remarks;
    record.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    WriteRecord(page, record);
    for (const std::string& remark : report.remarks) Complain(page, remark);
    if (cache_ && IsCacheable(page)) cache_->Keep(page, options.output, record);
    Count(&Tally::printed);
  }

  // Raw data come with a file that holds their name, so pages of other names differ.
  static bool IsCacheable(const JobPage& page) {
    const auto format = page.settings.find("format");
    return format == page.settings.end() || format->second != "raw";
  }

  bool TakeFromCache(const JobPage& page, const fs::path& output) {
    if (!cache_ || !IsCacheable(page)) return false;
    std::optional<PageRecord> found = cache_->Take(page, output);
    if (!found) return false;
    PageRecord record = NewRecord(page);
    record.files = std::move(found->files);
    record.inks = std::move(found->inks);
    record.remarks = std::move(found->remarks);
    record.fromCache = true;
    WriteRecord(page, record);
    return true;
  }

  static void MakeFolder(const fs::path& folder) {
    std::error_code problem;
    fs::create_directories(folder, problem);
    if (problem) {
      throw OutputFailure(folder.string() + ": cannot make the folder: " + problem.message());
    }
  }

  static PageRecord NewRecord(const JobPage& page) {
    PageRecord record;
    record.page = page.number;
    record.key = KeyOf(page);
    record.host = HostName();
    record.finished = UtcNow();
    return record;
  }

  void RecordFailure(const JobPage& page, const std::string& reason) const {
    PageRecord record = NewRecord(page);
    record.failure = reason;
    MakeFolder(ResolvePath(options_.manifest, page.output).parent_path());
    WriteRecord(page, record);
  }

  void WriteRecord(const JobPage& page, const PageRecord& record) const {
    WriteOutput(RecordPathOf(ResolvePath(options_.manifest, page.output)), ToJson(record));
  }

  void Complain(const JobPage& page, const std::string& reason) {
    progress_.Clear();
    corvane::Complain(fmt::format("page {}: {}", page.number, reason));
  }

  void Count(std::uint64_t Tally::*what) {
    const std::lock_guard lock(mutex_);
    ++(tally_.*what);
  }

  const JobRunOptions& options_;
  int tasks_;
  int encoderThreads_;     // of a page
  PluginLibrary library_;  // held, so that it is not loaded for every page
  DigestCache digests_;
  std::unique_ptr<PageCache> cache_;
  std::unique_ptr<FormStore> forms_;
  std::mutex mutex_;
  ManifestReader reader_;
  ShareOfPages ofShare_;
  Progress progress_;
  Tally tally_;
  bool stopped_ = false;
  std::exception_ptr problem_;
};

void CheckProgram(const std::string& manifest) {
  JobPage page;
  ManifestReader(manifest).Next(&page);
  if (page.program == CORVANE_VERSION) return;
  throw Failure(fmt::format("{}: was made by version {}, and this is {}: pages might differ",
                            manifest, page.program, CORVANE_VERSION));
}

std::string Summary(const Tally& tally) {
  std::string text = fmt::format("{} printed", tally.printed);
  const auto add = [&](std::uint64_t count, const char* what) {
    if (count > 0) text += fmt::format(", {} {}", count, what);
  };
  add(tally.cached, "from the cache");
  add(tally.there, "there before");
  add(tally.failed, "failed");
  add(tally.postponed, "left for another try");
  return text + '\n';
}

}  // namespace

int RunJobRun(const JobRunOptions& options) {
  const Share share = ShareFrom(options.task, options.of, &std::getenv);
  const int tasks = options.tasks > 0 ? options.tasks : UsableCores(&std::getenv);
  try {
    CheckProgram(options.manifest);
    const Tally tally = JobRun(options, share, tasks).Run();
    if (!options.quiet) WriteStandardOutput(Summary(tally));
    if (tally.postponed > 0) return kTryAgain;
    return tally.failed > 0 ? kPagesFailed : 0;
  } catch (const Interrupted& interrupted) {
    if (interrupted.signal != SIGTERM) throw;
    Complain("asked to stop; the page in work is dropped");
  } catch (const TransientFailure& failure) {
    Complain(failure.what());
  } catch (const std::bad_alloc&) {
    Complain("out of memory");
  }
  return kTryAgain;
}

}  // namespace corvane
