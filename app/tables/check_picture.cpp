// SPDX-License-Identifier: MIT
#include "app/tables/check_picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <optional>

namespace corvane {
namespace {

constexpr double kLeft = 20, kTop = 56;
constexpr int kCells = 56;  // of a picture, each way
constexpr double kCell = 4, kPicture = kCells * kCell, kGap = 16, kLabel = 16;
constexpr DrawColor kInk = {40, 40, 40}, kLine = {215, 215, 215};

DrawColor Shown(const Triple& srgb) { return DrawColorOf(srgb[0], srgb[1], srgb[2]); }

// Hue round the centre, black in it and white at the edge, fully saturated half-way.
std::optional<Srgb> HueCircle(double x, double y) {
  const double radius = std::hypot(x, y);
  if (radius > 1) return std::nullopt;
  const double hue = std::atan2(y, x) / std::numbers::pi * 3;
  Srgb srgb;
  for (int i = 0; i < 3; ++i) {
    double away = std::abs(std::remainder(hue - 2.0 * i, 6.0));
    const double pure = std::clamp(2.0 - away, 0.0, 1.0);
    srgb[i] = radius < 0.5 ? pure * 2 * radius : pure + (1 - pure) * (2 * radius - 1);
  }
  return srgb;
}

struct Plane {
  const char* name;
  std::function<std::optional<Srgb>(double x, double y)> colour;  // x and y from -1 to 1, y up
};

double Part(double x) { return (x + 1) / 2; }

class Sheet {
 public:
  Sheet(const IndexedTable& table, const PrintModel& model, const std::string& title)
      : response_(model),
        printed_(table.bytes, response_),
        drawing_(kLeft * 2 + 4 * kPicture + 3 * kGap, 1220) {
    drawing_.Rect({0, 0, drawing_.Width(), drawing_.Height()}, {255, 255, 255});
    Text(kLeft, 22, title, 14, true);
    Text(kLeft, 42, "each picture: left what is wanted, right what the model says is printed", 11);
  }

  Drawing Draw() {
    const Plane planes[] = {
        {"circle of hues: black, pure, white", HueCircle},
        {"red and green, no blue",
         [](double x, double y) {
           return Srgb{Part(x), Part(y), 0};
         }},
        {"red and blue, half green",
         [](double x, double y) {
           return Srgb{Part(x), 0.5, Part(y)};
         }},
        {"green and blue, no red",
         [](double x, double y) {
           return Srgb{0, Part(x), Part(y)};
         }},
        {"grey to blue, light to dark",
         [](double x, double y) {
           return Srgb{Part(y) * (1 - Part(x)), Part(y) * (1 - Part(x)), Part(y)};
         }},
        {"skin: light to dark, dull to vivid", [](double x, double y) {
           const double light = 0.25 + 0.7 * Part(y), vivid = 0.15 + 0.5 * Part(x);
           return Srgb{light, light * (1 - 0.55 * vivid), light * (1 - vivid)};
         }}};
    double x = kLeft, y = kTop;
    for (const Plane& plane : planes) {
      Pair(plane, x, y);
      x += 2 * kPicture + 2 * kGap;
      if (x + kPicture > drawing_.Width()) {
        x = kLeft;
        y += kPicture + kLabel + kGap;
      }
    }
    Ramps(y);
    Neutrals(y + 150);
    return std::move(drawing_);
  }

 private:
  void Text(double x, double y, std::string text, double size = 11, bool bold = false) {
    drawing_.Text(
        {.x = x, .y = y, .size = size, .bold = bold, .color = kInk, .text = std::move(text)});
  }

  DrawColor Printed(const Srgb& srgb) const {
    return Shown(SrgbFromLinear(LinearSrgbFromBands(BandsFromLab(printed_.Lab(srgb)))));
  }

  void Pair(const Plane& plane, double left, double top) {
    Text(left, top + 10, plane.name);
    for (int row = 0; row < kCells; ++row) {
      for (int column = 0; column < kCells; ++column) {
        const auto srgb =
            plane.colour((column + 0.5) / kCells * 2 - 1, 1 - (row + 0.5) / kCells * 2);
        if (!srgb) continue;
        const double x = left + column * kCell, y = top + kLabel + row * kCell;
        drawing_.Rect({x, y, kCell, kCell}, Shown(*srgb));
        drawing_.Rect({x + kPicture + kGap / 2, y, kCell, kCell}, Printed(*srgb));
      }
    }
  }

  // Wanted above printed, from colour to colour.
  void Ramps(double top) {
    constexpr Srgb kEnds[][2] = {{{0, 0, 1}, {1, 0, 0}},
                                 {{0, 0, 1}, {0, 1, 1}},
                                 {{0.08, 0.24, 0.55}, {0.75, 0.88, 1}},
                                 {{1, 0, 0}, {0, 1, 0}},
                                 {{0.2, 0.1, 0.07}, {1, 0.87, 0.77}}};
    constexpr int kSteps = 240;
    Text(kLeft, top + 10, "ramps: blue to red, blue to cyan, a sky, red to green, skin");
    const double width = drawing_.Width() - 2 * kLeft;
    for (const auto& ends : kEnds) {
      top += 25;
      for (int step = 0; step < kSteps; ++step) {
        const double part = (step + 0.5) / kSteps;
        Srgb srgb;
        for (int i = 0; i < 3; ++i) srgb[i] = ends[0][i] + (ends[1][i] - ends[0][i]) * part;
        const double x = kLeft + width * step / kSteps;
        drawing_.Rect({x, top - 8, width / kSteps + 0.5, 10}, Shown(srgb));
        drawing_.Rect({x, top + 2, width / kSteps + 0.5, 10}, Printed(srgb));
      }
    }
  }

  // a* and b* of greys, ten times as large as the paper's lightness scale, and lightness itself.
  void Neutrals(double top) {
    constexpr DrawColor kRed = {200, 40, 40}, kBlue = {40, 80, 200};
    const double width = drawing_.Width() - 2 * kLeft, height = 160, middle = top + height / 2;
    Text(kLeft, top - 4,
         "greys, black to white: a* red, b* blue (a line is 2), L* black against the wanted, grey");
    for (int line = -3; line <= 3; ++line) {
      drawing_.Rect({kLeft, middle + line * height / 8, width, 1}, kLine);
    }
    for (int value = 0; value < 256; ++value) {
      const double grey = value / 255.0, x = kLeft + width * value / 256;
      const Triple lab = printed_.Lab({grey, grey, grey}), wanted = WantedLab({grey, grey, grey});
      const auto dot = [&](double y, DrawColor color) {
        drawing_.Rect({x, std::clamp(y, top, top + height) - 1, 2.5, 2}, color);
      };
      dot(top + height * (1 - wanted[0] / 100), {170, 170, 170});
      dot(top + height * (1 - lab[0] / 100), kInk);
      dot(middle - lab[1] / 2 * height / 8, kRed);
      dot(middle - lab[2] / 2 * height / 8, kBlue);
    }
  }

  InkResponseTable response_;
  PrintedTable printed_;
  Drawing drawing_;
};

}  // namespace

Drawing DrawTableCheck(const IndexedTable& table, const PrintModel& model,
                       const std::string& title) {
  return Sheet(table, model, title).Draw();
}

}  // namespace corvane
