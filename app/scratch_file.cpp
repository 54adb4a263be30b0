// SPDX-License-Identifier: MIT
#include "app/scratch_file.h"

#include <fmt/format.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "app/failure.h"

namespace corvane {

ScratchFile::ScratchFile() {
  const char* folder = std::getenv("TMPDIR");
  if (folder == nullptr || *folder == '\0') folder = "/tmp";
  std::string path = std::string(folder) + "/corvane-XXXXXX";
  file_ = mkstemp(path.data());
  if (file_ < 0) {
    throw Failure(fmt::format("{}: no temporary file: {}", folder, std::strerror(errno)));
  }
  unlink(path.c_str());
}

ScratchFile::~ScratchFile() { close(file_); }

void ScratchFile::Write(std::uint64_t offset, const void* data, std::size_t size) {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t done = pwrite(file_, bytes, size, static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) throw Failure(fmt::format("temporary file: {}", std::strerror(errno)));
    bytes += done;
    offset += static_cast<std::uint64_t>(done);
    size -= static_cast<std::size_t>(done);
  }
}

void ScratchFile::Read(std::uint64_t offset, void* data, std::size_t size) {
  char* bytes = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t done = pread(file_, bytes, size, static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) throw Failure(fmt::format("temporary file: {}", std::strerror(errno)));
    if (done == 0) {
      std::memset(bytes, 0, size);
      return;
    }
    bytes += done;
    offset += static_cast<std::uint64_t>(done);
    size -= static_cast<std::size_t>(done);
  }
}

}  // namespace corvane
