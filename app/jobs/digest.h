// SPDX-License-Identifier: MIT
//
// SHA-256 of texts and files, as 64 lower-case hexadecimal digits.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace corvane {

std::string Sha256OfText(std::string_view text);

struct FileDigest {
  std::string sha256;
  std::uint64_t bytes = 0;
};

// Reads the whole file. Throws TransientFailure when the file's place cannot be reached, Failure
// when the file is not there or may not be read, Interrupted when the program is asked to end.
FileDigest DigestOfFile(const std::filesystem::path& path);

// Digests of files that are asked for again and again: a file is read once, and again when its
// size or time has changed. Several threads may use it; it remembers a bounded number of files.
class DigestCache {
 public:
  // Throws what DigestOfFile throws.
  FileDigest Of(const std::filesystem::path& path);

 private:
  struct Entry {
    std::uint64_t bytes = 0;
    std::filesystem::file_time_type time;
    FileDigest digest;
  };

  std::mutex mutex_;
  std::map<std::filesystem::path, Entry> entries_;
};

}  // namespace corvane
