// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

namespace corvane {

// A file with the given text for as long as the object lives, in a folder of its own.
class ScratchText {
 public:
  ScratchText(const std::string& name, const std::string& text) {
    char folder[] = "corvane-text-XXXXXX";
    const std::string pattern = (std::filesystem::temp_directory_path() / folder).string();
    std::string made = pattern;
    folder_ = mkdtemp(made.data());
    path_ = folder_ / name;
    std::ofstream(path_, std::ios::binary) << text;
  }
  ~ScratchText() { std::filesystem::remove_all(folder_); }
  ScratchText(const ScratchText&) = delete;
  ScratchText& operator=(const ScratchText&) = delete;

  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path folder_, path_;
};

}  // namespace corvane
