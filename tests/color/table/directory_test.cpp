// SPDX-License-Identifier: MIT
#include "color/table/directory.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane {
namespace {

std::vector<unsigned char> BytesOf(const std::vector<std::uint32_t>& numbers) {
  std::vector<unsigned char> bytes;
  for (std::uint32_t number : numbers) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<unsigned char>(number >> 8 * i));
  }
  return bytes;
}

// Extents (2, 6, 2, 4, 2); table L has offset 1000 + L and size 5000 + L.
std::vector<unsigned char> Directory() {
  std::vector<std::uint32_t> numbers = {5, 2, 6, 2, 4, 2};
  for (std::uint32_t base : {1000u, 5000u}) {
    for (std::uint32_t table = 0; table < 192; ++table) numbers.push_back(base + table);
  }
  return BytesOf(numbers);
}

TEST(TableDirectory, FindsTheTableOfFiveIndices) {
  const struct {
    std::uint32_t indices[5];
    LookupResult result;
    std::uint32_t table;
  } cases[] = {
      {{0, 0, 0, 0, 0}, LookupResult::Found, 0},
      {{0, 0, 0, 0, 1}, LookupResult::Found, 1},
      {{1, 0, 0, 0, 0}, LookupResult::Found, 96},
      {{1, 5, 1, 3, 1}, LookupResult::Found, 191},
      {{0, 2, 1, 3, 0}, LookupResult::Found, 2 * 16 + 8 + 6},
      {{2, 0, 0, 0, 0}, LookupResult::IndexOutOfRange, 0},
      {{0, 0, 0, 0, 2}, LookupResult::IndexOutOfRange, 0},
      {{0, 0xFFFFFFFF, 0, 0, 0}, LookupResult::IndexOutOfRange, 0},
  };
  const std::vector<unsigned char> bytes = Directory();
  const TableDirectory directory(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  for (const auto& c : cases) {
    std::uint64_t table = 777;
    EXPECT_EQ(ktColorGetTable2(directory, c.indices, 5, &table), c.result);
    EXPECT_EQ(table, c.result == LookupResult::Found ? c.table : 777);
  }
  EXPECT_EQ(directory.Offset(191), 1191u);
  EXPECT_EQ(directory.StoredSize(96), 5096u);

  std::uint64_t table = 777;
  const std::uint32_t indices[4] = {};
  EXPECT_EQ(ktColorGetTable2(directory, indices, 4, &table), LookupResult::WrongIndexCount);
  EXPECT_EQ(table, 777u);
}

TEST(TableDirectory, KnowsAnIncompleteDirectory) {
  const std::vector<unsigned char> whole = Directory();
  const auto size = static_cast<std::uint32_t>(whole.size());
  EXPECT_TRUE(TableDirectory(whole.data(), size).IsComplete());
  EXPECT_FALSE(TableDirectory(whole.data(), size - 1).IsComplete());
  EXPECT_FALSE(TableDirectory(whole.data(), 20).IsComplete());
  EXPECT_FALSE(TableDirectory(whole.data(), 3).IsComplete());

  // Products that wrap around 32 or 64 bits, an index count beyond all memory, no tables at all.
  for (const std::vector<std::uint32_t>& numbers :
       std::vector<std::vector<std::uint32_t>>{{5, 65536, 65536, 1, 1, 1},
                                               {4, 0x80000000, 0x80000000, 4, 1},
                                               {5, 0x40000000, 2, 2, 1, 1, 0, 0},
                                               {0xFFFFFFFF}}) {
    const std::vector<unsigned char> bytes = BytesOf(numbers);
    EXPECT_FALSE(
        TableDirectory(bytes.data(), static_cast<std::uint32_t>(bytes.size())).IsComplete());
  }
}

}  // namespace
}  // namespace corvane
