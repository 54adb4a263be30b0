// SPDX-License-Identifier: MIT
#include "app/support/input_file.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

#include "app/support/failure.h"
#include "app/support/platform.h"

namespace corvane {

InputFile OpenInputFile(const std::string& path) {
  InputFile file(std::fopen(path.c_str(), kReadStream));
  if (!file) throw Failure(fmt::format("{}: {}", path, std::strerror(errno)));
  return file;
}

}  // namespace corvane
