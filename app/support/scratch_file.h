// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "app/support/descriptor.h"
#include "app/support/work_folder.h"

namespace corvane {

// A temporary file without a name, in the folder of such files, for what is too large to hold in
// memory. It is gone when it is closed, however the program ends. Where a file has to have a name
// it lies in a work folder there, and the next run removes what a dead one has left. Its members
// throw Failure.
class ScratchFile {
 public:
  ScratchFile();
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  // Opens it another time, as long as this lives.
  std::string Path() const;
  // The same as a file of its own, which lives on; not open when there can be none.
  Descriptor Duplicate() const;

  void Write(std::uint64_t offset, const void* data, std::size_t size);

  // What was never written reads as zero.
  void Read(std::uint64_t offset, void* data, std::size_t size) const;

  // Writes its first `size` bytes to an open file, which is called `name` in messages. Throws
  // OutputFailure when they do not go, and Interrupted.
  void SendTo(Descriptor& output, const std::string& name, std::uint64_t size) const;
  void SendToStandardOutput(std::uint64_t size) const;

 private:
  std::unique_ptr<WorkFolder> folder_;  // null for a file without a name
  std::filesystem::path path_;          // in it
  Descriptor file_;
};

}  // namespace corvane
