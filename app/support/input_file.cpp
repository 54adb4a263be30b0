// SPDX-License-Identifier: MIT
#include "app/support/input_file.h"

#include <cerrno>

#include "app/support/failure.h"
#include "app/support/platform.h"

namespace corvane {

InputFile OpenInputFile(const std::string& path) {
  InputFile file(std::fopen(path.c_str(), kReadStream));
  if (!file) FailOfSystem(path, errno);
  return file;
}

}  // namespace corvane
