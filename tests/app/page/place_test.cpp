// SPDX-License-Identifier: MIT
#include "app/page/place.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "app/support/failure.h"

namespace corvane {
namespace {

// An image whose pixels are a function of their place; counts the rows that were read.
class DrawnRows : public RowSource {
 public:
  using Pixel = std::uint8_t (*)(std::uint32_t x, std::uint32_t y, std::size_t channel);

  DrawnRows(std::uint32_t width, std::uint32_t height, std::size_t channels, Pixel pixel)
      : RowSource(width, height, channels), pixel_(pixel) {}

  void ReadRow(std::uint8_t* row) override {
    ASSERT_LT(rowsRead, Height());
    for (std::uint32_t x = 0; x < Width(); ++x) {
      for (std::size_t c = 0; c < BytesPerPixel(); ++c) *row++ = pixel_(x, rowsRead, c);
    }
    ++rowsRead;
  }

  std::uint32_t rowsRead = 0;

 private:
  Pixel pixel_;
};

using Rows = std::vector<std::vector<std::uint8_t>>;

Rows Place(RowSource& image, const Placement& placement, const Sheet& sheet) {
  Rows rows;
  PlaceRows(image, placement, sheet, [&](const std::uint8_t* row) {
    rows.emplace_back(row, row + std::size_t{3} * sheet.width);
  });
  return rows;
}

std::uint8_t Ramp(std::uint32_t x, std::uint32_t y, std::size_t c) {
  return static_cast<std::uint8_t>(x + 2 * y + 3 * c);
}

TEST(PagePlace, SheetsHaveTheUsualPixels) {
  const struct {
    const char* paper;
    double horizontal, vertical;
    std::uint32_t width, height;
  } kCases[] = {{"A4", 600, 600, 4960, 7016},
                {"A4", 300, 600, 2480, 7016},
                {"Letter", 600, 600, 5100, 6600},
                {"A3", 1200, 1200, 14031, 19842},
                {"10x10mm", 600, 600, 236, 236}};
  for (const auto& test : kCases) {
    const Sheet sheet = MakeSheet(ParsePaperSize(test.paper), test.horizontal, test.vertical);
    EXPECT_EQ(sheet.width, test.width) << test.paper;
    EXPECT_EQ(sheet.height, test.height) << test.paper;
  }
}

TEST(PagePlace, FitsScalesAndCentres) {
  const Sheet sheet = {1000, 2000, 300, 600};  // twice as high as wide in pixels, as wide in inches
  constexpr double kThird = 1000.0 / 3;
  const struct {
    const char* name;
    ImageSize image;
    std::optional<double> scale;
    std::uint32_t left, top, width, height;
    double sourceLeft, sourceTop, sourceWidth, sourceHeight;
    bool sameSize;
  } kCases[] = {
      {"fits the width", {400, 200, 100, 100}, {}, 0, 500, 1000, 1000, 0, 0, 400, 200, false},
      {"fits the height", {200, 400, 0, 0}, {}, 250, 0, 500, 2000, 0, 0, 200, 400, false},
      {"natural size", {100, 100, 100, 100}, 1.0, 350, 700, 300, 600, 0, 0, 100, 100, false},
      {"the finer one if none", {200, 600, 0, 0}, 1.0, 450, 700, 100, 600, 0, 0, 200, 600, false},
      {"same pixels", {500, 1000, 300, 600}, 1.0, 250, 500, 500, 1000, 0, 0, 500, 1000, true},
      {"two pixels off", {1001, 1998, 300, 600}, {}, 0, 1, 1000, 1998, 0, 0, 1000, 1998, true},
      {"cut", {1000, 1000, 100, 100}, 1.0, 0, 0, 1000, 2000, kThird, kThird, kThird, kThird, false},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    const Placement placement = PlaceImage(test.image, sheet, {.scale = test.scale});
    EXPECT_EQ(placement.left, test.left);
    EXPECT_EQ(placement.top, test.top);
    EXPECT_EQ(placement.width, test.width);
    EXPECT_EQ(placement.height, test.height);
    EXPECT_NEAR(placement.sourceLeft, test.sourceLeft, 0.01);
    EXPECT_NEAR(placement.sourceTop, test.sourceTop, 0.01);
    EXPECT_NEAR(placement.sourceWidth, test.sourceWidth, 0.01);
    EXPECT_NEAR(placement.sourceHeight, test.sourceHeight, 0.01);
    EXPECT_EQ(placement.sameSize, test.sameSize);
  }
}

TEST(PagePlace, CopiesPixelsThatKeepTheirSize) {
  const Sheet sheet = {9, 8, 100, 100};
  DrawnRows image(5, 4, 3, Ramp);
  const Rows rows = Place(image, PlaceImage({5, 4, 100, 100}, sheet, {.scale = 1.0}), sheet);
  ASSERT_EQ(rows.size(), 8u);
  for (std::uint32_t y = 0; y < 8; ++y) {
    for (std::uint32_t x = 0; x < 9; ++x) {
      const bool inside = x >= 2 && x < 7 && y >= 2 && y < 6;
      for (std::size_t c = 0; c < 3; ++c) {
        EXPECT_EQ(rows[y][3 * x + c], inside ? Ramp(x - 2, y - 2, c) : 255) << x << ", " << y;
      }
    }
  }
}

TEST(PagePlace, ResamplesInRows) {
  const struct {
    std::uint32_t width, height;
    std::optional<double> scale;
  } kImages[] = {{40, 60, {}}, {700, 900, {}},   {123, 17, {}}, {300, 400, 2.5},
                 {1, 1, {}},   {3301, 5003, {}}, {2500, 30, {}}};
  const Sheet sheet = {301, 407, 100, 100};
  for (const auto& image : kImages) {
    SCOPED_TRACE(testing::Message() << image.width << " x " << image.height);
    const Placement placement =
        PlaceImage({image.width, image.height, 100, 100}, sheet, {.scale = image.scale});
    // A flat colour stays flat, channels do not mix, everything else is white.
    DrawnRows flat(image.width, image.height, 3, [](std::uint32_t, std::uint32_t, std::size_t c) {
      return static_cast<std::uint8_t>(50 + 60 * c);
    });
    const Rows rows = Place(flat, placement, sheet);
    ASSERT_EQ(rows.size(), sheet.height);
    for (std::uint32_t y = 0; y < sheet.height; ++y) {
      for (std::uint32_t x = 0; x < sheet.width; ++x) {
        const bool inside = x >= placement.left && x - placement.left < placement.width &&
                            y >= placement.top && y - placement.top < placement.height;
        for (std::size_t c = 0; c < 3; ++c) {
          ASSERT_EQ(rows[y][3 * x + c], inside ? 50 + 60 * c : 255) << x << ", " << y;
        }
      }
    }
  }
  // A ramp keeps its place: the middle of the sheet shows the middle of the image.
  DrawnRows ramp(200, 200, 3, [](std::uint32_t x, std::uint32_t y, std::size_t c) {
    return static_cast<std::uint8_t>(c == 0 ? x : c == 1 ? y : 0);
  });
  const Placement placement = PlaceImage({200, 200, 100, 100}, sheet, {});
  const Rows rows = Place(ramp, placement, sheet);
  for (std::uint32_t at = 20; at < 280; at += 20) {
    EXPECT_NEAR(rows[placement.top + 50][3 * at], (at + 0.5) * 200 / 301 - 0.5, 1);
    EXPECT_NEAR(rows[placement.top + at][3 * 150 + 1], (at + 0.5) * 200 / 301 - 0.5, 1);
  }
}

// An image that is much finer than the sheet is averaged first, and keeps its place too.
TEST(PagePlace, ShowsFineImagesWhereTheyAre) {
  const Sheet sheet = {61, 47, 100, 100};
  DrawnRows ramp(2501, 2003, 3, [](std::uint32_t x, std::uint32_t y, std::size_t c) {
    return static_cast<std::uint8_t>(c == 0 ? x / 10 : c == 1 ? y / 8 : (x + y) % 2 * 255);
  });
  const Placement placement = PlaceImage({2501, 2003, 100, 100}, sheet, {});
  const Rows rows = Place(ramp, placement, sheet);
  EXPECT_EQ(ramp.rowsRead, ramp.Height());
  for (std::uint32_t i = 3; i < 40; i += 9) {
    const std::uint8_t* pixel = &rows[i][3 * i];
    EXPECT_NEAR(pixel[0], (i - placement.left + 0.5) * 250.1 / placement.width - 0.5, 1) << i;
    EXPECT_NEAR(pixel[1], (i - placement.top + 0.5) * 250.4 / placement.height - 0.5, 1) << i;
    EXPECT_NEAR(pixel[2], 127.5, 1) << i;
  }
}

TEST(PagePlace, PassesOnWhatTheImageThrows) {
  class Broken : public RowSource {
   public:
    Broken() : RowSource(50, 50, 3) {}
    void ReadRow(std::uint8_t*) override { throw Failure("broken row"); }
  } image;
  const Sheet sheet = {100, 100, 100, 100};
  EXPECT_THROW(Place(image, PlaceImage({50, 50, 100, 100}, sheet, {}), sheet), Failure);
}

TEST(PagePlace, TagsLieUnderTheirPixels) {
  const Sheet sheet = {30, 40, 100, 100};
  // The left half of the image is tagged 7, the right half 9.
  const auto tag = [](std::uint32_t x, std::uint32_t, std::size_t) {
    return static_cast<std::uint8_t>(x < 5 ? 7 : 9);
  };
  for (const double scale : {0.5, 1.0, 2.0, 7.0}) {
    const Placement placement = PlaceImage({10, 10, 100, 100}, sheet, {.scale = scale});
    PlacedTags tags(std::make_unique<DrawnRows>(10u, 10u, std::size_t{1}, tag), placement, sheet);
    std::vector<std::uint8_t> row(sheet.width);
    for (std::uint32_t y = 0; y < sheet.height; ++y) {
      tags.ReadRow(row.data());
      const bool inside = y >= placement.top && y - placement.top < placement.height;
      EXPECT_EQ(row[13], inside ? 7 : 0) << scale << ", row " << y;
      EXPECT_EQ(row[15], inside ? 9 : 0) << scale << ", row " << y;
    }
  }
}

}  // namespace
}  // namespace corvane
