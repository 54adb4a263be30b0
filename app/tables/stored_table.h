// SPDX-License-Identifier: MIT
//
// A table as a file stores it, read by the program as the plug-in reads it.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace corvane {

struct DecodedTable {
  std::vector<std::uint8_t> bytes;
  std::uint32_t checksum = 0;  // what the decoder gives: 0 when it is not the stored one
};

// Decodes to a table of `tableBytes` bytes, which must not be fewer than the stored ones. A table
// of a form without codes of its own comes out as it is.
DecodedTable DecodeStoredTable(std::span<const std::uint8_t> stored, std::uint32_t tableBytes);

// What a coded table says about itself, read without decoding it.
struct CodedTableInfo {
  std::uint32_t checksum = 0;  // of the decoded table
  std::vector<std::uint8_t> cubeModes;
  std::uint64_t rows = 0;       // rows that the codes give
  std::uint64_t emptyRows = 0;  // rows of codes that stand for no bytes
  bool complete = false;        // the last row's code ends with the stored bytes
};
CodedTableInfo InspectCodedTable(std::span<const std::uint8_t> stored);

}  // namespace corvane
