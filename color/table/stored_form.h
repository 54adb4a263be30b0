// SPDX-License-Identifier: MIT
//
// How a colour table is stored, for the decoder and for what writes tables.
// docs/color-table-file.md describes the forms byte by byte.
//
// A table is a black curve of 256 bytes, or whole cubes of 17 x 17 x 17 bytes, channel after
// channel. A cube is stored as row codes behind a header:
//
//   0 to 3      checksum of the decoded table, big-endian
//   4           H, the number of cube-mode bytes
//   5 to 4 + H  a cube-mode byte for each cube: which of its axes are exchanged
//   from 5 + H  row codes, each for one or more rows of 17 bytes
//
// Everything from byte 5 on is scrambled.
#pragma once

#include <array>
#include <cstdint>

namespace corvane {

// Bytes of one row, rows of one cube, bytes of one cube.
inline constexpr unsigned kCubeEdge = 17;
inline constexpr unsigned kCubeRows = kCubeEdge * kCubeEdge;
inline constexpr unsigned kCubeBytes = kCubeRows * kCubeEdge;
inline constexpr unsigned kDeltaCount = kCubeEdge - 1;  // differences of a row

inline constexpr std::uint32_t kBlackCurveBytes = 256;
inline constexpr std::uint32_t kDeltaCurveBytes = 128;  // a nibble for each step of the curve
inline constexpr std::uint32_t kCodedHeaderBytes = 5;

enum class StoredForm : std::uint8_t {
  None,        // none that can be read
  Plain,       // the table itself; only a black curve is stored so
  DeltaCurve,  // the 4-bit steps of a black curve
  Coded,
};

// The form that a table's stored size tells by itself.
constexpr StoredForm StoredFormOf(std::uint64_t storedBytes) {
  if (storedBytes == kDeltaCurveBytes) return StoredForm::DeltaCurve;
  if (storedBytes == kBlackCurveBytes) return StoredForm::Plain;
  return storedBytes < kCodedHeaderBytes ? StoredForm::None : StoredForm::Coded;
}

// The same for a table that is `tableBytes` bytes decoded.
constexpr StoredForm StoredFormOf(std::uint64_t storedBytes, std::uint64_t tableBytes) {
  if (storedBytes > tableBytes) return StoredForm::None;
  if (storedBytes == tableBytes) return StoredForm::Plain;
  return storedBytes == kBlackCurveBytes ? StoredForm::None : StoredFormOf(storedBytes);
}

// The checksum that the header has, and the one that decoded bytes have.
std::uint32_t StoredChecksum(const std::uint8_t* header);
std::uint32_t TableChecksum(const std::uint8_t* table, std::uint32_t bytes);

// Scrambles a coded table of `size` bytes, or takes the scrambling away: it is its own inverse.
void ScrambleCodedTable(std::uint8_t* stored, std::uint32_t size);

// ---------------------------------------------------------------------------------------------
// Row codes. A code byte holds an operation and how often it is repeated after the first time; the
// count kRepeatInNextByte means that the next byte is the count.

inline constexpr unsigned kRepeatInNextByte = 3;
constexpr unsigned RepeatsIn(unsigned code) { return code >> 2 & 3; }
constexpr unsigned OperationIn(unsigned code) { return code & 0xF3; }
constexpr unsigned RowCode(unsigned operation, unsigned repeats) {
  return operation | (repeats < kRepeatInNextByte ? repeats : kRepeatInNextByte) << 2;
}

enum class RowForm : std::uint8_t {
  Zero,      // 17 bytes 0
  Constant,  // 17 times the operand
  Add,       // the first byte, then steps up
  Subtract,  // the first byte, then steps down
  Signed,    // the first byte, then steps, then a bit for each that is 1 for a step up
  Offsets,   // a base byte, then 17 offsets of 7 bits from it
  Literal,   // the row itself
};

struct RowOperation {
  std::uint8_t code;
  RowForm form;
  std::uint8_t bits;          // of a step
  std::uint8_t operandBytes;  // that each row of this operation takes
};

inline constexpr int kMaxDeltaBits = 7;
inline constexpr int kMaxSignedBits = 6;
inline constexpr std::size_t kRowOperationCount = 4 + 2 * kMaxDeltaBits + kMaxSignedBits;

constexpr std::array<RowOperation, kRowOperationCount> MakeRowOperations() {
  std::array<RowOperation, kRowOperationCount> operations{};
  std::size_t count = 0;
  const auto add = [&](int code, RowForm form, int bits, int operandBytes) {
    operations[count++] = {static_cast<std::uint8_t>(code), form, static_cast<std::uint8_t>(bits),
                           static_cast<std::uint8_t>(operandBytes)};
  };
  add(0x00, RowForm::Zero, 0, 0);
  add(0x01, RowForm::Constant, 0, 1);
  for (int bits = 1; bits <= kMaxDeltaBits; ++bits) {
    add(bits << 4, RowForm::Add, bits, 1 + 2 * bits);
    add(bits << 4 | 1, RowForm::Subtract, bits, 1 + 2 * bits);
    if (bits <= kMaxSignedBits) add(bits << 4 | 2, RowForm::Signed, bits, 3 + 2 * bits);
  }
  add(0x72, RowForm::Offsets, 0, 16);
  add(0x80, RowForm::Literal, 0, kCubeEdge);
  return operations;
}
inline constexpr auto kRowOperations = MakeRowOperations();

// The operation of a code byte; null when it is none: such a row has no bytes, but counts as a row.
const RowOperation* FindRowOperation(unsigned code);

}  // namespace corvane
