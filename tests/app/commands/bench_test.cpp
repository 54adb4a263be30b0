// SPDX-License-Identifier: MIT
#include "app/commands/bench.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "app/page/sample_rows.h"

namespace corvane {
namespace {

TEST(Bench, MeasuresBothPathsOfAModesKernelsAndPage) {
  testing::internal::CaptureStdout();
  RunBench({.mode = "5", .json = true});
  const auto report = nlohmann::json::parse(testing::internal::GetCapturedStdout());
  ASSERT_THAT(report["kernels"], testing::SizeIs(1));
  EXPECT_EQ(report["kernels"][0]["kernel"], "K2QDSD_100");
  ASSERT_THAT(report["pages"], testing::SizeIs(1));
  for (const char* table : {"kernels", "pages"}) {
    for (const char* content : {"photo", "text"}) {
      const nlohmann::json& seconds = report[table][0][content];
      EXPECT_GT(seconds["fastSeconds"], 0) << table << ' ' << content;
      EXPECT_GT(seconds["plainSeconds"], 0) << table << ' ' << content;
    }
  }
}

TEST(SampleRows, AreLikeAPhotographAndLikeText) {
  constexpr std::uint32_t kWidth = 4000;
  const std::vector<std::uint8_t> photo = SampleRow(SampleContent::Photo, kWidth, 3);
  EXPECT_EQ(photo, SampleRow(SampleContent::Photo, kWidth, 3));
  EXPECT_GT(std::set<std::uint8_t>(photo.begin(), photo.end()).size(), 150u);

  std::size_t black = 0, white = 0, bytes = 0;
  for (std::uint32_t y = 0; y < 160; ++y) {
    const std::vector<std::uint8_t> text = SampleRow(SampleContent::Text, kWidth, y);
    black += static_cast<std::size_t>(std::ranges::count(text, 0));
    white += static_cast<std::size_t>(std::ranges::count(text, 255));
    bytes += text.size();
  }
  EXPECT_EQ(black + white, bytes);
  EXPECT_NEAR(static_cast<double>(black) / static_cast<double>(bytes), 0.1, 0.05);
}

}  // namespace
}  // namespace corvane
