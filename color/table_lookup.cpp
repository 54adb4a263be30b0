// SPDX-License-Identifier: MIT
#include "color/table_lookup.h"

namespace corvane {
namespace {

constexpr std::uint32_t kNumberBytes = 4;

std::uint32_t DirectoryNumber(const unsigned char* directory, std::uint64_t position) {
  const unsigned char* bytes = directory + position * kNumberBytes;
  return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[3]} << 24;
}

}  // namespace

LookupResult LookUpColorTable(const unsigned char* directory, const std::uint32_t* indices,
                              std::uint32_t count, std::uint32_t* offset, std::uint32_t* size) {
  if (DirectoryNumber(directory, 0) != count) return LookupResult::WrongIndexCount;

  std::uint64_t tableCount = 1;
  std::uint64_t table = 0;
  for (std::uint32_t k = 0; k < count; ++k) {
    const std::uint32_t extent = DirectoryNumber(directory, 1 + k);
    if (indices[k] >= extent) return LookupResult::IndexOutOfRange;
    tableCount *= extent;
    table = table * extent + indices[k];
  }

  const std::uint64_t firstOffset = 1 + std::uint64_t{count};
  *offset = DirectoryNumber(directory, firstOffset + table);
  *size = DirectoryNumber(directory, firstOffset + tableCount + table);
  return LookupResult::Found;
}

bool IsCompleteDirectory(const unsigned char* directory, std::uint32_t directoryBytes) {
  const std::uint64_t numbers = directoryBytes / kNumberBytes;
  if (numbers < 1) return false;
  const std::uint64_t indexCount = DirectoryNumber(directory, 0);
  if (numbers < 1 + indexCount) return false;

  // Bounded by `numbers` at every step, so the product cannot wrap.
  std::uint64_t tableCount = 1;
  for (std::uint64_t k = 0; k < indexCount; ++k) {
    tableCount *= DirectoryNumber(directory, 1 + k);
    if (tableCount > numbers) return false;
  }
  return numbers >= 1 + indexCount + 2 * tableCount;
}

}  // namespace corvane
