// SPDX-License-Identifier: MIT
#include <fmt/format.h>
#include <png.h>

#include <algorithm>
#include <cmath>

#include "app/drawing/drawing.h"
#include "app/drawing/font.h"
#include "app/support/failure.h"
#include "app/support/limits.h"

namespace corvane {
namespace {

// Of the font, in text sizes: steps of its grid, the pen, and the gap between two glyphs.
constexpr double kGridX = 0.1;
constexpr double kGridY = 0.12;
constexpr double kPen = 0.09;
constexpr double kBoldPen = 0.135;
constexpr double kGlyphGap = 0.17;

double PixelsOf(double units, int scale) { return units * scale; }

// How much of the pixel from `at` to `at` + 1 lies between `from` and `to`.
double Overlap(int at, double from, double to) {
  return std::max(0.0, std::min(to, at + 1.0) - std::max(from, static_cast<double>(at)));
}

double DistanceToSegment(double x, double y, double x0, double y0, double x1, double y1) {
  const double dx = x1 - x0;
  const double dy = y1 - y0;
  const double length = dx * dx + dy * dy;
  const double along = length == 0 ? 0 : ((x - x0) * dx + (y - y0) * dy) / length;
  const double t = std::clamp(along, 0.0, 1.0);
  return std::hypot(x - (x0 + t * dx), y - (y0 + t * dy));
}

class Painter {
 public:
  Painter(const Drawing& drawing, int scale)
      : scale_(scale),
        width_(static_cast<int>(std::ceil(PixelsOf(drawing.Width(), scale)))),
        height_(static_cast<int>(std::ceil(PixelsOf(drawing.Height(), scale)))) {
    if (width_ > limits::kDrawingSide || height_ > limits::kDrawingSide) {
      throw Failure(fmt::format("a picture of {} x {} pixels is too large", width_, height_));
    }
    pixels_.assign(static_cast<std::size_t>(width_) * height_ * 3, 0xFF);
  }

  void Paint(const DrawRect& rect) {
    const double left = PixelsOf(rect.box.x, scale_);
    const double right = PixelsOf(rect.box.Right(), scale_);
    const double top = PixelsOf(rect.box.y, scale_);
    const double bottom = PixelsOf(rect.box.Bottom(), scale_);
    ForPixels(left, top, right, bottom, [&](int x, int y) {
      Blend(x, y, rect.fill, Overlap(x, left, right) * Overlap(y, top, bottom));
    });
  }

  void Paint(const DrawText& text) {
    const double size = PixelsOf(text.size, scale_);
    double x = PixelsOf(text.x, scale_);
    if (text.anchor != TextAnchor::Start) {
      x -= LengthOf(text) * size * (text.anchor == TextAnchor::End ? 1 : 0.5);
    }
    const double top = PixelsOf(text.y, scale_) - 6 * kGridY * size;
    for (const char character : text.text) {
      const FontGlyph& glyph = GlyphOf(character);
      PaintGlyph(glyph, x, top, size, text);
      x += (glyph.width * kGridX + kGlyphGap) * size;
    }
  }

  std::string Encode() const {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width_);
    image.height = static_cast<png_uint_32>(height_);
    image.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::string bytes(size, '\0');
    if (png_image_write_to_memory(&image, bytes.data(), &size, 0, pixels_.data(), 0, nullptr) ==
        0) {
      throw Failure(fmt::format("the picture cannot be coded: {}", image.message));
    }
    bytes.resize(size);
    return bytes;
  }

 private:
  // In text sizes, without the gap after the last glyph.
  static double LengthOf(const DrawText& text) {
    double length = -kGlyphGap;
    for (const char character : text.text) {
      length += GlyphOf(character).width * kGridX + kGlyphGap;
    }
    return std::max(length, 0.0);
  }

  template <typename Visit>
  void ForPixels(double left, double top, double right, double bottom, Visit visit) {
    const int firstX = std::max(0, static_cast<int>(std::floor(left)));
    const int firstY = std::max(0, static_cast<int>(std::floor(top)));
    const int endX = std::min(width_, static_cast<int>(std::ceil(right)));
    const int endY = std::min(height_, static_cast<int>(std::ceil(bottom)));
    for (int y = firstY; y < endY; ++y) {
      for (int x = firstX; x < endX; ++x) visit(x, y);
    }
  }

  // A pixel takes the nearest stroke's cover, so that joints are not darker than strokes.
  void PaintGlyph(const FontGlyph& glyph, double left, double top, double size,
                  const DrawText& text) {
    if (glyph.strokes.empty()) return;
    const double radius = size * (text.bold ? kBoldPen : kPen) / 2;
    const double stepX = kGridX * size;
    const double stepY = kGridY * size;
    ForPixels(left - radius - 1, top - radius - 1, left + glyph.width * stepX + radius + 1,
              top + 8 * stepY + radius + 1, [&](int x, int y) {
                double nearest = 1e9;
                for (const FontStroke& s : glyph.strokes) {
                  const double distance =
                      DistanceToSegment(x + 0.5, y + 0.5, left + s.x0 * stepX, top + s.y0 * stepY,
                                        left + s.x1 * stepX, top + s.y1 * stepY);
                  nearest = std::min(nearest, distance);
                }
                Blend(x, y, text.color, std::clamp(radius + 0.5 - nearest, 0.0, 1.0));
              });
  }

  void Blend(int x, int y, const DrawColor& color, double cover) {
    const double weight = cover * color.opacity;
    if (weight <= 0) return;
    std::uint8_t* pixel = &pixels_[(static_cast<std::size_t>(y) * width_ + x) * 3];
    const std::uint8_t channels[] = {color.red, color.green, color.blue};
    for (int i = 0; i < 3; ++i) {
      pixel[i] =
          static_cast<std::uint8_t>(std::lround(pixel[i] + (channels[i] - pixel[i]) * weight));
    }
  }

  int scale_;
  int width_;
  int height_;
  std::vector<std::uint8_t> pixels_;
};

}  // namespace

std::string ToPng(const Drawing& drawing, int scale) {
  Painter painter(drawing, scale);
  for (const auto& shape : drawing.Shapes()) {
    std::visit([&](const auto& drawn) { painter.Paint(drawn); }, shape);
  }
  return painter.Encode();
}

}  // namespace corvane
