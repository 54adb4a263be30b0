// SPDX-License-Identifier: MIT
#include "app/jobs/cache.h"

#include <fmt/format.h>

#include <array>
#include <system_error>
#include <utility>

#include "app/chain/plugin_library.h"
#include "app/jobs/digest.h"
#include "app/support/failure.h"
#include "app/support/input_stream.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/platform.h"
#include "app/support/work_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

// What stands behind the stem of `output` in a file's name: "-contone.tif" of "000001-contone.tif".
std::string EndingOf(const std::string& name, const fs::path& output) {
  const std::string stem = output.stem().string();
  return name.starts_with(stem) ? name.substr(stem.size()) : name;
}

fs::path WithEnding(const fs::path& path, const std::string& ending) {
  return fs::path(path) += ending;
}

// A second way to write the same: where a link cannot be made, as between file systems.
void Copy(const fs::path& from, const fs::path& to) {
  InputStream file(from.string());
  OutputStage stage;
  StagedFile& copy = stage.Create(to);
  std::array<char, 1 << 16> bytes;
  while (const std::size_t count = file.Read(bytes.data(), bytes.size())) {
    copy.Append(bytes.data(), count);
  }
  stage.Commit();
}

// Gives the file a second name, replacing what has it.
void LinkOrCopy(const fs::path& from, const fs::path& to) {
  WorkFolder work(to.parent_path(), to);
  const fs::path link = work.NextPath();
  std::error_code problem;
  fs::create_hard_link(from, link, problem);
  if (problem) return Copy(from, to);
  fs::rename(link, to, problem);
  std::error_code ignored;
  fs::remove(link, ignored);  // it stays when both were one file before
  if (problem || !work.Sync()) throw OutputFailure(to.string() + ": cannot write");
}

}  // namespace

PageCache::PageCache(fs::path folder) : folder_(std::move(folder)) {
  std::error_code problem;
  fs::create_directories(folder_, problem);
  if (problem) throw Failure(folder_.string() + ": cannot make the folder: " + problem.message());
  program_ = DigestOfFile(ProgramFile()).sha256 + DigestOfFile(PluginFile()).sha256;
}

fs::path PageCache::EntryOf(const JobPage& page) const {
  const std::string name = Sha256OfText(KeyOf(page) + program_);
  constexpr std::size_t kFolderDigits = 2;
  return folder_ / name.substr(0, kFolderDigits) / name.substr(kFolderDigits);
}

std::optional<PageRecord> PageCache::Take(const JobPage& page, const fs::path& output) const {
  const fs::path entry = EntryOf(page);
  try {
    std::optional<PageRecord> record = ReadRecord(WithEnding(entry, ".json"));
    if (!record) return std::nullopt;
    for (const OutputDigest& file : record->files) {
      if (DigestOfFile(WithEnding(entry, file.name)).sha256 != file.sha256) {
        throw Failure("the cache holds other bytes");
      }
    }
    for (OutputDigest& file : record->files) {
      const fs::path path = output.parent_path() / (output.stem().string() + file.name);
      LinkOrCopy(WithEnding(entry, file.name), path);
      file.name = path.filename().string();
    }
    return record;
  } catch (const TransientFailure&) {
    throw;
  } catch (const Failure&) {
    std::error_code ignored;
    fs::remove(WithEnding(entry, ".json"), ignored);
    return std::nullopt;
  }
}

void PageCache::Keep(const JobPage& page, const fs::path& output, const PageRecord& record) const {
  try {
    const fs::path entry = EntryOf(page);
    fs::create_directories(entry.parent_path());
    PageRecord kept = record;
    for (OutputDigest& file : kept.files) {
      const fs::path printed = output.parent_path() / file.name;
      file.name = EndingOf(file.name, output);
      LinkOrCopy(printed, WithEnding(entry, file.name));
    }
    // Last: what has no record is not there.
    WriteOutput(WithEnding(entry, ".json"), ToJson(kept));
  } catch (const std::exception& problem) {
    Complain(fmt::format("the cache does not take page {}: {}", page.number, problem.what()));
  }
}

}  // namespace corvane
