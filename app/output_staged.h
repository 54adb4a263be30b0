// SPDX-License-Identifier: MIT
//
// Files that appear under their names all together when a command has succeeded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace corvane {

// A file that is being written under a temporary name beside its final one. One thread at a time
// may use it; its members throw Failure naming the final file.
class StagedFile {
 public:
  StagedFile(std::filesystem::path path, std::filesystem::path temporary);
  ~StagedFile();
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;

  const std::filesystem::path& Path() const { return path_; }

  std::uint64_t Size() const { return size_; }
  void Append(const void* data, std::size_t size);
  void WriteAt(std::uint64_t offset, const void* data, std::size_t size);
  void Close();

 private:
  friend class OutputStage;
  [[noreturn]] void Fail() const;

  std::filesystem::path path_;
  std::filesystem::path temporary_;  // empty once renamed
  int file_;
  std::uint64_t size_ = 0;
};

// The files of one command. What was not committed is removed, and so are the folders that
// were made here and are empty.
class OutputStage {
 public:
  // Makes `folder`, and those above it, when it is missing; empty for none.
  explicit OutputStage(const std::filesystem::path& folder = {});
  ~OutputStage();
  OutputStage(const OutputStage&) = delete;
  OutputStage& operator=(const OutputStage&) = delete;

  // The file stays owned by the stage. Several threads may call this.
  StagedFile& Create(const std::filesystem::path& path);

  // Gives every file its name, replacing older files.
  void Commit();

 private:
  void RemoveMadeFolders();

  std::vector<std::filesystem::path> madeFolders_;  // made here, the innermost first
  std::mutex mutex_;
  std::vector<std::unique_ptr<StagedFile>> files_;
};

}  // namespace corvane
