// SPDX-License-Identifier: MIT
#include "app/tables/stored_table.h"

#include <algorithm>

#include "color/table/decoder.h"

namespace corvane {

DecodedTable DecodeStoredTable(std::span<const std::uint8_t> stored, std::uint32_t tableBytes) {
  DecodedTable table;
  table.bytes.resize(tableBytes);
  std::copy(stored.rbegin(), stored.rend(), table.bytes.rbegin());
  if (StoredFormOf(stored.size(), tableBytes) == StoredForm::Plain) return table;
  table.checksum = static_cast<std::uint32_t>(
      DecodeColorTable(table.bytes.data(), tableBytes, static_cast<long>(stored.size())));
  return table;
}

CodedTableInfo InspectCodedTable(std::span<const std::uint8_t> stored) {
  CodedTableInfo info;
  if (stored.size() < kCodedHeaderBytes) return info;
  std::vector<std::uint8_t> bytes(stored.begin(), stored.end());
  ScrambleCodedTable(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  info.checksum = StoredChecksum(bytes.data());
  std::size_t at = std::size_t{kCodedHeaderBytes} + bytes[4];
  if (at > bytes.size()) return info;
  info.cubeModes.assign(bytes.begin() + kCodedHeaderBytes,
                        bytes.begin() + static_cast<std::ptrdiff_t>(at));

  while (at < bytes.size()) {
    const std::uint8_t code = bytes[at++];
    std::uint64_t rows = 1 + RepeatsIn(code);
    if (RepeatsIn(code) == kRepeatInNextByte) {
      if (at == bytes.size()) return info;
      rows = 1 + std::uint64_t{bytes[at++]};
    }
    const RowOperation* operation = FindRowOperation(code);
    if (operation == nullptr) {
      info.emptyRows += rows;
      continue;
    }
    at += rows * operation->operandBytes;
    info.rows += rows;
  }
  info.complete = at == bytes.size();
  return info;
}

}  // namespace corvane
