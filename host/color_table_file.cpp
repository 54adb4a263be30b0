// SPDX-License-Identifier: MIT
#include <algorithm>
#include <new>

#include "host/framework.h"

namespace ZCOM {
namespace {

constexpr std::int64_t kSizeFieldBytes = 4;
constexpr std::int64_t kLargestTable = 44217;  // nine planes of 17 x 17 x 17 nodes

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<std::FILE, CloseFile>;

// The file's length in bytes, or -1. Reading stays within a `long`, so longer files count as
// unusable.
std::int64_t Length(std::FILE* file) {
  if (std::fseek(file, 0, SEEK_END) != 0) return -1;
  return std::ftell(file);
}

// Reads `size` bytes at `offset` to the end of a new buffer of `bufferSize` bytes, 0 in front.
unsigned char* ReadBuffer(std::FILE* file, std::int64_t offset, std::int64_t size,
                          std::int64_t bufferSize, std::int64_t lead) {
  auto* buffer = new (std::nothrow) unsigned char[static_cast<std::size_t>(bufferSize)]();
  if (buffer == nullptr) return nullptr;
  const bool read = std::fseek(file, static_cast<long>(offset), SEEK_SET) == 0 &&
                    std::fread(buffer + lead, 1, static_cast<std::size_t>(size), file) ==
                        static_cast<std::size_t>(size);
  if (read) return buffer;
  delete[] buffer;
  return nullptr;
}

bool ReadDirectorySize(std::FILE* file, std::int64_t length, std::uint32_t* size) {
  unsigned char bytes[kSizeFieldBytes];
  if (length < kSizeFieldBytes || std::fseek(file, 0, SEEK_SET) != 0 ||
      std::fread(bytes, 1, sizeof bytes, file) != sizeof bytes) {
    return false;
  }
  *size = bytes[0] | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
          std::uint32_t{bytes[3]} << 24;
  return kSizeFieldBytes + std::int64_t{*size} <= length;
}

}  // namespace

unsigned long MFColorTable::SetFilename(const char* filename) {
  filename_ = filename == nullptr ? "" : filename;
  return OpenFile(std::fopen(filename_.c_str(), "rb")) != nullptr;
}

unsigned long MFColorTable::GetHeaderSize(unsigned long* size) {
  *size = 0;
  const OpenFile file(std::fopen(filename_.c_str(), "rb"));
  std::uint32_t directorySize;
  if (!file || !ReadDirectorySize(file.get(), Length(file.get()), &directorySize)) return 0;
  *size = directorySize;
  return 1;
}

unsigned long MFColorTable::GetData(long offset, long size, unsigned char** out) {
  if (offset != 0 || size != 0) return GetData(offset, size, size, out);
  *out = nullptr;
  const OpenFile file(std::fopen(filename_.c_str(), "rb"));
  if (!file) return 0;
  const std::int64_t tableSize = Length(file.get()) - kSizeFieldBytes;
  if (tableSize < 0) return 0;
  *out = ReadBuffer(file.get(), kSizeFieldBytes, tableSize, std::max(tableSize, kLargestTable), 0);
  return *out != nullptr;
}

unsigned long MFColorTable::GetData(long offset, long size, long bufferSize, unsigned char** out) {
  *out = nullptr;
  if (offset < 0 || size < 0 || bufferSize < size) return 0;
  const OpenFile file(std::fopen(filename_.c_str(), "rb"));
  if (!file || std::int64_t{offset} + size > Length(file.get())) return 0;
  *out = ReadBuffer(file.get(), offset, size, bufferSize, std::int64_t{bufferSize} - size);
  return *out != nullptr;
}

void MFColorTable::DeleteData(unsigned char* data) { delete[] data; }

}  // namespace ZCOM
