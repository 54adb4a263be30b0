// SPDX-License-Identifier: MIT
#include "app/image/folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace corvane {
namespace {

TEST(Folder, OrdersNamesNaturally) {
  const std::vector<std::string> kNames = {
      "",   "01", "1",      "2",      "2a",      "10",
      "a",  "a1", "a2",     "a02b",   "a10",     "a99999999999999999999",
      "aa", "b",  "p1-s10", "p10-s2", "\xc3\xa4"};
  std::vector<std::string> names = kNames;
  std::mt19937 random(1);
  for (int i = 0; i < 20; ++i) {
    std::ranges::shuffle(names, random);
    std::ranges::sort(names, ComesBefore);
    EXPECT_EQ(names, kNames);
  }
}

}  // namespace
}  // namespace corvane
