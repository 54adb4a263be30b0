// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// A file that appears under its name only when it is complete: it is written under a temporary name
// beside it, which the destructor removes unless `Commit` was called. An empty path or "-" is the
// standard output, and what is no ordinary file (a pipe, a device) is written directly.
// Its members throw Failure.
class OutputFile {
 public:
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void Write(std::string_view bytes);
  void Flush();
  void Commit();

 private:
  [[noreturn]] void Fail() const;

  std::string name_;                 // for messages
  std::filesystem::path path_;       // empty for the standard output
  std::filesystem::path temporary_;  // empty when the file is written directly
  std::FILE* file_;
};

// Writes to the standard output, and finds out whether it arrived. Throws Failure.
void WriteStandardOutput(std::string_view text);

// Refuses, before anything is written, two outputs in one file and an output over a file that is
// read. Empty names, and what exists but is no ordinary file, are let pass. Throws UsageFailure.
void CheckOutputNames(const std::vector<std::filesystem::path>& outputs,
                      const std::vector<std::filesystem::path>& inputs);

}  // namespace corvane
