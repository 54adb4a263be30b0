// SPDX-License-Identifier: MIT
#include "app/printer/output_job.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "app/jobs/digest.h"
#include "app/printer/printed_jobs.h"
#include "app/printer/sheet.h"
#include "app/support/failure.h"
#include "app/support/json.h"
#include "app/support/output_stage.h"
#include "app/tables/page_tables.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr int kMostFoldersOfANumber = 10'000;

void AddUses(const std::vector<InkUse>& more, std::vector<InkUse>& uses) {
  for (const InkUse& use : more) {
    const auto same = std::find_if(uses.begin(), uses.end(),
                                   [&](const InkUse& other) { return other.ink == use.ink; });
    if (same == uses.end()) {
      uses.push_back(use);
    } else {
      same->drops += use.drops;
      same->nanolitres += use.nanolitres;
    }
  }
}

DigestCache& Digests() {
  static DigestCache cache;
  return cache;
}

}  // namespace

OutputJob::OutputJob(const fs::path& folder, JobDescription description, SheetReceiver* receiver)
    : description_(std::move(description)), receiver_(receiver) {
  // A folder without job.json is one that the server's end has left.
  static std::mutex making;
  const std::lock_guard lock(making);
  MakeFolder(folder);
  Write("processing", "");
}

OutputJob::~OutputJob() {
  std::error_code ignored;
  if (receiver_ != nullptr) fs::remove_all(folder_, ignored);
}

void OutputJob::Convert(const PrintOptions& options) {
  const PageSettings settings = PageSettingsFrom(options);
  colorTable_ = FindColorTable(options.colorTable);
  colorTableSha256_ = Digests().Of(colorTable_).sha256;
  settings_ = settings;
  Write("processing", "");
}

// Whether the folder holds an attempt at this job, which is counted, or nothing at all.
bool OutputJob::TakesOver(const fs::path& folder) {
  std::error_code ignored;
  if (!fs::exists(folder / "job.json", ignored)) return true;
  try {
    const nlohmann::json earlier = ReadJsonFile(folder / "job.json");
    if (earlier.at("printer") != description_.printer ||
        earlier.at("created") != description_.created) {
      return false;
    }
    attempt_ = static_cast<int>(WholeNumber(earlier, "attempt", 1'000'000)) + 1;
    return true;
  } catch (const Failure&) {
    return false;
  } catch (const nlohmann::json::exception&) {
    return false;
  }
}

void OutputJob::MakeFolder(const fs::path& parent) {
  std::error_code error;
  fs::create_directories(parent, error);
  for (int i = 1; i <= kMostFoldersOfANumber; ++i) {
    folder_ = parent /
              fmt::format("job-{:05}{}", description_.number, i == 1 ? "" : fmt::format("-{}", i));
    if (fs::create_directory(folder_, error)) return;
    if (error) break;
    if (TakesOver(folder_)) return;
  }
  throw OutputFailure(folder_.string() + ": cannot be made");
}

void OutputJob::Print(PageJob page, PageStream* stream, const std::function<bool()>& isCancelled) {
  page.settings = settings_;
  page.colorTable = colorTable_;
  const int first = Sheets() + 1;
  const fs::path path = folder_ / fmt::format("sheet-{:04}.tif", first);
  OutputStage stage;
  StagedFile& file = stage.Create(path);
  StagedFile* thumbnail =
      receiver_ == nullptr && first == 1 ? &stage.Create(folder_ / kThumbnailFile) : nullptr;
  const PrintedSheet sheet = PrintSheet(page, stream, file, thumbnail, [&](std::uint32_t) {
    if (isCancelled()) throw Cancelled{};
  });
  stage.Commit();
  ++pages_;
  DeliverCopies(path, sheet, isCancelled);
}

void OutputJob::DeliverCopies(const fs::path& path, const PrintedSheet& sheet,
                              const std::function<bool()>& isCancelled) {
  if (description_.collated && description_.copies > 1) {
    DeliverSheet(path, sheet, pages_, 1, isCancelled);
    set_.emplace_back(path, sheet);
    return;
  }
  for (int copy = 1; copy <= description_.copies; ++copy) {
    DeliverSheet(path, sheet, pages_, copy, isCancelled);
  }
  std::error_code ignored;
  if (receiver_ != nullptr) fs::remove(path, ignored);
}

void OutputJob::RepeatSet(const std::function<bool()>& isCancelled) {
  for (int copy = 2; copy <= description_.copies; ++copy) {
    int page = 0;
    for (const auto& [path, sheet] : set_) DeliverSheet(path, sheet, ++page, copy, isCancelled);
  }
}

// Gives a copy of the sheet its own file, or the device the sheet.
void OutputJob::DeliverSheet(const fs::path& path, const PrintedSheet& sheet, int page, int copy,
                             const std::function<bool()>& isCancelled) {
  if (isCancelled()) throw Cancelled{};
  const std::string name = fmt::format("sheet-{:04}.tif", Sheets() + 1);
  if (receiver_ != nullptr) {
    receiver_->Take(path, isCancelled);
  } else if (copy > 1) {
    std::error_code error;
    fs::remove(folder_ / name, error);
    fs::create_hard_link(path, folder_ / name, error);
    if (error) throw OutputFailure((folder_ / name).string() + ": " + error.message());
  }
  sheets_.push_back({name, page, copy, sheet.shape.planes[0].width, sheet.shape.rows});
  AddUses(sheet.inkUse, inkUse_);
  AddUses(sheet.inkUse, newInkUse_);
}

void OutputJob::Write(const std::string& state, const std::string& reason) const {
  Json job = {{"printer", description_.printer},
              {"job", description_.number},
              {"created", description_.created},
              {"attempt", attempt_},
              {"state", state}};
  if (!reason.empty()) job["reason"] = reason;
  job["asked"] = {{"name", description_.name},
                  {"user", description_.user},
                  {"format", description_.format},
                  {"copies", description_.copies},
                  {"numberUp", description_.numberUp}};
  for (const auto& [name, value] : description_.options) job["asked"]["options"][name] = value;
  if (settings_.mode != nullptr) {
    job["converted"] = {{"mode", static_cast<int>(settings_.mode->descriptor)},
                        {"modeName", settings_.mode->name},
                        {"alternateMode", settings_.alternateMode},
                        {"media", SettingText(kMediaType, settings_.mediaType)},
                        {"intent", SettingText(kPageIntent, settings_.pageIntent)},
                        {"tableQuality", SettingText(kPrintQuality, settings_.printQuality)},
                        {"colorTableSha256", colorTableSha256_}};
    if (!converter_.empty()) job["converted"]["pixels"] = converter_;
  }
  Json sheets = Json::array();
  for (const Sheet& sheet : sheets_) {
    sheets.push_back({{"file", sheet.file},
                      {"page", sheet.page},
                      {"copy", sheet.copy},
                      {"width", sheet.width},
                      {"rows", sheet.rows}});
  }
  job["sheets"] = std::move(sheets);
  Json inks = Json::object();
  for (const InkUse& use : inkUse_) {
    inks[kInkNames[static_cast<int>(use.ink)]] = {{"drops", use.drops},
                                                  {"nanolitres", use.nanolitres}};
  }
  job["ink"] = std::move(inks);
  WriteOutput(folder_ / "job.json", JsonText(job) + "\n");
}

void OutputJob::Finish(const std::string& state, const std::string& reason) {
  if (receiver_ == nullptr) Write(state, reason);
}

}  // namespace corvane
