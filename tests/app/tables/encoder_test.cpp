// SPDX-License-Identifier: MIT
#include "app/tables/encoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>

#include "app/tables/stored_table.h"
#include "color/table/decoder.h"

namespace corvane {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::mt19937 g_random(1);
unsigned Random(unsigned limit) { return g_random() % limit; }

// Decodes as the colour element does: the stored bytes lie at the end of the table's buffer.
Bytes Decode(const Bytes& stored, std::size_t size, unsigned long* result) {
  Bytes buffer(size, 0xAA);
  std::copy(stored.rbegin(), stored.rend(), buffer.rbegin());
  *result = DecodeColorTable(buffer.data(), size, static_cast<long>(stored.size()));
  return buffer;
}

void ExpectComesBack(const Bytes& stored, const Bytes& table) {
  unsigned long result = 0;
  EXPECT_EQ(Decode(stored, table.size(), &result), table);
  const CodedTableInfo info = InspectCodedTable(stored);
  EXPECT_EQ(result, info.checksum);
  EXPECT_TRUE(info.complete);
  EXPECT_EQ(info.rows * kCubeEdge, table.size());
  EXPECT_EQ(info.emptyRows, 0u);
  EXPECT_NE(stored.size(), 128u);
  EXPECT_NE(stored.size(), 256u);
  EXPECT_LT(stored.size(), table.size());
}

// A cube of rows with steps of up to `bits` bits; `sign` -1, 1 or 0 for either.
Bytes CubeOfSteps(unsigned bits, int sign) {
  Bytes cube(kCubeBytes);
  for (std::size_t i = 0; i < cube.size(); ++i) {
    const std::size_t k = i % kCubeEdge;
    const unsigned step = k == 1 ? (1u << bits) - 1 : Random(1u << bits);
    // Both signs occur, so that neither of the unsigned codes fits.
    const bool minus = sign < 0 || (sign == 0 && (k == 2 || (k > 2 && Random(2) == 0)));
    cube[i] = k == 0 ? Random(256) : cube[i - 1] + (minus ? 0 - std::max(step, 1u) : step);
  }
  return cube;
}

Bytes CubeOf(const std::function<unsigned(std::size_t a, std::size_t b, std::size_t c)>& value) {
  Bytes cube(kCubeBytes);
  for (std::size_t i = 0; i < cube.size(); ++i) {
    cube[i] = value(i / kCubeRows, i / kCubeEdge % kCubeEdge, i % kCubeEdge);
  }
  return cube;
}

TEST(TableEncoder, EveryRowCodeTakesItsBytes) {
  struct Case {
    std::string name;
    Bytes cube;
    std::size_t rowBytes;
  };
  std::vector<Case> cases = {
      {"zero", Bytes(kCubeBytes), 0},
      {"constant", CubeOf([value = 0u](auto, auto, auto c) mutable {
         return c == 0 ? value = 1 + Random(255) : value;
       }),
       1},
      {"offsets", CubeOf([base = 0u](auto, auto, auto c) mutable {
         if (c == 0) base = Random(129);
         return base + (c < 2 ? 127 * c : Random(128));
       }),
       16},
      {"literal", CubeOf([](auto, auto, auto) { return Random(256); }), 17},
  };
  for (unsigned bits = 1; bits <= 7; ++bits) {
    cases.push_back({"plus " + std::to_string(bits), CubeOfSteps(bits, 1), 1 + 2 * bits});
    cases.push_back({"minus " + std::to_string(bits), CubeOfSteps(bits, -1), 1 + 2 * bits});
    if (bits < 7) {
      cases.push_back({"signed " + std::to_string(bits), CubeOfSteps(bits, 0), 3 + 2 * bits});
    }
  }
  for (const auto& [name, cube, rowBytes] : cases) {
    SCOPED_TRACE(name);
    // A cube of zeros in front leaves room for rows that take more than their own 17 bytes.
    Bytes table(kCubeBytes);
    table.insert(table.end(), cube.begin(), cube.end());
    const auto stored = EncodeColorTable(table);
    ASSERT_TRUE(stored);
    ExpectComesBack(*stored, table);
    const std::size_t runs = name == "zero" ? 3 : 2 + 2;  // of at most 256 rows
    EXPECT_LE(stored->size(), 5 + 2 + 2 * runs + kCubeRows * rowBytes);
    EXPECT_GE(stored->size(), 5 + 2 + kCubeRows * rowBytes);
  }
}

TEST(TableEncoder, TablesComeBack) {
  const std::pair<const char*, std::function<unsigned(std::size_t, std::size_t, std::size_t)>>
      cubes[] = {
          {"ramp of the first axis", [](auto a, auto, auto) { return a * 15; }},
          {"ramp of the second axis", [](auto, auto b, auto) { return b * 15; }},
          {"ramp of the third axis", [](auto, auto, auto c) { return c * 15; }},
          {"smooth", [](auto a, auto b, auto c) { return (a * a + b * c + 3 * c) / 3; }},
          {"wrapping", [](auto a, auto b, auto c) { return a * 77 + b * 130 + c * 201; }},
          {"speckled", [](auto a, auto, auto) { return Random(300) ? a : Random(256); }},
          {"noisy", [](auto a, auto b, auto c) { return 5 * (a + b + c) + Random(9); }},
          {"half noise", [](auto a, auto, auto) { return a < 9 ? 0 : Random(256); }},
      };
  for (const auto& [name, value] : cubes) {
    for (const std::size_t planes : {7, 9}) {
      SCOPED_TRACE(name);
      Bytes table;
      for (std::size_t plane = 0; plane < planes; ++plane) {
        const Bytes cube = CubeOf(value);
        table.insert(table.end(), cube.begin(), cube.end());
      }
      const auto stored = EncodeColorTable(table);
      ASSERT_TRUE(stored);
      ExpectComesBack(*stored, table);
    }
  }
}

TEST(TableEncoder, TurnsACubeTowardsItsShorterCodes) {
  const Bytes cube = CubeOf([](auto a, auto b, auto) { return a * 31 % 256 + b; });
  for (unsigned char mode = 1; mode <= 3; ++mode) {
    Bytes turned = cube;
    TransposeCube(turned.data(), mode);
    EXPECT_EQ(EncodeColorTable(turned)->size(), EncodeColorTable(cube)->size()) << int{mode};
  }
}

// Rows of one byte each move the size through all values around the two that mean another form.
TEST(TableEncoder, AvoidsTheSizesOfOtherForms) {
  for (std::size_t rows = 90; rows < 250; ++rows) {
    Bytes table(2 * kCubeBytes);
    for (std::size_t i = 0; i < rows * kCubeEdge; ++i) table[i] = 1 + i / kCubeEdge * 37 % 251;
    const auto stored = EncodeColorTable(table);
    ASSERT_TRUE(stored);
    ExpectComesBack(*stored, table);
  }
}

TEST(TableEncoder, RefusesTablesThatNoFileCanHold) {
  Bytes noise(9 * kCubeBytes);
  std::generate(noise.begin(), noise.end(), [] { return Random(256); });
  EXPECT_FALSE(EncodeColorTable(noise));

  // Small enough as a whole, but the noise at the end would be overwritten before it is read. Where
  // the noise is short enough it is not.
  for (const std::size_t zeroRows : {200, 500, 1000, 2000}) {
    Bytes table = noise;
    std::fill_n(table.begin(), zeroRows * kCubeEdge, 0);
    const auto stored = EncodeColorTable(table);
    EXPECT_EQ(stored.has_value(), zeroRows >= 1000) << zeroRows;
    if (stored) ExpectComesBack(*stored, table);
  }
}

TEST(TableEncoder, BlackCurves) {
  const struct {
    const char* name;
    std::function<unsigned(unsigned)> value;
    std::size_t size;
  } cases[] = {
      {"linear", [](unsigned i) { return i; }, 128},
      {"steps of 15", [](unsigned i) { return i * 15; }, 128},
      {"starts at 15", [](unsigned i) { return 15 + i / 2; }, 128},
      {"starts at 16", [](unsigned i) { return 16 + i / 2; }, 256},
      {"falls", [](unsigned i) { return 255 - i; }, 256},
      {"a step of 16", [](unsigned i) { return i < 100 ? 0 : 16; }, 256},
  };
  for (const auto& [name, value, size] : cases) {
    SCOPED_TRACE(name);
    Bytes curve(kBlackCurveBytes);
    for (unsigned i = 0; i < curve.size(); ++i) curve[i] = value(i);
    const Bytes stored = EncodeBlackCurve(std::span<const std::uint8_t, kBlackCurveBytes>(curve));
    EXPECT_EQ(stored.size(), size);
    unsigned long ignored = 0;
    EXPECT_EQ(Decode(stored, curve.size(), &ignored), curve);
  }
}

}  // namespace
}  // namespace corvane
