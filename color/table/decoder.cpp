// SPDX-License-Identifier: MIT
#include "color/table/decoder.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

namespace corvane {
namespace {

constexpr std::uint32_t kLookAheadBytes = 32;

using Row = std::array<std::uint8_t, kCubeEdge>;
using Deltas = std::array<std::uint8_t, kDeltaCount>;

// The stored bytes of a coded table, read through a small copy. Output may cover stored bytes once
// they are in the copy; for that reason a byte enters the copy once and is never fetched again.
class LookAhead {
 public:
  LookAhead(const std::uint8_t* stored, std::uint32_t size, std::uint32_t position)
      : stored_(stored), size_(size), position_(position), held_(position) {}

  bool AtEnd() const { return position_ >= size_; }
  bool Has(std::uint32_t count) const { return position_ + std::uint64_t{count} <= size_; }

  void Refill() {
    const std::uint32_t end =
        std::min<std::uint64_t>(size_, position_ + std::uint64_t{kLookAheadBytes});
    for (; held_ < end; ++held_) copy_[held_ % kLookAheadBytes] = stored_[held_];
  }

  std::uint8_t Next() { return copy_[position_++ % kLookAheadBytes]; }

 private:
  const std::uint8_t* stored_;
  std::uint32_t size_;
  std::uint32_t position_;
  std::uint32_t held_;  // one past the last stored byte that entered the copy
  std::array<std::uint8_t, kLookAheadBytes> copy_{};
};

unsigned Bit(unsigned byte, unsigned bit) { return byte >> bit & 1; }

// The number whose bits 6 to 0 are the top bits of seven bytes.
unsigned TopBits(const std::uint8_t* bytes) {
  unsigned value = 0;
  for (unsigned i = 0; i < 7; ++i) value = value << 1 | Bit(bytes[i], 7);
  return value;
}

// Widths 1, 2 and 4: the values follow one another from the highest bit down.
Deltas UnpackPowerOfTwo(const std::uint8_t* c, unsigned bits) {
  Deltas d;
  const unsigned perByte = 8 / bits;
  for (unsigned k = 0; k < kDeltaCount; ++k) {
    const unsigned shift = 8 - bits * (k % perByte + 1);
    d[k] = c[k / perByte] >> shift & ((1u << bits) - 1);
  }
  return d;
}

// Widths 3, 5, 6 and 7: whole values in the low bits, the last ones gathered from the high bits.
Deltas UnpackThreeBits(const std::uint8_t* c) {
  Deltas d;
  for (unsigned k = 0; k < 6; ++k) {
    d[k] = c[k] & 7;
    d[6 + k] = c[k] >> 3 & 7;
  }
  for (unsigned j = 0; j < 3; ++j) {
    d[12 + j] = (c[2 * j] >> 6 & 3) << 1 | Bit(c[2 * j + 1], 6);
  }
  d[15] = Bit(c[1], 7) << 2 | Bit(c[3], 7) << 1 | Bit(c[5], 7);
  return d;
}

Deltas UnpackFiveBits(const std::uint8_t* c) {
  Deltas d;
  for (unsigned k = 0; k < 10; ++k) d[k] = c[k] & 31;
  d[15] = 0;
  for (unsigned j = 0; j < 5; ++j) {
    d[10 + j] = (c[2 * j] >> 5) << 2 | (c[2 * j + 1] >> 5 & 3);
    d[15] |= Bit(c[2 * j + 1], 7) << (4 - j);
  }
  return d;
}

Deltas UnpackSixBits(const std::uint8_t* c) {
  Deltas d;
  for (unsigned k = 0; k < 12; ++k) d[k] = c[k] & 63;
  for (unsigned j = 0; j < 4; ++j) {
    d[12 + j] = (c[3 * j] >> 6) << 4 | (c[3 * j + 1] >> 6) << 2 | c[3 * j + 2] >> 6;
  }
  return d;
}

Deltas UnpackSevenBits(const std::uint8_t* c) {
  Deltas d;
  for (unsigned k = 0; k < 14; ++k) d[k] = c[k] & 127;
  d[14] = TopBits(c);
  d[15] = TopBits(c + 7);
  return d;
}

Deltas UnpackDeltas(const std::uint8_t* c, unsigned bits) {
  switch (bits) {
    case 3:
      return UnpackThreeBits(c);
    case 5:
      return UnpackFiveBits(c);
    case 6:
      return UnpackSixBits(c);
    case 7:
      return UnpackSevenBits(c);
    default:
      return UnpackPowerOfTwo(c, bits);
  }
}

Row DecodeDeltaRow(const RowOperation& operation, const std::uint8_t* operands) {
  const Deltas deltas = UnpackDeltas(operands + 1, operation.bits);
  const std::uint8_t* signBytes = operands + 1 + 2 * operation.bits;

  Row row;
  row[0] = operands[0];
  for (unsigned k = 0; k < kDeltaCount; ++k) {
    const bool add = operation.form == RowForm::Add ||
                     (operation.form == RowForm::Signed && Bit(signBytes[k / 8], 7 - k % 8) != 0);
    row[k + 1] = static_cast<std::uint8_t>(add ? row[k] + deltas[k] : row[k] - deltas[k]);
  }
  return row;
}

Row DecodeSevenBitOffsets(const std::uint8_t* operands) {
  const unsigned base = operands[0];
  const std::uint8_t* c = operands + 1;
  Row row;
  for (unsigned k = 0; k < 15; ++k) row[k] = static_cast<std::uint8_t>(base + (c[k] & 127));
  row[15] = static_cast<std::uint8_t>(base + TopBits(c));
  row[16] = static_cast<std::uint8_t>(base + TopBits(c + 7));
  return row;
}

Row DecodeRow(const RowOperation& operation, const std::uint8_t* operands) {
  Row row{};
  switch (operation.form) {
    case RowForm::Zero:
      break;
    case RowForm::Constant:
      row.fill(operands[0]);
      break;
    case RowForm::Add:
    case RowForm::Subtract:
    case RowForm::Signed:
      row = DecodeDeltaRow(operation, operands);
      break;
    case RowForm::Offsets:
      row = DecodeSevenBitOffsets(operands);
      break;
    case RowForm::Literal:
      std::copy_n(operands, row.size(), row.begin());
      break;
  }
  return row;
}

void DecodeDeltaCurve(std::uint8_t* output, std::uint32_t outputBytes,
                      const std::uint8_t* nibbles) {
  std::uint8_t value = 0;
  for (std::uint32_t i = 0; i < std::min(outputBytes, kBlackCurveBytes); ++i) {
    // Read before the write: the output ends where the input ends.
    const unsigned nibble = i % 2 == 0 ? nibbles[i / 2] >> 4 : nibbles[i / 2] & 15;
    value = static_cast<std::uint8_t>(value + nibble);
    output[i] = value;
  }
}

// Carries out the row codes from `input` and returns how many bytes were written to `output`.
// `modes` are the cube-mode bytes that are known; later cubes are kept as they are.
std::uint32_t DecodeRows(LookAhead input, std::uint8_t* output, std::uint32_t outputBytes,
                         const std::uint8_t* modes, std::uint32_t modeCount) {
  std::uint32_t written = 0;
  const RowOperation* operation = nullptr;
  unsigned repeats = 0;
  for (std::uint32_t rowNumber = 0; !input.AtEnd() || repeats > 0; ++rowNumber) {
    input.Refill();
    if (repeats > 0) {
      --repeats;
    } else {
      const unsigned code = input.Next();
      operation = FindRowOperation(code);
      repeats = RepeatsIn(code);
      if (repeats == kRepeatInNextByte) {
        if (!input.Has(1)) break;
        repeats = input.Next();
      }
    }

    if (operation != nullptr) {
      const std::uint32_t operandCount = operation->operandBytes;
      if (!input.Has(operandCount) || outputBytes - written < kCubeEdge) break;
      std::array<std::uint8_t, kCubeEdge> operands{};
      for (std::uint32_t i = 0; i < operandCount; ++i) operands[i] = input.Next();
      const Row row = DecodeRow(*operation, operands.data());
      std::copy(row.begin(), row.end(), output + written);
      written += kCubeEdge;
    }

    // A cube is found by its rows, those without bytes included.
    const std::uint32_t cube = rowNumber / kCubeRows;
    if (rowNumber % kCubeRows == kCubeRows - 1 && cube < modeCount &&
        (cube + std::uint64_t{1}) * kCubeBytes <= outputBytes) {
      TransposeCube(output + std::size_t{cube} * kCubeBytes, modes[cube]);
    }
  }
  return written;
}

}  // namespace

unsigned long DecodeColorTable(unsigned char* buffer, unsigned long expected, long stored) {
  if (stored < static_cast<long>(kCodedHeaderBytes) ||
      static_cast<unsigned long>(stored) > expected) {
    return 0;
  }
  const auto bufferBytes = static_cast<std::uint32_t>(expected);
  const auto storedBytes = static_cast<std::uint32_t>(stored);
  std::uint8_t* const input = buffer + (bufferBytes - storedBytes);

  const StoredForm form = StoredFormOf(storedBytes);
  if (form == StoredForm::DeltaCurve) DecodeDeltaCurve(buffer, bufferBytes, input);
  if (form != StoredForm::Coded) return 0;

  ScrambleCodedTable(input, storedBytes);
  std::array<std::uint8_t, kLookAheadBytes> head{};
  const std::uint32_t headBytes = std::min(storedBytes, kLookAheadBytes);
  std::copy_n(input, headBytes, head.begin());

  const std::uint32_t modeBytes = head[4];
  const LookAhead rowCodes(input, storedBytes, kCodedHeaderBytes + modeBytes);
  const std::uint32_t written =
      DecodeRows(rowCodes, buffer, bufferBytes, head.data() + kCodedHeaderBytes,
                 headBytes - kCodedHeaderBytes);

  const std::uint32_t sum = TableChecksum(buffer, written);
  return sum == StoredChecksum(head.data()) ? sum : 0;
}

void TransposeCube(unsigned char* cube, unsigned char mode) {
  constexpr unsigned kStrides[] = {kCubeRows, kCubeEdge, 1};
  if (mode < 1 || mode > 3) return;
  const unsigned first = mode == 3 ? 1 : 0;
  const unsigned second = mode == 1 ? 1 : 2;
  const unsigned kept = 3 - first - second;

  for (unsigned k = 0; k < kCubeEdge; ++k) {
    unsigned char* const plane = cube + k * kStrides[kept];
    for (unsigned i = 0; i < kCubeEdge; ++i) {
      for (unsigned j = 0; j < i; ++j) {
        std::swap(plane[i * kStrides[first] + j * kStrides[second]],
                  plane[j * kStrides[first] + i * kStrides[second]]);
      }
    }
  }
}

}  // namespace corvane
