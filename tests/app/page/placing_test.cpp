// SPDX-License-Identifier: MIT
#include "app/page/placing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/page/place.h"
#include "app/support/failure.h"
#include "tests/app/support/failure_of.h"

namespace corvane {
namespace {

using testing::HasSubstr;

// Ten pixels to the millimetre.
constexpr Sheet kSheet = {1000, 2000, 254, 254};

ImagePlacing Asked(const char* margins, const char* position, std::optional<double> scale) {
  return {scale, ParseMargins(margins), ParsePosition(position), 0};
}

TEST(Placing, KeepsTheMarginsBare) {
  const struct {
    const char *margins, *position;
    std::optional<double> scale;
    std::uint32_t left, top, width, height;
    double sourceLeft, sourceTop;
  } kCases[] = {
      {"10,20,10,30", "centre", {}, 100, 650, 800, 600, 0, 0},
      {"10,20,10,30", "top", {}, 100, 200, 800, 600, 0, 0},
      {"10,20,10,30", "bottom-right", 1.0, 500, 1400, 400, 300, 0, 0},
      {"10,20,10,30", "20,5", {}, 300, 250, 600, 450, 0, 0},
      {"10,20,10,30", "center", 4.0, 100, 350, 800, 1200, 100, 0},
      {"10,20,10,30", "top-left", 4.0, 100, 200, 800, 1200, 0, 0},
      {"10,20,10,30", "right", 4.0, 100, 350, 800, 1200, 200, 0},
      {"10,20,10,30", "bottom", 8.0, 100, 200, 800, 1500, 150, 112.5},
      {"0.01", "left", {}, 1, 625, 998, 749, 0, 0},  // a part of a pixel is one
      {"0", "10.04,0", 1.0, 100, 0, 400, 300, 0, 0},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(testing::Message() << test.margins << " " << test.position);
    const Placement placement =
        PlaceImage({400, 300, 254, 254}, kSheet, Asked(test.margins, test.position, test.scale));
    EXPECT_EQ(placement.left, test.left);
    EXPECT_EQ(placement.top, test.top);
    EXPECT_EQ(placement.width, test.width);
    EXPECT_EQ(placement.height, test.height);
    EXPECT_NEAR(placement.sourceLeft, test.sourceLeft, 0.3);
    EXPECT_NEAR(placement.sourceTop, test.sourceTop, 0.3);
  }
}

TEST(Placing, TurnsWhatGetsLarger) {
  const struct {
    std::uint32_t width, height;
    const char* margins;
    std::optional<double> scale;
    int degrees;
  } kCases[] = {
      {400, 300, "0", {}, 90},  {300, 400, "0", {}, 0},   {300, 300, "0", {}, 0},
      {400, 300, "0", 2.0, 0},  {400, 300, "0", 3.0, 90}, {300, 400, "0,90,0,90", {}, 90},
      {3000, 2999, "0", {}, 0},
  };
  for (const auto& test : kCases) {
    ImagePlacing placing = Asked(test.margins, "centre", test.scale);
    placing.degrees = ParseDegrees("auto");
    EXPECT_EQ(DegreesOf(placing, {test.width, test.height, 254, 254}, kSheet), test.degrees)
        << test.width << " x " << test.height << " within " << test.margins;
  }
}

TEST(Placing, RefusesWhatLeavesNothing) {
  for (const auto& [margins, position] : {std::pair("50,0,50,0", "centre"),
                                          {"0,0,0,200", "top"},
                                          {"0", "100,0"},
                                          {"60,0,30,0", "10,10"}}) {
    const Margins around = ParseMargins(margins);
    const Position at = ParsePosition(position);
    EXPECT_THAT(FailureOf([&] { AreaOn(kSheet, around, at); }),
                HasSubstr("leave nothing of the sheet, which is 100 x 200 mm"))
        << margins;
  }
}

TEST(Placing, TakesNoOtherWords) {
  for (const char* text : {"", "3,", ",3", "3,3", "3,3,3", "3,3,3,3,3", "-1", "nan", "inf", "3mm",
                           "1e9", "3 3", "Head"}) {
    EXPECT_THROW(ParseMargins(text), UsageFailure) << text;
  }
  for (const char* text : {"", "middle", "top left", "1", "1,2,3", "1,-2", "1,x", "1;2"}) {
    EXPECT_THROW(ParsePosition(text), UsageFailure) << text;
  }
  for (const char* text : {"", "45", "-90", "360", "90.0"}) {
    EXPECT_THROW(ParseDegrees(text), UsageFailure) << text;
  }
}

}  // namespace
}  // namespace corvane
