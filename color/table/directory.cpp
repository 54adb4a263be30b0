// SPDX-License-Identifier: MIT
#include "color/table/directory.h"

#include "color/table/stored_form.h"

namespace corvane {

std::uint32_t DecodedTableBytes(std::uint32_t inkSetIndex) {
  switch (inkSetIndex) {
    case InkSetIndexOf(InkSet::Black, false):
      return kBlackCurveBytes;
    case InkSetIndexOf(InkSet::Seven, true):
    case InkSetIndexOf(InkSet::Seven, false):
      return static_cast<std::uint32_t>(PlanesOf(InkSet::Seven)) * kCubeBytes;
    case InkSetIndexOf(InkSet::Nine, false):
      return static_cast<std::uint32_t>(PlanesOf(InkSet::Nine)) * kCubeBytes;
    default:
      return 0;
  }
}

std::uint32_t DirectoryNumber(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[3]} << 24;
}

bool TableDirectory::IsComplete() const {
  const std::uint64_t numbers = Numbers();
  if (numbers < 1) return false;
  const std::uint32_t indexCount = IndexCount();
  if (numbers < DirectoryNumbers(indexCount, 0)) return false;

  // Bounded by `numbers` at every step, so the product cannot wrap.
  std::uint64_t tableCount = 1;
  for (std::uint32_t k = 0; k < indexCount; ++k) {
    tableCount *= Extent(k);
    if (tableCount > numbers) return false;
  }
  return numbers >= DirectoryNumbers(indexCount, tableCount);
}

std::uint64_t TableDirectory::TableCount() const {
  std::uint64_t count = 1;
  for (std::uint32_t k = 0; k < IndexCount(); ++k) count *= Extent(k);
  return count;
}

std::uint32_t TableDirectory::Offset(std::uint64_t table) const {
  return Number(DirectoryNumbers(IndexCount(), 0) + table);
}

std::uint32_t TableDirectory::StoredSize(std::uint64_t table) const {
  return Number(DirectoryNumbers(IndexCount(), 0) + TableCount() + table);
}

LookupResult ktColorGetTable2(const TableDirectory& directory, const std::uint32_t* indices,
                              std::uint32_t count, std::uint64_t* table) {
  if (directory.IndexCount() != count) return LookupResult::WrongIndexCount;

  std::uint64_t number = 0;
  for (std::uint32_t k = 0; k < count; ++k) {
    const std::uint32_t extent = directory.Extent(k);
    if (indices[k] >= extent) return LookupResult::IndexOutOfRange;
    number = number * extent + indices[k];
  }
  *table = number;
  return LookupResult::Found;
}

}  // namespace corvane
