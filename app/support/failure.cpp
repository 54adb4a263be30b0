// SPDX-License-Identifier: MIT
#include "app/support/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace corvane {
namespace {

// A folder that is missing too is taken for a server's that is away.
bool MayPass(const std::string& file, int problem) {
  std::error_code ignored;
  if (problem == ENOENT) {
    const std::filesystem::path folder = std::filesystem::path(file).parent_path();
    return !folder.empty() && !std::filesystem::is_directory(folder, ignored);
  }
  constexpr int kLasting[] = {EACCES,       EPERM, EISDIR, ENOTDIR, ELOOP,
                              ENAMETOOLONG, ENXIO, ENODEV, EINVAL,  EBADF};
  return std::find(std::begin(kLasting), std::end(kLasting), problem) == std::end(kLasting);
}

}  // namespace

void FailOfSystem(const std::string& file, int problem) {
  if (problem == 0) problem = EIO;  // a library that has lost it
  const std::string text = file + ": " + std::strerror(problem);
  if (MayPass(file, problem)) throw TransientFailure(text);
  throw Failure(text);
}

}  // namespace corvane
