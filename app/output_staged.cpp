// SPDX-License-Identifier: MIT
#include "app/output_staged.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "app/failure.h"
#include "app/interrupt.h"

namespace corvane {

StagedFile::StagedFile(std::filesystem::path path, std::filesystem::path temporary)
    : path_(std::move(path)), temporary_(std::move(temporary)) {
  std::error_code ignored;
  const auto status = std::filesystem::status(path_, ignored);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw Failure(path_.string() + ": is not an ordinary file");
  }
  file_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file_ < 0) Fail();
}

StagedFile::~StagedFile() {
  if (file_ >= 0) close(file_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void StagedFile::Append(const void* data, std::size_t size) { WriteAt(size_, data, size); }

void StagedFile::WriteAt(std::uint64_t offset, const void* data, std::size_t size) {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t done = pwrite(file_, bytes, size, static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) {
      ThrowIfInterrupted();
      continue;
    }
    if (done <= 0) Fail();
    bytes += done;
    offset += static_cast<std::uint64_t>(done);
    size -= static_cast<std::size_t>(done);
  }
  if (offset > size_) size_ = offset;
}

void StagedFile::Close() {
  if (file_ >= 0 && close(std::exchange(file_, -1)) != 0) Fail();
}

void StagedFile::Fail() const {
  throw Failure(fmt::format("{}: cannot write: {}", path_.string(), std::strerror(errno)));
}

OutputStage::OutputStage(const std::filesystem::path& folder) {
  if (folder.empty()) return;
  for (std::filesystem::path at = folder; !at.empty() && !std::filesystem::exists(at);
       at = at.parent_path()) {
    if (at.has_filename()) madeFolders_.push_back(at);
  }
  std::error_code problem;
  std::filesystem::create_directories(folder, problem);
  if (!problem) return;
  RemoveMadeFolders();
  throw Failure(folder.string() + ": cannot make the folder: " + problem.message());
}

OutputStage::~OutputStage() {
  files_.clear();
  RemoveMadeFolders();
}

void OutputStage::RemoveMadeFolders() {
  // From the innermost outwards; one that somebody else has put a file into stays.
  std::error_code ignored;
  for (const std::filesystem::path& folder : madeFolders_) std::filesystem::remove(folder, ignored);
}

StagedFile& OutputStage::Create(const std::filesystem::path& path) {
  std::filesystem::path temporary = path;
  temporary += fmt::format(".partial-{}", getpid());
  auto file = std::make_unique<StagedFile>(path, temporary);
  const std::lock_guard lock(mutex_);
  files_.push_back(std::move(file));
  return *files_.back();
}

void OutputStage::Commit() {
  for (const auto& file : files_) file->Close();
  for (const auto& file : files_) {
    std::error_code problem;
    std::filesystem::rename(file->temporary_, file->path_, problem);
    if (problem) {
      throw Failure(file->path_.string() + ": cannot write: " + problem.message());
    }
    file->temporary_.clear();
    madeFolders_.clear();
  }
}

}  // namespace corvane
