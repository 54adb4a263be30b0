// SPDX-License-Identifier: MIT
//
// A flat drawing of rectangles and texts for reports, written as SVG or PNG.
//
// Lengths are in units of one SVG pixel, x to the right, y down. Shapes cover those before them.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace corvane {

struct DrawColor {
  std::uint8_t red = 0;
  std::uint8_t green = 0;
  std::uint8_t blue = 0;
  double opacity = 1;
};

// Of sRGB channels from 0 to 1, clipped to that.
DrawColor DrawColorOf(double red, double green, double blue);

struct DrawBox {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  double Right() const { return x + width; }
  double Bottom() const { return y + height; }
};

struct DrawRect {
  DrawBox box;
  DrawColor fill;
};

enum class TextAnchor { Start, Middle, End };

struct DrawText {
  double x = 0;  // of the anchor
  double y = 0;  // of the base line
  double size = 12;
  TextAnchor anchor = TextAnchor::Start;
  bool bold = false;
  DrawColor color;
  std::string text;  // printable ASCII; PNG shows anything else as a question mark
};

class Drawing {
 public:
  Drawing(double width, double height) : width_(width), height_(height) {}

  double Width() const { return width_; }
  double Height() const { return height_; }
  const std::vector<std::variant<DrawRect, DrawText>>& Shapes() const { return shapes_; }

  void Rect(const DrawBox& box, DrawColor fill) { shapes_.emplace_back(DrawRect{box, fill}); }
  void Text(DrawText text) { shapes_.emplace_back(std::move(text)); }
  // A frame of lines that lie inside the box.
  void Frame(const DrawBox& box, DrawColor color, double lineWidth = 1);
  // Dashes along a horizontal line from (x, y).
  void DashedHorizontal(double x, double y, double length, DrawColor color);

 private:
  double width_;
  double height_;
  std::vector<std::variant<DrawRect, DrawText>> shapes_;
};

std::string ToSvg(const Drawing& drawing);

// A PNG file of `scale` pixels a unit. Throws Failure when it would be larger than 20000 pixels a
// side.
std::string ToPng(const Drawing& drawing, int scale);

}  // namespace corvane
