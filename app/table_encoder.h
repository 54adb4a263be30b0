// SPDX-License-Identifier: MIT
//
// Colour tables in the form in which a file stores them (docs/color-table-file.md): the inverse of
// the plug-in's decoder, as small as the form allows.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace corvane {

// Bytes of a decoded black curve.
inline constexpr std::size_t kBlackCurveBytes = 256;

// The coded form of a table of whole cubes of 4913 bytes each, the first channel first. Nothing
// when the coded form would not be smaller than the table: then no file can hold the table.
std::optional<std::vector<std::uint8_t>> EncodeColorTable(std::span<const std::uint8_t> table);

// The stored form of a black curve: 128 bytes when no step is above 15, else the curve itself.
std::vector<std::uint8_t> EncodeBlackCurve(std::span<const std::uint8_t, kBlackCurveBytes> curve);

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
