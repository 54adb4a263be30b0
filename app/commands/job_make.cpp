// SPDX-License-Identifier: MIT
#include <fmt/format.h>
#include <glob.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <string_view>
#include <system_error>
#include <utility>

#include "app/commands/job.h"
#include "app/commands/print.h"
#include "app/commands/print_settings.h"
#include "app/commands/standard_input.h"
#include "app/image/folder.h"
#include "app/jobs/csv.h"
#include "app/jobs/digest.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/lines.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/tables/page_tables.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

// ---------------------------------------------------------------------------------------------
// What is asked for: inputs with their settings.

using RequestReceiver =
    std::function<void(const std::string& input, const PrintSettings& settings)>;

bool IsPattern(const std::string& input) {
  std::error_code ignored;
  return input.find_first_of("*?[") != std::string::npos && !fs::exists(input, ignored);
}

// The files of a pattern, sorted by name.
std::vector<std::string> FilesOf(const std::string& pattern) {
  glob_t found = {};
  const int problem = glob(pattern.c_str(), 0, nullptr, &found);
  std::vector<std::string> files(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  globfree(&found);
  std::erase_if(files, [](const std::string& file) {
    std::error_code ignored;
    return fs::is_directory(file, ignored);
  });
  if (problem != 0 || files.empty()) throw Failure(pattern + ": no file has such a name");
  return files;
}

void TakeList(std::istream& list, const PrintSettings& settings, const RequestReceiver& receiver) {
  for (std::string line; ReadLine(list, "standard input", &line);) {
    if (!line.empty()) receiver(line, settings);
  }
}

void TakeInputs(const JobMakeOptions& options, const RequestReceiver& receiver) {
  for (const std::string& input : options.inputs) {
    std::error_code ignored;
    if (input == "-") {
      TakeList(std::cin, options.settings, receiver);
    } else if (IsPattern(input)) {
      for (const std::string& file : FilesOf(input)) receiver(file, options.settings);
    } else if (fs::is_directory(input, ignored)) {
      for (const std::string& file : PrintableFilesIn(input)) receiver(file, options.settings);
    } else {
      receiver(input, options.settings);
    }
  }
}

constexpr std::string_view kInputColumn = "input";

void CheckColumns(const CsvReader& csv, const std::string& name) {
  const std::vector<std::string> known = PrintSettingNames();
  for (const std::string& column : csv.Columns()) {
    if (column == kInputColumn || column.starts_with('#')) continue;
    if (std::find(known.begin(), known.end(), column) == known.end()) {
      throw Failure(fmt::format(
          "{}: the column \"{}\" is neither \"input\" nor one of {} (# begins one to skip)", name,
          column, fmt::join(known, ", ")));
    }
  }
  if (std::find(csv.Columns().begin(), csv.Columns().end(), kInputColumn) == csv.Columns().end()) {
    throw Failure(name + ": no column is named \"input\"");
  }
}

// An empty cell leaves the setting as it is.
void TakeRecords(CsvReader& csv, const PrintSettings& common, const RequestReceiver& receiver) {
  for (std::vector<std::string> cells; csv.Next(&cells);) {
    PrintSettings settings = common;
    std::string input;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const std::string& column = csv.Columns()[i];
      if (column == kInputColumn) {
        input = cells[i];
      } else if (!column.starts_with('#') && !cells[i].empty()) {
        settings[column] = cells[i];
      }
    }
    try {
      if (input.empty()) throw Failure("the input is missing");
      receiver(input, settings);
    } catch (const Failure& failure) {
      throw Failure(fmt::format("{}: {}", csv.Place(), failure.what()));
    }
  }
}

void TakeCsv(const JobMakeOptions& options, const RequestReceiver& receiver) {
  const bool standardInput = options.csv == "-";
  std::ifstream file;
  if (!standardInput) {
    file.open(options.csv, std::ios::binary);
    if (!file) FailOfSystem(options.csv, errno);
  }
  const std::string name = standardInput ? "standard input" : options.csv;
  CsvReader csv(standardInput ? std::cin : file, name);
  CheckColumns(csv, name);
  TakeRecords(csv, options.settings, receiver);
}

// ---------------------------------------------------------------------------------------------
// The manifest.

fs::path FolderOf(const JobMakeOptions& options) {
  if (!options.output.empty()) return options.output;
  fs::path folder = options.manifest;
  if (folder.has_extension()) return folder.replace_extension();
  return folder += "-pages";
}

// Nothing of another job may stand where this one's pages will.
void CheckPlaces(const std::string& manifest, const fs::path& folder) {
  std::error_code ignored;
  if (fs::exists(manifest, ignored)) {
    throw Failure(manifest + ": is there already; a job is not changed once it is made");
  }
  if (fs::exists(folder, ignored) && !fs::is_directory(folder, ignored)) {
    throw Failure(folder.string() + ": is no folder");
  }
  if (fs::is_directory(folder, ignored) && !fs::is_empty(folder, ignored)) {
    throw Failure(folder.string() + ": is not empty; pages of two jobs would mix");
  }
}

class JobMaker {
 public:
  JobMaker(const JobMakeOptions& options, StagedFile& file)
      : manifest_(options.manifest), folder_(FolderOf(options)), writer_(file) {}

  void Take(const std::string& input, const PrintSettings& settings) {
    ThrowIfInterrupted();
    if (!prepared_ || settings != given_) Prepare(settings);
    page_.input = PathForManifest(manifest_, input);
    const FileDigest digest = digests_.Of(input);
    page_.inputSha256 = digest.sha256;
    page_.inputBytes = digest.bytes;
    // "-" alone is the standard input.
    options_.inputs = {input == StandardInput::kArgument ? "./-" : input};
    for (const PageEstimate& estimate : Estimates()) Add(estimate);
  }

  const JobTotals& Finish() {
    if (writer_.Totals().pages == 0) throw Failure("there is no page to print");
    writer_.Finish();
    return writer_.Totals();
  }

 private:
  // The pages of the image. One that cannot be read becomes a page that fails, so that the others
  // can be printed.
  std::vector<PageEstimate> Estimates() const {
    try {
      return TryTwice([&] { return EstimatePages(options_); });
    } catch (const UsageFailure&) {
      throw;
    } catch (const TransientFailure&) {
      throw;
    } catch (const Failure& failure) {
      Complain(fmt::format("{} (a page of the job that will fail)", failure.what()));
      return {{0, dearest_}};
    }
  }

  // What pages of the same settings have in common.
  void Prepare(const PrintSettings& settings) {
    given_ = settings;
    prepared_ = true;
    options_ = PrintOptionsFrom(settings);
    page_.settings = settings;
    page_.program = CORVANE_VERSION;
    page_.tagsSha256.clear();
    page_.colorTableSha256 = digests_.Of(FindColorTable(options_.colorTable)).sha256;
    for (auto& [name, value] : page_.settings) {
      if (!NamesFile(name, value)) continue;
      if (name == "tags") page_.tagsSha256 = digests_.Of(value).sha256;
      value = PathForManifest(manifest_, value);
    }
  }

  void Add(const PageEstimate& estimate) {
    page_.inputPage = estimate.page + 1;
    page_.cost = estimate.cost;
    dearest_ = std::max(dearest_, estimate.cost);
    const char* ending = options_.format == "raw" ? "raw" : "tif";
    const std::string name = fmt::format("{:06}.{}", writer_.Totals().pages + 1, ending);
    page_.output = PathForManifest(manifest_, folder_ / name);
    writer_.Add(page_);
  }

  fs::path manifest_, folder_;
  ManifestWriter writer_;
  DigestCache digests_;
  bool prepared_ = false;
  PrintSettings given_;
  PrintOptions options_;
  JobPage page_;
  double dearest_ = 1;
};

}  // namespace

int RunJobMake(const JobMakeOptions& options) {
  if (options.inputs.empty() == options.csv.empty()) {
    throw UsageFailure("a job takes either pages or --csv");
  }
  CheckPlaces(options.manifest, FolderOf(options));
  OutputStage stage;
  StagedFile& file = stage.Create(options.manifest);
  JobMaker maker(options, file);
  const RequestReceiver take = [&](const std::string& input, const PrintSettings& settings) {
    maker.Take(input, settings);
  };
  options.csv.empty() ? TakeInputs(options, take) : TakeCsv(options, take);
  const JobTotals& totals = maker.Finish();
  stage.Commit();
  std::error_code ignored;
  constexpr auto kWrite = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
  fs::permissions(options.manifest, kWrite, fs::perm_options::remove, ignored);
  WriteStandardOutput(fmt::format("{}: {} {}, into {}\n", Printable(options.manifest), totals.pages,
                                  totals.pages == 1 ? "page" : "pages",
                                  Printable(FolderOf(options).string())));
  return 0;
}

}  // namespace corvane
