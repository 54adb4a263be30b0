// SPDX-License-Identifier: MIT
#include "app/page/queue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <thread>

namespace corvane {
namespace {

// Of an input that gives one row and then nothing, the row is printed.
TEST(RowQueue, HandsOutARowThatNoneFollows) {
  RowQueue queue(3, true);
  ASSERT_TRUE(queue.Push(reinterpret_cast<const std::uint8_t*>("abc")));
  const RowQueue::Rows rows = queue.Pop();
  ASSERT_EQ(rows.count, 1u);
  EXPECT_EQ(std::memcmp(rows.data, "abc", 3), 0);
}

TEST(RowQueue, KeepsRowsInOrderAtAnySpeed) {
  constexpr std::uint32_t kRows = 200'000;
  RowQueue queue(sizeof(std::uint32_t), true);
  std::thread reader([&] {
    for (std::uint32_t i = 0; i < kRows; ++i) {
      if (i % 50'000 == 77) std::this_thread::sleep_for(std::chrono::milliseconds(8));
      queue.Push(reinterpret_cast<const std::uint8_t*>(&i));
    }
    queue.Close();
  });
  std::uint32_t expected = 0;
  for (RowQueue::Rows rows; (rows = queue.Pop()).count > 0;) {
    for (std::size_t i = 0; i < rows.count; ++i) {
      std::uint32_t got = 0;
      std::memcpy(&got, rows.data + i * sizeof got, sizeof got);
      EXPECT_EQ(got, expected++);
    }
  }
  EXPECT_EQ(expected, kRows);
  reader.join();
}

TEST(RowQueue, EndsBothSides) {
  RowQueue failing(1);
  failing.Close(std::make_exception_ptr(std::runtime_error("no more")));
  EXPECT_THROW(failing.Pop(), std::runtime_error);
  RowQueue given(1 << 20);
  given.GiveUp();
  const std::vector<std::uint8_t> row(1 << 20);
  EXPECT_FALSE(given.Push(row.data()));
}

}  // namespace
}  // namespace corvane
