// SPDX-License-Identifier: MIT
//
// The directory of a colour-table file: which table, at which offset, belongs to five indices.
//
// A directory is a sequence of unsigned 32-bit little-endian numbers: N, the N extents, then the
// offsets and the stored sizes of all tables. The tables are numbered with the last index varying
// fastest; their count is the product of the extents.
#pragma once

#include <cstdint>

namespace corvane {

enum class LookupResult : unsigned char {
  Found = 0,
  WrongIndexCount = 1,  // the directory is not made for this number of indices
  IndexOutOfRange = 2,  // an index is not below its extent
};

// Finds the table that `indices` select. `offset` (bytes from the end of the directory) and `size`
// (bytes as stored) are written only when the result is `Found`. The directory must be complete.
LookupResult LookUpColorTable(const unsigned char* directory, const std::uint32_t* indices,
                              std::uint32_t count, std::uint32_t* offset, std::uint32_t* size);

// True when `directoryBytes` bytes hold all numbers that the directory's own N and extents promise.
bool IsCompleteDirectory(const unsigned char* directory, std::uint32_t directoryBytes);

}  // namespace corvane
