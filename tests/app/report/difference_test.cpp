// SPDX-License-Identifier: MIT
#include "app/report/difference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "tests/app/commands/run_corvane.h"
#include "tests/app/report/test_prints.h"

namespace corvane {
namespace {

using testing::HasSubstr;

PrintComparison Compare(const std::string& first, const std::string& second) {
  SeparationReader a(first), b(second);
  return ComparePrints(a, b, DefaultInkData(), 0);
}

bool Texture(std::size_t plane, std::uint32_t x, std::uint32_t y) { return Strewn(plane, x, y, 5); }

// Widths that end within a byte, planes of two widths and inks of two planes.
TEST(PrintComparison, FindsOneDotInAnyPlane) {
  struct Form {
    int mode, alternateMode;
    std::uint32_t width;
  };
  for (const Form& form : {Form{54, 0, 61}, Form{54, 2, 61}, Form{109, 0, 61}, Form{7, 0, 31}}) {
    const std::string first = Temporary("a.tif"), second = Temporary("b.tif");
    const PageShape page =
        WritePrint(first, form.mode, form.alternateMode, form.width, 40, Texture);
    double finest = 0;
    for (const PlaneShape& plane : page.planes) finest = std::max(finest, plane.horizontalDpi);
    for (std::size_t changed = 0; changed < page.planes.size(); ++changed) {
      SCOPED_TRACE(testing::Message() << form.mode << ' ' << page.planes[changed].name);
      const PlaneShape& plane = page.planes[changed];
      const std::uint32_t x = plane.width - 1,
                          y = page.rows - 1 - static_cast<std::uint32_t>(changed);
      WritePrint(second, form.mode, form.alternateMode, form.width, 40,
                 [&](std::size_t at, std::uint32_t column, std::uint32_t row) {
                   return Texture(at, column, row) != (at == changed && column == x && row == y);
                 });
      const PrintComparison found = Compare(first, second);
      EXPECT_EQ(found.rowsThatDiffer, 1u);
      ASSERT_EQ(found.regions.size(), 1u);
      const DifferentRegion& region = found.regions[0];
      const bool added = !Texture(changed, x, y);
      const auto ink = static_cast<std::size_t>(plane.ink);
      EXPECT_EQ(region.change.Drops(), 1u << plane.bit);
      EXPECT_EQ((added ? region.change.more : region.change.fewer)[ink], 1u << plane.bit);
      EXPECT_EQ(region.top, y);
      EXPECT_EQ(region.bottom, y);
      EXPECT_LE(region.left * plane.horizontalDpi / finest, x);
      EXPECT_GE(region.right * plane.horizontalDpi / finest, x);
      EXPECT_NEAR(region.window.width, 1 / plane.horizontalDpi, 1e-9);
      EXPECT_GT(region.mostDifference, 0);
    }
  }
}

TEST(PrintComparison, TellsPlacesApartAndTheirColours) {
  const std::string first = Temporary("a.tif"), second = Temporary("b.tif");
  const auto blank = [](std::size_t, std::uint32_t, std::uint32_t) { return false; };
  const PageShape page = WritePrint(first, 12, 0, 600, 600, blank);
  // A solid of black, and far from it a thin tint of light cyan.
  WritePrint(second, 12, 0, 600, 600, [&](std::size_t plane, std::uint32_t x, std::uint32_t y) {
    if (page.planes[plane].ink == Ink::K) return x >= 120 && x < 168 && y >= 60 && y < 84;
    return page.planes[plane].ink == Ink::c && x >= 480 && y >= 480 && (x + y) % 8 == 0;
  });
  const PrintComparison found = Compare(first, second);
  ASSERT_EQ(found.regions.size(), 2u);
  const DifferentRegion& tint = found.regions[0];
  const DifferentRegion& solid = found.regions[1];
  EXPECT_EQ(tint.change.more[static_cast<std::size_t>(Ink::c)], 120u * 120 / 8);
  EXPECT_EQ(solid.change.more[static_cast<std::size_t>(Ink::K)], 48u * 24);
  EXPECT_EQ(solid.left, 120u);
  EXPECT_EQ(solid.right, 167u);
  EXPECT_EQ(solid.top, 60u);
  EXPECT_EQ(solid.bottom, 83u);
  EXPECT_GT(solid.mostDifference, 40);
  EXPECT_GT(tint.mostDifference, 0.5);
  EXPECT_LT(tint.mostDifference, 15);
  // The other way round the drops are missing.
  const PrintComparison back = Compare(second, first);
  EXPECT_EQ(back.change.fewer, found.change.more);
  EXPECT_DOUBLE_EQ(back.regions[1].mostDifference, solid.mostDifference);
}

TEST(Compare, EndsWithAStatusThatTellsDifferencesFromFaults) {
  const std::string first = Temporary("a.tif"), second = Temporary("b.tif"),
                    other = Temporary("c.tif");
  WritePrint(first, 54, 1, 60, 40, Texture);
  WritePrint(second, 54, 1, 60, 40, Texture);
  WritePrint(other, 12, 0, 60, 40, Texture);
  EXPECT_THAT(Output({"compare", first, second}, 0), HasSubstr("are equal"));
  EXPECT_THAT(Output({"compare", first, other}, 1), HasSubstr("print mode 54 and 12"));
  EXPECT_EQ(Output({"compare", "-q", first, other}, 1), "");
  EXPECT_THROW(RunCorvane({"compare", first, Temporary("missing.tif")}), UsageFailure);
  EXPECT_THAT(Complaint({"compare", first, Temporary("missing.tif")}), HasSubstr("missing.tif"));

  WritePrint(second, 54, 1, 60, 40, [](std::size_t plane, std::uint32_t x, std::uint32_t y) {
    return Texture(plane, x, y) != (plane == 3 && x == 7 && y == 9);
  });
  EXPECT_THAT(Output({"compare", first, second}, 1), HasSubstr("rows 9-9"));
  EXPECT_THAT(Output({"compare", "--json", first, second}, 1), HasSubstr("\"rowsThatDiffer\": 1"));

  const std::string page = Temporary("page.html");
  Output({"compare", first, second, "-o", page}, 1);
  std::ifstream stream(page);
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  EXPECT_THAT(text, HasSubstr("<td>9-9</td><td>m "));
  EXPECT_THAT(text, HasSubstr("difference 1"));
}

}  // namespace
}  // namespace corvane
