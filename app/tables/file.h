// SPDX-License-Identifier: MIT
//
// The colour-table file (docs/color-table-file.md): a directory, and the tables that five indices
// select in it.
#pragma once

#include <cstdint>
#include <fstream>
#include <span>
#include <string>
#include <vector>

#include "color/table/directory.h"

namespace corvane {

// The bytes of a file that holds `stored`, one table for each index tuple in order. Tables with the
// same bytes are kept once. Throws Failure when offsets would not fit 32 bits.
std::vector<std::uint8_t> MakeTableFile(const TableIndices& extents,
                                        std::span<const std::vector<std::uint8_t>* const> stored);

struct TableEntry {
  TableIndices indices{};
  std::uint32_t offset = 0;  // from the end of the directory
  std::uint32_t size = 0;    // as stored
};

// Of a directory; pages ask for 64 of each medium at most.
inline constexpr std::uint32_t kMostTables = 4096;

// A file opened for reading. Throws Failure for one without a directory that can be read.
class TableFile {
 public:
  explicit TableFile(const std::string& path);

  const std::string& Name() const { return name_; }
  std::uint64_t Bytes() const { return bytes_; }

  // 0 for a file that holds a single table and no directory; it is then the only entry.
  std::uint32_t DirectoryBytes() const { return directoryBytes_; }
  const TableIndices& Extents() const { return extents_; }
  const std::vector<TableEntry>& Entries() const { return entries_; }

  // The entry of an index tuple, or null.
  const TableEntry* Find(const TableIndices& indices) const;
  bool Holds(const TableEntry& entry) const;
  std::vector<std::uint8_t> Read(const TableEntry& entry);

 private:
  void ReadBytes(std::uint64_t position, std::span<std::uint8_t> bytes);
  void ReadDirectory();

  std::string name_;
  std::ifstream file_;
  std::uint64_t bytes_ = 0;
  std::uint32_t directoryBytes_ = 0;
  TableIndices extents_{1, 1, 1, 1, 1};
  std::vector<TableEntry> entries_;
};

}  // namespace corvane
