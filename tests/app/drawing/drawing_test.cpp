// SPDX-License-Identifier: MIT
#include "app/drawing/drawing.h"

#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "app/drawing/font.h"
#include "app/support/failure.h"

namespace corvane {
namespace {

struct Image {
  unsigned width, height;
  std::vector<std::uint8_t> rgb;

  int Red(unsigned x, unsigned y) const { return rgb[(y * width + x) * 3]; }
};

Image Decode(const std::string& png) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  EXPECT_NE(png_image_begin_read_from_memory(&image, png.data(), png.size()), 0);
  image.format = PNG_FORMAT_RGB;
  Image decoded{image.width, image.height, std::vector<std::uint8_t>(PNG_IMAGE_SIZE(image))};
  EXPECT_NE(png_image_finish_read(&image, nullptr, decoded.rgb.data(), 0, nullptr), 0);
  return decoded;
}

TEST(Drawing, PaintsRectanglesWithTheirCover) {
  Drawing drawing(10, 5);
  drawing.Rect({1, 1, 2, 2}, {0, 0, 0});
  drawing.Rect({5, 1, 1.25, 1}, {0, 0, 0});     // half a pixel at the right
  drawing.Rect({8, 1, 1, 1}, {0, 0, 0, 0.25});  // a quarter dark
  drawing.Rect({-5, 4, 100, 9}, {0, 0, 0});     // beyond the edges
  const Image image = Decode(ToPng(drawing, 2));
  ASSERT_EQ(image.width, 20u);
  ASSERT_EQ(image.height, 10u);
  EXPECT_EQ(image.Red(1, 2), 255);
  EXPECT_EQ(image.Red(2, 2), 0);
  EXPECT_EQ(image.Red(5, 5), 0);
  EXPECT_EQ(image.Red(6, 5), 255);
  EXPECT_EQ(image.Red(11, 2), 0);
  EXPECT_NEAR(image.Red(12, 2), 128, 1);
  EXPECT_EQ(image.Red(13, 2), 255);
  EXPECT_NEAR(image.Red(16, 3), 191, 1);
  EXPECT_EQ(image.Red(0, 7), 255);
  EXPECT_EQ(image.Red(19, 9), 0);
  EXPECT_THROW(ToPng(drawing, 5000), Failure);
}

// Where the ink of a text lies: its first and last dark column.
std::pair<int, int> InkColumns(TextAnchor anchor) {
  Drawing drawing(100, 30);
  drawing.Text({50, 20, 20, anchor, false, {}, "HIH"});
  const Image image = Decode(ToPng(drawing, 1));
  std::pair<int, int> columns{1000, -1};
  for (int x = 0; x < 100; ++x) {
    for (int y = 0; y < 30; ++y) {
      if (image.Red(x, y) > 100) continue;
      columns = {std::min(columns.first, x), x};
    }
  }
  return columns;
}

TEST(Drawing, PaintsTextAtItsAnchor) {
  const auto start = InkColumns(TextAnchor::Start);
  const auto middle = InkColumns(TextAnchor::Middle);
  const auto end = InkColumns(TextAnchor::End);
  const int width = start.second - start.first;
  EXPECT_GT(width, 20);
  EXPECT_NEAR(start.first, 50, 1);
  EXPECT_NEAR((middle.first + middle.second) / 2, 50, 1);
  EXPECT_NEAR(end.second, 50, 1);
  EXPECT_NEAR(end.second - end.first, width, 1);
}

TEST(Drawing, EveryPrintableCharacterHasAGlyph) {
  for (char c = '!'; c <= '~'; ++c) {
    const FontGlyph& glyph = GlyphOf(c);
    EXPECT_FALSE(glyph.strokes.empty()) << c;
    for (const FontStroke& s : glyph.strokes) {
      EXPECT_TRUE(s.x0 >= 0 && s.x0 <= glyph.width && s.y1 <= 8) << c;
    }
  }
  EXPECT_EQ(&GlyphOf('\n'), &GlyphOf('?'));
  EXPECT_EQ(&GlyphOf('\xE9'), &GlyphOf('?'));
}

TEST(Drawing, SvgEscapesText) {
  Drawing drawing(10, 10);
  drawing.Text({1, 2, 3, TextAnchor::End, true, {1, 2, 3}, "a<b & \"c\"\n"});
  EXPECT_NE(ToSvg(drawing).find("text-anchor=\"end\" font-weight=\"bold\" fill=\"#010203\">"
                                "a&lt;b &amp; &quot;c&quot;?</text>"),
            std::string::npos);
}

}  // namespace
}  // namespace corvane
