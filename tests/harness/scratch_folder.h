// SPDX-License-Identifier: MIT
//
// Folders and files of a test's own, removed with everything in them.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "host/framework.h"

namespace corvane {

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

class ScratchFolder {
 public:
  ScratchFolder() {
    std::random_device random;
    do {
      path_ = std::filesystem::temp_directory_path() / ("corvane-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(path_));
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string File(const std::string& name) const { return (path_ / name).string(); }
  std::string Read(const std::string& name) const { return ReadFile(File(name)); }

  // Gives the file's path.
  std::string Write(const std::string& name, const std::string& bytes) const {
    WriteFile(File(name), bytes);
    return File(name);
  }

  bool IsEmpty() const { return std::filesystem::is_empty(path_); }

 private:
  std::filesystem::path path_;
};

// Takes the files that elements write for diagnosis as long as it lives.
class DiagnosticsFolder : public ScratchFolder {
 public:
  DiagnosticsFolder() { ZCOM::SetDiagnosticsDirectory(File("").c_str()); }
  ~DiagnosticsFolder() { ZCOM::SetDiagnosticsDirectory(nullptr); }
};

// A file with the given text, in a folder of its own.
class ScratchText {
 public:
  ScratchText(const std::string& name, const std::string& text)
      : path_(folder_.Write(name, text)) {}

  const std::filesystem::path& Path() const { return path_; }

 private:
  ScratchFolder folder_;
  std::filesystem::path path_;
};

}  // namespace corvane
