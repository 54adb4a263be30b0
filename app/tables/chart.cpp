// SPDX-License-Identifier: MIT
#include "app/tables/chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "app/tables/lookup.h"

namespace corvane {
namespace {

constexpr int kSteps = 256;  // of each half of a ramp
constexpr double kWidth = 2.0 * kSteps;
constexpr double kCurveHeight = 128;
constexpr double kStripHeight = 12;
constexpr double kLeft = 110;
constexpr double kTop = 56;
constexpr double kPanelHeight = kCurveHeight + 2 * kStripHeight + 30;
constexpr double kLine = 1.6;

constexpr DrawColor kInk = {40, 40, 40};
constexpr DrawColor kGrid = {225, 225, 225};
constexpr DrawColor kInkColors[kInkCount] = {{0, 130, 190},   {110, 195, 235}, {205, 20, 110},
                                             {240, 130, 185}, {215, 170, 0},   {240, 220, 90},
                                             {0, 0, 0},       {60, 160, 210},  {225, 75, 145}};

struct Ramp {
  const char* name;
  Rgb8 channels;  // those that the colour keeps at full strength
};
constexpr Ramp kRamps[] = {{"grey", {0, 0, 0}},   {"red", {1, 0, 0}},  {"yellow", {1, 1, 0}},
                           {"green", {0, 1, 0}},  {"cyan", {0, 1, 1}}, {"blue", {0, 0, 1}},
                           {"magenta", {1, 0, 1}}};

// The colour at a place of a ramp, 0..511: white to the pure colour, and on to black.
Rgb8 ColourAt(const Ramp& ramp, int place) {
  Rgb8 rgb;
  for (std::size_t i = 0; i < 3; ++i) {
    const bool isGrey = ramp.channels == Rgb8{0, 0, 0};
    const int kept = place < kSteps ? kSteps - 1 : 2 * kSteps - 1 - place;
    const int taken = std::max(0, kSteps - 1 - place);
    rgb[i] = static_cast<std::uint8_t>(isGrey             ? (2 * kSteps - 1 - place) / 2
                                       : ramp.channels[i] ? kept
                                                          : taken);
  }
  return rgb;
}

DrawColor Shown(const Triple& linear) {
  const Triple srgb = SrgbFromLinear(linear);
  return DrawColorOf(srgb[0], srgb[1], srgb[2]);
}

void DrawRamp(Drawing& drawing, std::span<const std::uint8_t> table, const PrintModel& model,
              const Ramp& ramp, double top) {
  const double bottom = top + kCurveHeight;
  drawing.Text({.x = 12,
                .y = top + kCurveHeight / 2 + 4,
                .size = 12,
                .bold = true,
                .color = kInk,
                .text = ramp.name});
  for (const int percent : {0, 50, 100}) {
    const double y = bottom - kCurveHeight * percent / 100;
    drawing.Rect({kLeft, y, kWidth, 1}, kGrid);
    drawing.Text({.x = kLeft - 10,
                  .y = y + 4,
                  .size = 9,
                  .anchor = TextAnchor::End,
                  .color = kInk,
                  .text = fmt::format("{} %", percent)});
  }

  Contone last = LookUp(table, ColourAt(ramp, 0));
  for (int place = 0; place < 2 * kSteps; ++place) {
    const Rgb8 rgb = ColourAt(ramp, place);
    const Contone contone = LookUp(table, rgb);
    const double x = kLeft + place;
    for (std::size_t ink = 0; ink < kInkCount; ++ink) {
      if (contone[ink] == 0 && last[ink] == 0) continue;
      const double from = bottom - kCurveHeight * last[ink] / 255;
      const double to = bottom - kCurveHeight * contone[ink] / 255;
      drawing.Rect({x, std::min(from, to) - kLine / 2, kLine, std::abs(from - to) + kLine},
                   kInkColors[ink]);
    }
    last = contone;
    const Triple wanted = LinearFromSrgb({rgb[0] / 255.0, rgb[1] / 255.0, rgb[2] / 255.0});
    drawing.Rect({x, bottom + 4, 1, kStripHeight}, Shown(wanted));
    drawing.Rect({x, bottom + 4 + kStripHeight, 1, kStripHeight},
                 Shown(LinearSrgbFromBands(model.Bands(AmountsOf(contone)))));
  }
  const double strip = bottom + 4;
  drawing.Text({.x = kLeft - 10,
                .y = strip + 10,
                .size = 9,
                .anchor = TextAnchor::End,
                .color = kInk,
                .text = "wanted"});
  drawing.Text({.x = kLeft - 10,
                .y = strip + kStripHeight + 10,
                .size = 9,
                .anchor = TextAnchor::End,
                .color = kInk,
                .text = "model"});
}

}  // namespace

Drawing DrawTableChart(std::span<const std::uint8_t> table, const PrintModel& model,
                       const std::string& title) {
  const bool blackOnly = table.size() == 256;
  const std::span<const Ramp> ramps(kRamps, blackOnly ? 1 : std::size(kRamps));
  Drawing drawing(kLeft + kWidth + 20,
                  kTop + kPanelHeight * static_cast<double>(ramps.size()) + 10);
  drawing.Rect({0, 0, drawing.Width(), drawing.Height()}, {255, 255, 255});
  drawing.Text({.x = 12, .y = 22, .size = 14, .bold = true, .color = kInk, .text = title});
  const std::size_t planes = table.size() / 4913;
  double x = kLeft;
  for (std::size_t ink = 0; ink < kInkCount; ++ink) {
    const bool held = blackOnly ? ink == static_cast<std::size_t>(Ink::K) : ink < planes;
    if (!held) continue;
    drawing.Rect({x, 34, 14, 8}, kInkColors[ink]);
    drawing.Text({.x = x + 18, .y = 42, .size = 11, .color = kInk, .text = kInkNames[ink]});
    x += 50;
  }
  double top = kTop;
  for (const Ramp& ramp : ramps) {
    DrawRamp(drawing, table, model, ramp, top);
    top += kPanelHeight;
  }
  return drawing;
}

}  // namespace corvane
