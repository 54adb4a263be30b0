// SPDX-License-Identifier: MIT
#include "app/support/scratch_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/platform.h"

namespace corvane {

ScratchFile::ScratchFile() {
  const std::filesystem::path folder = TemporaryFolder();
  file_ = Descriptor::MakeNameless(folder);
  if (!file_.IsOpen() && errno == ENOTSUP) {
    folder_ = std::make_unique<WorkFolder>(folder, folder);
    path_ = folder_->NextPath();
    file_ = Descriptor::MakeFile(path_);
  }
  if (!file_.IsOpen()) {
    throw TransientFailure(
        fmt::format("{}: no temporary file: {}", folder.string(), std::strerror(errno)));
  }
}

ScratchFile::~ScratchFile() {
  file_.Close();
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove(path_, ignored);
}

std::string ScratchFile::Path() const {
  return path_.empty() ? fmt::format("/proc/self/fd/{}", file_.Number()) : path_.string();
}

Descriptor ScratchFile::Duplicate() const { return file_.Duplicate(); }

void ScratchFile::Write(std::uint64_t offset, const void* data, std::size_t size) {
  if (file_.WriteAt(offset, data, size)) return;
  throw TransientFailure(fmt::format("temporary file: {}", std::strerror(errno)));
}

void ScratchFile::Read(std::uint64_t offset, void* data, std::size_t size) const {
  char* bytes = static_cast<char*>(data);
  while (size > 0) {
    const std::ptrdiff_t done = file_.ReadAt(offset, bytes, size);
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

void ScratchFile::SendToStandardOutput(std::uint64_t size) const {
  Descriptor output = Descriptor::StandardOutput();
  SendTo(output, "standard output", size);
}

void ScratchFile::SendTo(Descriptor& output, const std::string& name, std::uint64_t size) const {
  constexpr std::uint64_t kPiece = std::uint64_t{1} << 20;
  std::vector<char> bytes;
  for (std::uint64_t at = 0; at < size; at += bytes.size()) {
    ThrowIfInterrupted();
    bytes.resize(static_cast<std::size_t>(std::min(kPiece, size - at)));
    Read(at, bytes.data(), bytes.size());
    if (output.Write(bytes.data(), bytes.size())) continue;
    throw OutputFailure(fmt::format("{}: cannot write: {}", name, std::strerror(errno)));
  }
}

}  // namespace corvane
