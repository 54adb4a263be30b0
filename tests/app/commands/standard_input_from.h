// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

namespace corvane {

// A file as the standard input, as long as it lives.
class StandardInputFrom {
 public:
  explicit StandardInputFrom(const std::string& path) : old_(dup(0)) {
    const int file = open(path.c_str(), O_RDONLY);
    dup2(file, 0);
    close(file);
  }
  ~StandardInputFrom() {
    dup2(old_, 0);
    close(old_);
  }
  StandardInputFrom(const StandardInputFrom&) = delete;
  StandardInputFrom& operator=(const StandardInputFrom&) = delete;

 private:
  int old_;
};

}  // namespace corvane
