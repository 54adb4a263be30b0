// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "host/framework.h"

namespace ZCOM {
namespace {

constexpr std::int64_t kSizeFieldBytes = 4;
constexpr std::int64_t kLargestTable = 44217;  // nine planes of 17 x 17 x 17 nodes

// Positions of 64 bits also where `long` has 32.
bool Seek(std::FILE* file, std::int64_t position, int origin) {
#if defined(_WIN32)
  return _fseeki64(file, position, origin) == 0;
#else
  return std::fseek(file, static_cast<long>(position), origin) == 0;
#endif
}

std::int64_t Tell(std::FILE* file) {
#if defined(_WIN32)
  return _ftelli64(file);
#else
  return std::ftell(file);
#endif
}

// An offset or a size as the interface has it. -1 and the like stay negative where `long` has more
// than 32 bits and lie beyond the end of every file where it has not.
std::int64_t Position(long value) {
  if constexpr (sizeof(long) > sizeof(std::uint32_t)) return value;
  return static_cast<std::uint32_t>(value);
}

// The file's length in bytes, or -1.
std::int64_t Length(std::FILE* file) { return Seek(file, 0, SEEK_END) ? Tell(file) : -1; }

// Opens a file that can be read: a folder can be opened on some systems, but not read.
std::FILE* OpenReadable(const char* filename) {
  std::FILE* const file = std::fopen(filename, "rb");
  if (file == nullptr) return nullptr;
  if (std::fgetc(file) != EOF || std::ferror(file) == 0) return file;
  std::fclose(file);
  return nullptr;
}

// Reads `size` bytes at `offset` into a new buffer of `bufferSize` bytes, from `lead` on; the rest
// is 0.
unsigned char* ReadBuffer(std::FILE* file, std::int64_t offset, std::int64_t size,
                          std::int64_t bufferSize, std::int64_t lead) {
  if (static_cast<std::uint64_t>(bufferSize) > SIZE_MAX) return nullptr;
  auto* buffer = new (std::nothrow) unsigned char[static_cast<std::size_t>(bufferSize)]();
  if (buffer == nullptr) return nullptr;
  const bool read = Seek(file, offset, SEEK_SET) &&
                    std::fread(buffer + lead, 1, static_cast<std::size_t>(size), file) ==
                        static_cast<std::size_t>(size);
  if (read) return buffer;
  delete[] buffer;
  return nullptr;
}

bool ReadDirectorySize(std::FILE* file, std::int64_t length, std::uint32_t* size) {
  unsigned char bytes[kSizeFieldBytes];
  if (length < kSizeFieldBytes || !Seek(file, 0, SEEK_SET) ||
      std::fread(bytes, 1, sizeof bytes, file) != sizeof bytes) {
    return false;
  }
  *size = bytes[0] | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
          std::uint32_t{bytes[3]} << 24;
  return kSizeFieldBytes + std::int64_t{*size} <= length;
}

char* CopyOf(const char* text) {
  if (text == nullptr) return nullptr;
  const std::size_t bytes = std::strlen(text) + 1;
  auto* copy = new (std::nothrow) char[bytes];
  if (copy != nullptr) std::memcpy(copy, text, bytes);
  return copy;
}

}  // namespace

class MFColorTable::Reading {
 public:
  explicit Reading(const MFColorTable& table) : file_(table.file_), isOwn_(table.file_ == nullptr) {
    if (isOwn_ && table.filename_ != nullptr) file_ = OpenReadable(table.filename_);
  }
  ~Reading() {
    if (isOwn_ && file_ != nullptr) std::fclose(file_);
  }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;

  std::FILE* File() const { return file_; }

 private:
  std::FILE* file_;
  bool isOwn_;
};

MFColorTable::MFColorTable(const MFColorTable& other) : filename_(CopyOf(other.filename_)) {}

MFColorTable& MFColorTable::operator=(const MFColorTable& other) {
  if (this == &other) return *this;
  Close();
  delete[] std::exchange(filename_, CopyOf(other.filename_));
  return *this;
}

MFColorTable::~MFColorTable() {
  Close();
  delete[] filename_;
}

unsigned long MFColorTable::SetFilename(const char* filename) {
  Close();
  delete[] std::exchange(filename_, CopyOf(filename));
  return Reading(*this).File() != nullptr;
}

unsigned long MFColorTable::Open() {
  Close();
  if (filename_ != nullptr) file_ = OpenReadable(filename_);
  return file_ != nullptr;
}

void MFColorTable::Close() {
  if (file_ != nullptr) std::fclose(std::exchange(file_, nullptr));
}

unsigned long MFColorTable::GetHeaderSize(unsigned long* size) {
  *size = 0;
  const Reading reading(*this);
  std::uint32_t directorySize;
  if (reading.File() == nullptr ||
      !ReadDirectorySize(reading.File(), Length(reading.File()), &directorySize)) {
    return 0;
  }
  *size = directorySize;
  return 1;
}

unsigned long MFColorTable::GetData(long offset, long size, unsigned char** out) {
  if (offset != 0 || size != 0) return GetData(offset, size, size, out);
  *out = nullptr;
  const Reading reading(*this);
  if (reading.File() == nullptr) return 0;
  const std::int64_t behind = Length(reading.File()) - kSizeFieldBytes;
  if (behind < 0) return 0;
  *out = ReadBuffer(reading.File(), kSizeFieldBytes, std::min(behind, kLargestTable), kLargestTable,
                    0);
  return *out != nullptr;
}

unsigned long MFColorTable::GetData(long offset, long size, long bufferSize, unsigned char** out) {
  *out = nullptr;
  const std::int64_t start = Position(offset), bytes = Position(size), room = Position(bufferSize);
  if (start < 0 || bytes < 0 || room < bytes) return 0;
  const Reading reading(*this);
  if (reading.File() == nullptr) return 0;
  const std::int64_t length = Length(reading.File());
  if (start > length || bytes > length - start) return 0;
  *out = ReadBuffer(reading.File(), start, bytes, room, room - bytes);
  return *out != nullptr;
}

void MFColorTable::DeleteData(unsigned char* data) { delete[] data; }

unsigned char* MFColorTable::CopyData(const unsigned char* data, unsigned long size) {
  auto* copy = new (std::nothrow) unsigned char[size];
  if (copy != nullptr) std::memcpy(copy, data, size);
  return copy;
}

}  // namespace ZCOM
