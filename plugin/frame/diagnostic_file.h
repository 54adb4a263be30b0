// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include "host/framework.h"

namespace corvane {

// A diagnostic file with one writer: a copy of its owner has none open.
class DiagnosticFile {
 public:
  DiagnosticFile() = default;
  DiagnosticFile(const DiagnosticFile&) = delete;
  DiagnosticFile& operator=(const DiagnosticFile&) = delete;
  ~DiagnosticFile() { Close(); }

  // Closes what was open before. A file that cannot be opened leaves none.
  void Open(const char* path, const char* mode) {
    Close();
    file_ = ZCOM::fwfopen(path, mode);
  }
  void Close() { ZCOM::fwfclose(std::exchange(file_, nullptr)); }

  // Null when none is open.
  ZCOM::FILEHANDLE Handle() const { return file_; }

 private:
  ZCOM::FILEHANDLE file_ = nullptr;
};

}  // namespace corvane
