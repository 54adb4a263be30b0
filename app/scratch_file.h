// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane {

// A temporary file without a name, in TMPDIR or /tmp, for what is too large to hold in memory.
// It is gone when it is closed, however the program ends. Its members throw Failure.
class ScratchFile {
 public:
  ScratchFile();
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  void Write(std::uint64_t offset, const void* data, std::size_t size);

  // What was never written reads as zero.
  void Read(std::uint64_t offset, void* data, std::size_t size);

 private:
  int file_;
};

}  // namespace corvane
