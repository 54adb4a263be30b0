// SPDX-License-Identifier: MIT
#include "app/jobs/digest.h"

#include <fmt/format.h>
#include <nettle/sha2.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <vector>

#include "app/support/descriptor.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kReadBytes = std::size_t{1} << 18;
constexpr std::size_t kMostRemembered = 1024;

class Sha256 {
 public:
  Sha256() { sha256_init(&state_); }

  void Add(const void* data, std::size_t size) {
    sha256_update(&state_, size, static_cast<const std::uint8_t*>(data));
  }

  std::string Finish() {
    std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest;
    sha256_digest(&state_, digest.size(), digest.data());
    return fmt::format("{:02x}", fmt::join(digest, ""));
  }

 private:
  sha256_ctx state_;
};

class OpenFile {
 public:
  explicit OpenFile(const fs::path& path) : path_(path), file_(Descriptor::OpenForReading(path)) {
    if (!file_.IsOpen()) FailOfSystem(path.string(), errno);
  }

  // 0 at the end.
  std::size_t Read(void* data, std::size_t size) {
    for (;;) {
      ThrowIfInterrupted();
      const std::ptrdiff_t got = file_.Read(data, size);
      if (got >= 0) return static_cast<std::size_t>(got);
      if (errno != EINTR) FailOfSystem(path_.string(), errno);
    }
  }

 private:
  const fs::path& path_;
  Descriptor file_;
};

}  // namespace

std::string Sha256OfText(std::string_view text) {
  Sha256 hash;
  hash.Add(text.data(), text.size());
  return hash.Finish();
}

FileDigest DigestOfFile(const fs::path& path) {
  OpenFile file(path);
  Sha256 hash;
  FileDigest digest;
  std::vector<std::uint8_t> bytes(kReadBytes);
  while (const std::size_t got = file.Read(bytes.data(), bytes.size())) {
    hash.Add(bytes.data(), got);
    digest.bytes += got;
  }
  digest.sha256 = hash.Finish();
  return digest;
}

FileDigest DigestCache::Of(const fs::path& path) {
  std::error_code problem;
  Entry entry;
  entry.bytes = fs::file_size(path, problem);
  if (!problem) entry.time = fs::last_write_time(path, problem);
  if (problem) return DigestOfFile(path);
  {
    const std::lock_guard lock(mutex_);
    const auto known = entries_.find(path);
    if (known != entries_.end() && known->second.bytes == entry.bytes &&
        known->second.time == entry.time) {
      return known->second.digest;
    }
  }
  entry.digest = DigestOfFile(path);
  const std::lock_guard lock(mutex_);
  if (entries_.size() >= kMostRemembered) entries_.clear();
  entries_[path] = entry;
  return entry.digest;
}

}  // namespace corvane
