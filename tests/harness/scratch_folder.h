// SPDX-License-Identifier: MIT
//
// A folder of a test's own, removed with everything in it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace corvane {

class ScratchFolder {
 public:
  ScratchFolder() {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::path(::testing::TempDir()) /
            (std::string("corvane-") + test->test_suite_name() + "-" + test->name());
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::filesystem::path Path(std::string_view name) const { return path_ / name; }

  std::filesystem::path Write(std::string_view name, std::string_view bytes) const {
    std::ofstream(Path(name), std::ios::binary) << bytes;
    return Path(name);
  }

 private:
  std::filesystem::path path_;
};

}  // namespace corvane
