// SPDX-License-Identifier: MIT
#include "app/default_table.h"

#include <filesystem>
#include <system_error>

#include "app/failure.h"
#include "app/plugin_library.h"

namespace corvane {
namespace {

constexpr const char* kFile = "../share/corvane/default.cvt";
constexpr std::size_t kLongestPath = 255;  // the colour element reads the property into 256 bytes

}  // namespace

std::string DefaultColorTable() {
  const std::filesystem::path file = FindBesideProgram({kFile});
  if (file.empty()) throw Failure(std::string(kFile) + ": not found from the program's folder");
  std::string path = file.string();
  if (path.size() > kLongestPath) {
    std::error_code ignored;
    path = std::filesystem::proximate(file, ignored).string();
  }
  if (path.empty() || path.size() > kLongestPath) {
    throw Failure(file.string() + ": the path is longer than 255 bytes");
  }
  return path;
}

}  // namespace corvane
