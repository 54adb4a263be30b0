// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace corvane {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// A file that a library reads through the C library's stream.
using InputFile = std::unique_ptr<std::FILE, CloseFile>;

// Opens it for reading. Throws Failure and TransientFailure, naming it.
InputFile OpenInputFile(const std::string& path);

}  // namespace corvane
