// SPDX-License-Identifier: MIT
#include "app/support/scratch_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "app/support/failure.h"

namespace corvane {

ScratchFile::ScratchFile() {
  const char* folder = std::getenv("TMPDIR");
  if (folder == nullptr || *folder == '\0') folder = "/tmp";
  std::string path = std::string(folder) + "/corvane-XXXXXX";
  file_ = Descriptor(mkstemp(path.data()));
  if (!file_.IsOpen()) {
    throw TransientFailure(fmt::format("{}: no temporary file: {}", folder, std::strerror(errno)));
  }
  unlink(path.c_str());
}

std::string ScratchFile::Path() const { return fmt::format("/proc/self/fd/{}", file_.Number()); }

Descriptor ScratchFile::Duplicate() const {
  return Descriptor(fcntl(file_.Number(), F_DUPFD_CLOEXEC, 0));
}

void ScratchFile::Write(std::uint64_t offset, const void* data, std::size_t size) {
  if (file_.WriteAt(offset, data, size)) return;
  throw TransientFailure(fmt::format("temporary file: {}", std::strerror(errno)));
}

void ScratchFile::Read(std::uint64_t offset, void* data, std::size_t size) {
  char* bytes = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t done = pread(file_.Number(), bytes, size, static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) throw TransientFailure(fmt::format("temporary file: {}", std::strerror(errno)));
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
