// SPDX-License-Identifier: MIT
#include "color/table/decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <random>

#include "tests/color/table/coded_table.h"

namespace corvane {
namespace {

using namespace harness;

constexpr unsigned kSevenInkBytes = 7 * kCubeBytes;

unsigned long Decode(ByteVector& buffer, std::size_t stored) {
  return DecodeColorTable(buffer.data(), buffer.size(), static_cast<long>(stored));
}

// The bytes that row codes give in a large buffer, as many as `expected` has.
ByteVector DecodedRows(const ByteVector& rowCodes, std::size_t bytes) {
  const ByteVector stored = CodedTable(0, {}, rowCodes);
  ByteVector buffer = AtEndOf(kSevenInkBytes, stored);
  Decode(buffer, stored.size());
  buffer.resize(bytes);
  return buffer;
}

ByteVector Row(unsigned first, const std::vector<int>& steps) {
  ByteVector row = {static_cast<unsigned char>(first)};
  for (int step : steps) row.push_back(static_cast<unsigned char>(row.back() + step));
  return row;
}

TEST(Decoder, CarriesOutEachRowCode) {
  const std::vector<int> eightOnes = {1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0};
  const std::vector<int> alternating = {3, -3, 3, -3, 3, -3, 3, -3, 3, -3, 3, -3, 3, -3, 3, -3};
  ByteVector literal, offsets;
  for (unsigned char i = 0; i < 17; ++i) literal.push_back(201 - 3 * i);
  for (unsigned char i = 0; i < 15; ++i) offsets.push_back(100 + i);
  offsets.push_back(100 + 0x55);
  offsets.push_back(100 + 0x2A);
  ByteVector offsetCode = {0x72, 100};
  for (unsigned char i = 0; i < 15; ++i) offsetCode.push_back(i | (i % 2 == 0 ? 128 : 0));
  ByteVector literalCode = {0x80};
  Append(literalCode, literal);

  const std::pair<ByteVector, ByteVector> cases[] = {
      // code and row
      {{0x00}, ByteVector(17, 0)},
      {{0x01, 9}, ByteVector(17, 9)},
      {{0x10, 10, 0xFF, 0x00}, Row(10, eightOnes)},
      {{0x11, 10, 0x00, 0xFF}, Row(10, {0, 0, 0, 0, 0, 0, 0, 0, -1, -1, -1, -1, -1, -1, -1, -1})},
      {{0x20, 250, 0x1B, 0x1B, 0x1B, 0x1B},
       Row(250, {0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3})},
      {{0x41, 128, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11}, Row(128, std::vector(16, -1))},
      {{0x40, 0, 0x1F, 0, 0, 0, 0, 0, 0, 0xF1},
       Row(0, {1, 15, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 15, 1})},
      // A sign bit of 1 adds.
      {{0x22, 7, 0xFF, 0xFF, 0xFF, 0xFF, 0xAA, 0xAA}, Row(7, alternating)},
      {offsetCode, offsets},
      {literalCode, literal},
  };
  for (const auto& [code, row] : cases) EXPECT_EQ(DecodedRows(code, 17), row) << int{code[0]};
}

// Widths without whole values in a byte: where each bit of the packed bytes goes.
TEST(Decoder, UnpacksEveryWidth) {
  for (unsigned width = 1; width <= 7; ++width) {
    std::vector<unsigned> seen(16, 0);
    for (unsigned bit = 0; bit < 16 * width; ++bit) {
      ByteVector code = {static_cast<unsigned char>(width << 4), 0};
      code.resize(2 + 2 * width);
      code[2 + bit / 8] = 0x80 >> bit % 8;
      const ByteVector row = DecodedRows(code, 17);
      int changes = 0;
      for (unsigned k = 0; k < 16; ++k) {
        const unsigned step = row[k + 1] - row[k];
        if (step == 0) continue;
        ++changes;
        EXPECT_TRUE(std::has_single_bit(step));
        EXPECT_EQ(seen[k] & step, 0u);
        seen[k] |= step;
      }
      EXPECT_EQ(changes, 1) << "width " << width << " bit " << bit;
    }
    EXPECT_THAT(seen, testing::Each((1u << width) - 1));
  }

  const std::pair<ByteVector, std::vector<int>> cases[] = {
      // code and steps
      {{0x30, 0, 0x80, 0x80, 0x40, 0x40, 0x07, 0xB8},
       {0, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 7, 4, 3, 0, 5}},
      {{0x30, 0, 0x00, 0x40, 0x80, 0x80, 0x40, 0x00},
       {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 4, 2, 2}},
      {{0x50, 0, 0xE0, 0x60, 0x80, 0x20, 0x01, 0x80, 0, 0, 0, 0x80},
       {0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 31, 17, 0, 0, 0, 5}},
      {{0x60, 0, 0xC0, 0x40, 0x80, 0x3F, 0, 0, 0, 0, 0, 0x80, 0x40, 0xC1},
       {0, 0, 0, 63, 0, 0, 0, 0, 0, 0, 0, 1, 54, 0, 0, 39}},
      {{0x70, 0, 0x80, 0x7F, 0, 0, 0, 0, 0x80, 0, 0x80, 0, 0, 0, 0, 0x80},
       {0, 127, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 65, 33}},
  };
  for (const auto& [code, steps] : cases) {
    EXPECT_EQ(DecodedRows(code, 17), Row(0, steps)) << int{code[0]};
  }
}

TEST(Decoder, RepeatsRows) {
  const ByteVector nines(17, 9);
  // How many rows each code gives before the row of nines behind it.
  const std::pair<ByteVector, unsigned> cases[] = {
      // Codes without bytes take their count byte and give no row, whatever is repeated.
      {{0x90}, 0},    {{0x9C, 200}, 0},   {{0x02, 0x03, 0x13, 0xF8}, 0},
      {{0x04}, 2},    {{0x08}, 3},        {{0x0C, 5}, 6},
      {{0x0C, 0}, 1}, {{0x0C, 255}, 256},
  };
  for (const auto& [code, rows] : cases) {
    ByteVector codes = code;
    Append(codes, {0x01, 9});
    ByteVector expected(17 * rows);
    Append(expected, nines);
    EXPECT_EQ(DecodedRows(codes, expected.size()), expected) << int{code[0]};
  }

  // Every repetition reads operands of its own; the last code's repeats need no further input.
  ByteVector expected(17, 1);
  Append(expected, ByteVector(17, 2));
  Append(expected, ByteVector(17, 3));
  EXPECT_EQ(DecodedRows({0x09, 1, 2, 3}, expected.size()), expected);
  const ByteVector stored = CodedTable(ChecksumOf(ByteVector(17 * 101)), {}, {0x0C, 100});
  ByteVector buffer = AtEndOf(kSevenInkBytes, stored);
  EXPECT_EQ(Decode(buffer, stored.size()), ChecksumOf(ByteVector(17 * 101)));
}

TEST(Decoder, ReturnsTheChecksumThatMatches) {
  ASSERT_EQ(ChecksumOf(ByteVector(3)), 0x21000000u);
  for (const auto& [stored, result] :
       {std::pair{0x97530ECBu, 0x97530ECBu}, std::pair{0x97530ECAu, 0u}}) {
    const ByteVector table = CodedTable(stored, {}, {0x00});
    ByteVector buffer = AtEndOf(256, table);
    EXPECT_EQ(Decode(buffer, table.size()), result);
  }
}

TEST(Decoder, DecodesTheDeltaCurveAndLeavesThePlainOne) {
  ByteVector nibbles(128, 0x11);
  nibbles[0] = 0x12;
  nibbles[1] = 0x34;
  for (std::size_t expected : {std::size_t{256}, std::size_t{kSevenInkBytes}}) {
    ByteVector buffer = AtEndOf(expected, nibbles);
    EXPECT_EQ(Decode(buffer, 128), 0u);
    EXPECT_THAT(ByteVector(buffer.begin(), buffer.begin() + 5),
                testing::ElementsAre(1, 3, 6, 10, 11));
    EXPECT_EQ(buffer[255], (10 + 252) % 256);
  }

  ByteVector plain = AtEndOf(kSevenInkBytes, ByteVector(256, 7));
  const ByteVector before = plain;
  EXPECT_EQ(Decode(plain, 256), 0u);
  EXPECT_EQ(plain, before);
}

TEST(Decoder, ExchangesTwoAxesOfACube) {
  ByteVector cube(kCubeBytes);
  std::mt19937 random(1);
  for (unsigned char& byte : cube) byte = static_cast<unsigned char>(random());
  const auto at = [](unsigned a, unsigned b, unsigned c) { return a * 289 + b * 17 + c; };
  for (unsigned mode = 0; mode < 5; ++mode) {
    ByteVector turned = cube;
    TransposeCube(turned.data(), static_cast<unsigned char>(mode));
    for (unsigned a = 0; a < 17; ++a) {
      for (unsigned b = 0; b < 17; ++b) {
        for (unsigned c = 0; c < 17; ++c) {
          const unsigned from[] = {at(a, b, c), at(b, a, c), at(c, b, a), at(a, c, b), at(a, b, c)};
          ASSERT_EQ(turned[at(a, b, c)], cube[from[mode]]);
        }
      }
    }
    TransposeCube(turned.data(), static_cast<unsigned char>(mode));
    EXPECT_EQ(turned, cube);
  }
}

// Literal rows of random bytes and short codes, with a mode per cube; the checksum is that of the
// reordered cubes. The stored form is as large as the buffer allows, so output covers the input as
// closely as it can.
TEST(Decoder, DecodesWholeTablesInPlace) {
  std::mt19937 random(2);
  const ByteVector modes = {0, 1, 2, 3, 7, 2, 1};
  ByteVector decoded, codes;
  // Literal rows take 18 bytes for 17: constant ones must have made room before.
  for (unsigned row = 0; row < 7 * kCubeRows; ++row) {
    const bool literal = row >= 160 && row % 16 != 0;
    ByteVector bytes(17, static_cast<unsigned char>(random()));
    if (literal) {
      for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
      codes.push_back(0x80);
      Append(codes, bytes);
    } else {
      Append(codes, {0x01, bytes[0]});
    }
    Append(decoded, bytes);
  }
  for (unsigned cube = 0; cube < 7; ++cube) {
    TransposeCube(decoded.data() + cube * kCubeBytes, modes[cube]);
  }

  const ByteVector stored = CodedTable(ChecksumOf(decoded), modes, codes);
  ASSERT_LT(stored.size(), kSevenInkBytes);
  ByteVector buffer = AtEndOf(kSevenInkBytes, stored);
  EXPECT_EQ(Decode(buffer, stored.size()), ChecksumOf(decoded));
  EXPECT_EQ(buffer, decoded);
}

// Seventeen literal bytes for each stored eighteen: the output runs into bytes that were looked at
// but not used yet. They count as they were looked at.
TEST(Decoder, NeverReadsAgainWhatItHasLookedAt) {
  // 255 rows of one code put the write position right behind the read position.
  constexpr std::size_t kExpected = 17 * 20;
  const ByteVector literal = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};
  ByteVector codes = {0x0C, 17, 0x01, 77, 0x80};  // 18 rows of 0, one of 77s, one as it is
  Append(codes, literal);
  const ByteVector stored = CodedTable(0, {}, codes);
  ByteVector buffer = AtEndOf(kExpected, stored);
  Decode(buffer, stored.size());

  ByteVector expected(17 * 18, 0);
  Append(expected, ByteVector(17, 77));
  Append(expected, literal);
  EXPECT_EQ(buffer, expected);
}

TEST(Decoder, StopsAtDamage) {
  const struct {
    const char* what;
    ByteVector codes;
    std::size_t expected;
    unsigned rows;  // of nines
  } cases[] = {
      {"operand missing", {0x01, 9, 0x01}, 256, 1},
      {"repetition's operand missing", {0x0D, 3, 9, 9}, 256, 2},
      {"count missing", {0x01, 9, 0x0D}, 256, 1},
      {"literal cut", {0x01, 9, 0x80, 1, 2, 3}, 256, 1},
      {"row beyond the buffer", {0x0D, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9}, 17 * 4 + 16, 4},
  };
  for (const auto& c : cases) {
    const ByteVector rows(17 * c.rows, 9);
    const ByteVector stored = CodedTable(ChecksumOf(rows), {}, c.codes);
    ByteVector buffer = AtEndOf(c.expected, stored);
    EXPECT_EQ(Decode(buffer, stored.size()), ChecksumOf(rows)) << c.what;
    buffer.resize(rows.size());
    EXPECT_EQ(buffer, rows) << c.what;
  }

  // Sizes that hold no table.
  for (long stored : {-1L, 0L, 4L, 257L}) {
    ByteVector buffer(256, 3);
    EXPECT_EQ(DecodeColorTable(buffer.data(), buffer.size(), stored), 0u);
    EXPECT_EQ(buffer, ByteVector(256, 3));
  }
}

// More mode bytes than the first 32 stored bytes hold, or fewer than there are cubes, and cubes
// that the rows without bytes push out of the buffer: nothing is read or written outside.
TEST(Decoder, KeepsCubesItHasNoModeFor) {
  ByteVector codes, kept;
  for (unsigned row = 0; row < kCubeRows; ++row) {
    Append(codes, {0x10, 0, 0xFF, 0xFF});
    Append(kept, Row(0, std::vector(16, 1)));
  }

  // Without mode bytes the first row code stands where the mode of cube 0 is read: 0x10, no mode.
  const ByteVector stored = CodedTable(ChecksumOf(kept), {}, codes);
  ByteVector buffer = AtEndOf(kSevenInkBytes, stored);
  EXPECT_EQ(Decode(buffer, stored.size()), ChecksumOf(kept));

  // The first row code is the mode: 0x01 exchanges the first two axes, which changes constant rows.
  ByteVector constants, turned;
  for (unsigned row = 0; row < kCubeRows; ++row) {
    const auto value = static_cast<unsigned char>(row);
    Append(constants, {0x01, value});
    Append(turned, ByteVector(17, value));
  }
  TransposeCube(turned.data(), 1);
  const ByteVector storedConstants = CodedTable(ChecksumOf(turned), {}, constants);
  ByteVector second = AtEndOf(kSevenInkBytes, storedConstants);
  EXPECT_EQ(Decode(second, storedConstants.size()), ChecksumOf(turned));

  // 40 cubes of rows without bytes, with 40 modes.
  ByteVector empty;
  for (unsigned i = 0; i < 40 * kCubeRows / 256 + 1; ++i) Append(empty, {0x9C, 255});
  const ByteVector storedEmpty = CodedTable(0, ByteVector(40, 1), empty);
  ByteVector third = AtEndOf(kSevenInkBytes, storedEmpty);
  EXPECT_EQ(Decode(third, storedEmpty.size()), 0u);
}

}  // namespace
}  // namespace corvane
