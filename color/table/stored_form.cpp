// SPDX-License-Identifier: MIT
#include "color/table/stored_form.h"

#include <bit>

namespace corvane {

std::uint32_t StoredChecksum(const std::uint8_t* header) {
  return std::uint32_t{header[0]} << 24 | std::uint32_t{header[1]} << 16 |
         std::uint32_t{header[2]} << 8 | std::uint32_t{header[3]};
}

std::uint32_t TableChecksum(const std::uint8_t* table, std::uint32_t bytes) {
  std::uint32_t sum = 0;
  for (std::uint32_t i = 0; i < bytes; ++i) sum = std::rotr(sum + (table[i] + 1u) * i, 4);
  return sum;
}

void ScrambleCodedTable(std::uint8_t* stored, std::uint32_t size) {
  std::uint32_t mask = ~(size << 16) + size;
  for (std::uint32_t i = kCodedHeaderBytes; i < size; ++i) {
    stored[i] ^= static_cast<std::uint8_t>(mask);
    mask = std::rotr(mask, 1);
  }
}

const RowOperation* FindRowOperation(unsigned code) {
  for (const RowOperation& operation : kRowOperations) {
    if (operation.code == OperationIn(code)) return &operation;
  }
  return nullptr;
}

}  // namespace corvane
