// SPDX-License-Identifier: MIT
#include "app/drawing/drawing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include "app/support/markup.h"

namespace corvane {
namespace {

std::string Fill(const DrawColor& color) {
  std::string fill =
      fmt::format("fill=\"#{:02x}{:02x}{:02x}\"", color.red, color.green, color.blue);
  if (color.opacity < 1) fill += fmt::format(" fill-opacity=\"{:.3g}\"", color.opacity);
  return fill;
}

std::string Element(const DrawRect& rect) {
  const DrawBox& box = rect.box;
  return fmt::format("<rect x=\"{:.6g}\" y=\"{:.6g}\" width=\"{:.6g}\" height=\"{:.6g}\" {}/>\n",
                     box.x, box.y, box.width, box.height, Fill(rect.fill));
}

std::string Element(const DrawText& text) {
  static constexpr const char* kAnchors[] = {"start", "middle", "end"};
  return fmt::format(
      "<text x=\"{:.6g}\" y=\"{:.6g}\" font-size=\"{:.6g}\" text-anchor=\"{}\"{} {}>{}"
      "</text>\n",
      text.x, text.y, text.size, kAnchors[static_cast<int>(text.anchor)],
      text.bold ? " font-weight=\"bold\"" : "", Fill(text.color), MarkupText(text.text));
}

}  // namespace

DrawColor DrawColorOf(double red, double green, double blue) {
  const auto byte = [](double value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 1.0) * 255));
  };
  return {byte(red), byte(green), byte(blue)};
}

void Drawing::Frame(const DrawBox& box, DrawColor color, double lineWidth) {
  Rect({box.x, box.y, box.width, lineWidth}, color);
  Rect({box.x, box.Bottom() - lineWidth, box.width, lineWidth}, color);
  const double inner = box.height - 2 * lineWidth;
  Rect({box.x, box.y + lineWidth, lineWidth, inner}, color);
  Rect({box.Right() - lineWidth, box.y + lineWidth, lineWidth, inner}, color);
}

void Drawing::DashedHorizontal(double x, double y, double length, DrawColor color) {
  constexpr double kDash = 6;
  constexpr double kGap = 4;
  for (double at = 0; at < length; at += kDash + kGap) {
    Rect({x + at, y - 0.5, std::min(kDash, length - at), 1}, color);
  }
}

std::string ToSvg(const Drawing& drawing) {
  std::string svg = fmt::format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0:.6g}\" height=\"{1:.6g}\" "
      "viewBox=\"0 0 {0:.6g} {1:.6g}\" font-family=\"Helvetica, Arial, sans-serif\">\n",
      drawing.Width(), drawing.Height());
  for (const auto& shape : drawing.Shapes()) {
    svg += std::visit([](const auto& drawn) { return Element(drawn); }, shape);
  }
  return svg + "</svg>\n";
}

}  // namespace corvane
