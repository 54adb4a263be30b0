// SPDX-License-Identifier: MIT
#include "app/tables/default_table.h"

#include <filesystem>
#include <system_error>

#include "app/chain/plugin_library.h"
#include "app/support/failure.h"
#include "app/support/limits.h"

namespace corvane {
namespace {

constexpr const char* kFile = "../share/corvane/default.cvt";
constexpr const char* kFileBeside = "default.cvt";  // where all lies in one folder

}  // namespace

std::string DefaultColorTable() {
  const std::filesystem::path file = FindBesideProgram({kFileBeside, kFile});
  if (file.empty()) throw Failure(std::string(kFile) + ": not found from the program's folder");
  std::string path = file.string();
  if (path.size() > limits::kColorTablePath) {
    std::error_code ignored;
    path = std::filesystem::proximate(file, ignored).string();
  }
  if (path.empty() || path.size() > limits::kColorTablePath) {
    throw Failure(file.string() + ": the path is longer than 255 bytes");
  }
  return path;
}

}  // namespace corvane
