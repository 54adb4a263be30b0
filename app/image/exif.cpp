// SPDX-License-Identifier: MIT
#include "app/image/exif.h"

#include <cstring>

namespace corvane {
namespace {

constexpr std::uint32_t kOrientationTag = 0x0112;
constexpr std::uint32_t kShortType = 3;
constexpr std::size_t kEntryBytes = 12;

// Reads numbers of either byte order; what lies beyond the end reads as 0.
class ExifBytes {
 public:
  ExifBytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {
    littleEndian_ = size >= 2 && data[0] == 'I';
  }

  std::uint32_t Short(std::size_t at) const { return Number(at, 2); }
  std::uint32_t Long(std::size_t at) const { return Number(at, 4); }

 private:
  std::uint32_t Number(std::size_t at, std::size_t count) const {
    if (at > size_ || size_ - at < count) return 0;
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      value = value << 8 | data_[littleEndian_ ? at + count - 1 - i : at + i];
    }
    return value;
  }

  const std::uint8_t* data_;
  std::size_t size_;
  bool littleEndian_;
};

}  // namespace

int ExifOrientation(const std::uint8_t* data, std::size_t size) {
  if (size < 8 || (std::memcmp(data, "II", 2) != 0 && std::memcmp(data, "MM", 2) != 0)) return 1;
  const ExifBytes bytes(data, size);
  if (bytes.Short(2) != 42) return 1;
  const std::size_t directory = bytes.Long(4);
  const std::uint32_t entries = bytes.Short(directory);
  for (std::uint32_t i = 0; i < entries; ++i) {
    const std::size_t entry = directory + 2 + i * kEntryBytes;
    if (bytes.Short(entry) != kOrientationTag || bytes.Short(entry + 2) != kShortType) continue;
    const std::uint32_t orientation = bytes.Short(entry + 8);
    return orientation >= 1 && orientation <= 8 ? static_cast<int>(orientation) : 1;
  }
  return 1;
}

}  // namespace corvane
