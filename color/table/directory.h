// SPDX-License-Identifier: MIT
//
// The directory of a colour-table file: which table, at which offset, belongs to five indices.
//
// The file begins with the directory's size; the directory follows, then the tables. A directory is
// a sequence of unsigned 32-bit little-endian numbers: N, the N extents, then the offsets and the
// stored sizes of all tables. The tables are numbered with the last index varying fastest; their
// count is the product of the extents.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "printmode/print_mode.h"

namespace corvane {

inline constexpr std::uint32_t kDirectoryStart = 4;  // bytes of the file before the directory
inline constexpr std::uint32_t kDirectoryNumberBytes = 4;

// The indices by which the colour element asks, and how many values it gives each.
enum TableIndex : unsigned {
  kInkSetIndex,
  kMediaIndex,
  kPreferenceIndex,
  kQualityIndex,
  kIntentIndex,
  kTableIndexCount
};
using TableIndices = std::array<std::uint32_t, kTableIndexCount>;
inline constexpr TableIndices kTableExtents{4, 6, 2, 4, 2};

// The first index: a set of seven inks has other tables for paper that wants its own.
constexpr std::uint32_t InkSetIndexOf(InkSet set, bool paperHasOwnTables) {
  if (set == InkSet::Black) return 0;
  if (set == InkSet::Nine) return 3;
  return paperHasOwnTables ? 1 : 2;
}

// Bytes of the decoded tables that a value of the first index selects: a black curve, seven or nine
// cubes. 0 for a value that the colour element never asks for.
std::uint32_t DecodedTableBytes(std::uint32_t inkSetIndex);

// Numbers of a directory for `tables` tables of `indexCount` indices.
constexpr std::uint64_t DirectoryNumbers(std::uint64_t indexCount, std::uint64_t tables) {
  return 1 + indexCount + 2 * tables;
}

// The little-endian number at `bytes`.
std::uint32_t DirectoryNumber(const std::uint8_t* bytes);

// A directory in memory, which stays its owner's.
class TableDirectory {
 public:
  TableDirectory(const std::uint8_t* bytes, std::uint32_t size) : bytes_(bytes), size_(size) {}

  // The directory holds all numbers that its own N and extents promise. Only then may anything
  // below be asked.
  bool IsComplete() const;

  std::uint32_t IndexCount() const { return Number(0); }
  std::uint32_t Extent(std::uint32_t index) const { return Number(1 + std::uint64_t{index}); }
  std::uint64_t TableCount() const;

  // Of table number `table`: bytes from the end of the directory, bytes as stored.
  std::uint32_t Offset(std::uint64_t table) const;
  std::uint32_t StoredSize(std::uint64_t table) const;

 private:
  std::uint64_t Numbers() const { return size_ / kDirectoryNumberBytes; }
  std::uint32_t Number(std::uint64_t position) const {
    return DirectoryNumber(bytes_ + position * kDirectoryNumberBytes);
  }

  const std::uint8_t* bytes_;
  std::uint32_t size_;
};

enum class LookupResult : unsigned char {
  Found = 0,
  WrongIndexCount = 1,  // the directory is not made for this number of indices
  IndexOutOfRange = 2,  // an index is not below its extent
};

// Finds the number of the table that `indices` select, which is written only when the result is
// `Found`. The directory must be complete.
LookupResult ktColorGetTable2(const TableDirectory& directory, const std::uint32_t* indices,
                              std::uint32_t count, std::uint64_t* table);

}  // namespace corvane
