// SPDX-License-Identifier: MIT
#include "app/tables/builder_gamut.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "app/inks/ink_response.h"
#include "app/tables/smooth_step.h"

namespace corvane {
namespace {

using std::numbers::pi;

// The lightest colour with this part of a hue's largest chroma stands for its purest: lightness is
// worth the rest.
constexpr double kNearlyMost = 0.98;
// The same of pure inks, whose purest tints are darkest.
constexpr double kPureMost = 0.96;

// Colours begin to give way to their neighbours this far before the knee, as a part of the print's
// chroma.
constexpr double kEase = 0.1;

// By how much vivid colours are raised, and up to which part of the print's chroma in full.
constexpr double kVividness = 0.2, kVividMiddle = 0.5;

constexpr int kCorners[6] = {4, 6, 2, 3, 1, 5};  // red, yellow, green, cyan, blue, magenta

double HueOf(const Triple& oklab) { return std::atan2(oklab[2], oklab[1]); }
double ChromaOf(const Triple& oklab) { return std::hypot(oklab[1], oklab[2]); }

Triple OklabOf(double lightness, double chroma, double hue) {
  return {lightness, chroma * std::cos(hue), chroma * std::sin(hue)};
}
Triple OklabOfLab(const Triple& lab) {
  return OklabFromLinearSrgb(LinearSrgbFromBands(BandsFromLab(lab)));
}
Triple LabOfOklab(const Triple& oklab) {
  return LabFromBands(BandsFromLinearSrgb(LinearSrgbFromOklab(oklab)));
}

// The lightness of a grey in OKLab and in Lab.
double OklabLightness(double lightness) { return std::cbrt(XyzFromLab({lightness, 0, 0})[1]); }
double LabLightness(double oklabLightness) {
  const double cube = oklabLightness * oklabLightness * oklabLightness;
  return LabFromBands({cube, cube, cube})[0];
}

// From 0 at 0 to 1 at 1, beginning with this slope and bent evenly.
double Bent(double part, double slope) { return slope * part / (1.0 + (slope - 1.0) * part); }

// How quickly the bend of perceptual shadows fades above the print's black.
double ShadowPower(double black) {
  return 4.0 + std::min(std::pow(std::max(black - 10.0, 0.0) / 9.0, 1.5), 8.0);
}

// Lightness brought above the print's black. Perceptual: shadows are bent, more and more towards
// black. Colorimetric: what is darker than the print's black becomes it.
double AboveBlack(double lightness, const Rendering& rendering) {
  const double black = rendering.black;
  if (rendering.colorimetric) {
    constexpr double kWidth = 1.5;
    const double over = (lightness - black) / kWidth;
    return black + kWidth * (over > 30 ? over : std::log1p(std::exp(over)));
  }
  const double power = ShadowPower(black);
  return std::pow(std::pow(std::max(lightness, 0.0), power) + std::pow(black, power), 1.0 / power);
}

double Wrapped(double angle) { return std::remainder(angle, 2 * pi); }

// The least amount of the dyes, in equal parts, that gives nearly all of their chroma.
DyeAmounts FindPureDyes(int bits, const InkResponseTable& response, const Separator& separator) {
  constexpr int kParts = 64;
  std::array<DyeAmounts, kParts + 1> dyes{};
  std::array<double, kParts + 1> chroma{};
  for (int part = 1; part <= kParts; ++part) {
    for (int dye = 0; dye < 3; ++dye) {
      if (bits >> (2 - dye) & 1) continue;
      dyes[part][dye] = separator.MostOf(static_cast<Dye>(dye)) * part / kParts;
    }
    if (separator.LeastInk(dyes[part]) > separator.Rules().inkLimit - 0.01) break;
    const Triple lab = response.Lab(separator.AmountsOf(dyes[part]));
    chroma[part] = std::hypot(lab[1], lab[2]);
  }
  const double most = *std::max_element(chroma.begin(), chroma.end());
  for (int part = 1; part <= kParts; ++part) {
    if (chroma[part] >= kPureMost * most) return dyes[part];
  }
  return dyes[0];
}

}  // namespace

GamutBoundary::GamutBoundary(double darkest)
    : darkest_(darkest), chroma_(kHues * kLightnesses, -1.0), cusps_(kHues) {}

void GamutBoundary::Add(const Triple& oklab) {
  const double position = (oklab[0] - darkest_) / (1.0 - darkest_) * (kLightnesses - 1);
  const int step = static_cast<int>(std::lround(position));
  if (step < 0 || step >= kLightnesses) return;
  const int hue = static_cast<int>(std::lround((HueOf(oklab) / (2 * pi) + 1.0) * kHues)) % kHues;
  double& most = At(hue, step);
  most = std::max(most, ChromaOf(oklab));
}

void GamutBoundary::Finish() {
  for (int hue = 0; hue < kHues; ++hue) {
    At(hue, 0) = At(hue, kLightnesses - 1) = 0.0;
    // Cells that no colour fell into lie on the line between those around them.
    for (int step = 1; step < kLightnesses; ++step) {
      if (At(hue, step) >= 0) continue;
      int next = step;
      while (At(hue, next) < 0) ++next;
      const double before = At(hue, step - 1);
      for (int i = step; i < next; ++i) {
        At(hue, i) = before + (At(hue, next) - before) * (i - step + 1) / (next - step + 1);
      }
    }
  }
  // A cell holds the most of its area; a light blur takes that back and smooths the steps.
  {
    const std::vector<double> sharp = chroma_;
    const auto old = [&](int hue, int step) {
      return sharp[(hue + kHues) % kHues * kLightnesses + step];
    };
    for (int hue = 0; hue < kHues; ++hue) {
      for (int step = 1; step < kLightnesses - 1; ++step) {
        At(hue, step) = 0.8 * old(hue, step) + 0.05 * (old(hue - 1, step) + old(hue + 1, step) +
                                                       old(hue, step - 1) + old(hue, step + 1));
      }
    }
  }
  for (int hue = 0; hue < kHues; ++hue) {
    std::array<double, kLightnesses> chroma;
    for (int step = 0; step < kLightnesses; ++step) {
      const double lightness = darkest_ + (1.0 - darkest_) * step / (kLightnesses - 1);
      const Triple lab = LabOfOklab(OklabOf(lightness, At(hue, step), 2 * pi * hue / kHues));
      chroma[step] = std::hypot(lab[1], lab[2]);
    }
    const double most = *std::max_element(chroma.begin(), chroma.end());
    for (int step = 0; step < kLightnesses; ++step) {
      if (chroma[step] < kNearlyMost * most) continue;
      cusps_[hue] = {darkest_ + (1.0 - darkest_) * step / (kLightnesses - 1), At(hue, step)};
    }
  }
  // Along the hues the cusp moves in the steps of the grid: smooth these.
  for (int pass = 0; pass < 3; ++pass) {
    const std::vector<Point> sharp = cusps_;
    for (int hue = 0; hue < kHues; ++hue) {
      const Point &before = sharp[(hue + kHues - 1) % kHues], &after = sharp[(hue + 1) % kHues];
      cusps_[hue].lightness = (before.lightness + 2 * sharp[hue].lightness + after.lightness) / 4;
    }
  }
  for (int hue = 0; hue < kHues; ++hue) {
    cusps_[hue].chroma = MaxChroma(cusps_[hue].lightness, 2 * pi * hue / kHues);
  }
}

double GamutBoundary::ChromaAt(int step, double hue) const {
  double position = hue / (2 * pi) * kHues;
  position -= kHues * std::floor(position / kHues);
  const int first = static_cast<int>(position) % kHues, second = (first + 1) % kHues;
  const double a = chroma_[first * kLightnesses + step];
  const double b = chroma_[second * kLightnesses + step];
  return a + (b - a) * (position - std::floor(position));
}

double GamutBoundary::MaxChroma(double lightness, double hue) const {
  const double position = (lightness - darkest_) / (1.0 - darkest_) * (kLightnesses - 1);
  if (position <= 0.0 || position >= kLightnesses - 1) return 0.0;
  const int step = static_cast<int>(position);
  const double a = ChromaAt(step, hue), b = ChromaAt(step + 1, hue);
  return a + (b - a) * (position - step);
}

GamutBoundary::Point GamutBoundary::Cusp(double hue) const {
  double position = hue / (2 * pi) * kHues;
  position -= kHues * std::floor(position / kHues);
  const int first = static_cast<int>(position) % kHues, second = (first + 1) % kHues;
  const double part = position - std::floor(position);
  const Point &a = cusps_[first], &b = cusps_[second];
  return {a.lightness + (b.lightness - a.lightness) * part,
          a.chroma + (b.chroma - a.chroma) * part};
}

GamutMap::GamutMap(const PrintModel& model, const Separator& separator, double darkest)
    : print_(OklabLightness(darkest)), display_(0.0) {
  const InkResponseTable response(model);
  const double limit = separator.Rules().inkLimit;
  const auto add = [&](const DyeAmounts& dyes) {
    if (separator.LeastInk(dyes) > limit + 1e-9) return;
    print_.Add(OklabOfLab(response.Lab(separator.AmountsOf(dyes))));
  };
  // The most colourful colours hold two dyes and black, or the third for it; the darkest ones all.
  constexpr int kSteps = 48, kBlackSteps = 24, kCoarse = 14;
  const bool black = separator.Rules().blackInk;
  for (int without = 0; without < 3; ++without) {
    for (int i = 0; i <= kSteps; ++i) {
      for (int j = 0; j <= kSteps; ++j) {
        for (int k = 0; k <= kBlackSteps; ++k) {
          DyeAmounts dyes{};
          const int first = (without + 1) % 3, second = (without + 2) % 3;
          const int third = black ? 3 : without;
          dyes[first] = separator.MostOf(static_cast<Dye>(first)) * i / kSteps;
          dyes[second] = separator.MostOf(static_cast<Dye>(second)) * j / kSteps;
          dyes[third] = separator.MostOf(static_cast<Dye>(third)) * k / kBlackSteps;
          add(dyes);
        }
      }
    }
  }
  for (int i = 0; i < kCoarse * kCoarse * kCoarse; ++i) {
    for (int k = 0; k <= (black ? kBlackSteps : 0); k += 4) {
      constexpr double kLast = kCoarse - 1;
      add({i % kCoarse / kLast, i / kCoarse % kCoarse / kLast, i / kCoarse / kCoarse / kLast,
           double(k) / kBlackSteps});
    }
  }
  print_.Finish();

  constexpr int kFace = 96;
  for (int face = 0; face < 6; ++face) {
    for (int i = 0; i <= kFace; ++i) {
      for (int j = 0; j <= kFace; ++j) {
        Triple srgb;
        srgb[face % 3] = face / 3;
        srgb[(face + 1) % 3] = double(i) / kFace;
        srgb[(face + 2) % 3] = double(j) / kFace;
        display_.Add(OklabFromLinearSrgb(LinearFromSrgb(srgb)));
      }
    }
  }
  display_.Finish();

  for (int corner = 0; corner < 6; ++corner) {
    const int bits = kCorners[corner];
    const Triple srgb = {double(bits >> 2 & 1), double(bits >> 1 & 1), double(bits & 1)};
    cornerHues_[corner] = HueOf(OklabFromLinearSrgb(srgb));
    pureDyes_[bits] = FindPureDyes(bits, response, separator);
    const Triple ink = OklabOfLab(response.Lab(separator.AmountsOf(pureDyes_[bits])));
    cornerShifts_[corner] = Wrapped(HueOf(ink) - cornerHues_[corner]);
  }
}

// From a hue of the display to that of the inks, smoothly from corner to corner.
double GamutMap::HueShift(double hue) const {
  for (std::size_t corner = 0; corner < 6; ++corner) {
    const std::size_t next = (corner + 1) % 6;
    const auto turn = [](double angle) { return angle - 2 * pi * std::floor(angle / (2 * pi)); };
    const double width = turn(cornerHues_[next] - cornerHues_[corner]);
    const double along = turn(hue - cornerHues_[corner]);
    if (along > width) continue;
    const double part = SmoothStep(along / width);
    return cornerShifts_[corner] + (cornerShifts_[next] - cornerShifts_[corner]) * part;
  }
  return 0.0;
}

// Inks' yellow is warmer than the display's, and no other is as colourful.
double GamutMap::YellowShift(double hue) const {
  constexpr double kWidth = 0.5;
  const double away = Wrapped(hue - cornerHues_[1]) / kWidth;
  return std::abs(away) < 1.0 ? cornerShifts_[1] * SmoothStep(1.0 - std::abs(away)) : 0.0;
}

Mapped GamutMap::Map(const Triple& srgb, const Rendering& rendering) const {
  const Triple wanted = OklabFromLinearSrgb(LinearFromSrgb(srgb));
  const double hue = HueOf(wanted);
  double chroma = ChromaOf(wanted);
  const double black = OklabLightness(rendering.black);
  const double lightness = OklabLightness(AboveBlack(LabLightness(wanted[0]), rendering));
  if (chroma < 1e-6) return {LabOfOklab({lightness, 0, 0}), 0.0};

  double displayMost = std::max(display_.MaxChroma(wanted[0], hue), chroma);
  const double printMost = std::max(print_.MaxChroma(lightness, hue), 0.004);
  if (rendering.vivid) {
    // Most in the middle of what the print has; its edge stays where it is.
    const double room =
        1.0 - SmoothStep((chroma / printMost - kVividMiddle) / (1.0 - kVividMiddle));
    chroma *= 1.0 + kVividness * room * chroma / (chroma + 0.04);
    displayMost = std::max(displayMost, chroma);
  }
  const double knee = rendering.colorimetric ? 0.96 : 0.92;
  const double first = knee * printMost, most = std::max(displayMost, chroma);
  const double ease = rendering.colorimetric ? kEase / 2 : kEase;
  const double freedom = SmoothStep((chroma / printMost - knee + ease) / ease);
  if (chroma <= first) return {LabOfOklab(OklabOf(lightness, chroma, hue)), freedom};

  // Beyond the knee the display's purest colours become those of the print, and chroma between is
  // bent evenly. Where the display hardly reaches further than the print, it stays as it is.
  const double beyond = (chroma - first) / (most - first);
  const double turn = rendering.pureInks ? HueShift(hue) : YellowShift(hue);
  const double printedHue = hue + beyond * beyond * turn;
  const GamutBoundary::Point from = display_.Cusp(hue), to = print_.Cusp(printedHue);
  const double least = std::min(most, printMost);
  const double further = SmoothStep((most / printMost - knee) / 0.9);
  const double last =
      least + further * std::max(0.0, std::min(displayMost / from.chroma, 1.0) * to.chroma - least);
  const double printed =
      first + (last - first) * Bent(beyond, (most - first) / std::max(last - first, 1e-4));

  // Lightness goes towards that of the purest colour as far as chroma needs it.
  const double share = knee + (1.0 - knee) * Bent(beyond, 4.0);
  double stay = 0.0, go = 1.0;
  const auto reach = [&](double part) {
    const double moved = lightness + part * (to.lightness - lightness);
    return share * print_.MaxChroma(moved, printedHue);
  };
  if (reach(0.0) < printed) {
    for (int step = 0; step < 20; ++step) {
      const double middle = (stay + go) / 2.0;
      (reach(middle) < printed ? stay : go) = middle;
    }
  } else {
    go = 0.0;
  }
  // On the display's surface lightness is no larger than that of the mixture of black, white and
  // the purest colour: so it rises all the way to that.
  const double pure = std::min(displayMost / from.chroma, 1.0) * beyond;
  const double white = std::clamp(wanted[0] - pure * from.lightness, 0.0, 1.0 - pure);
  const double mixed = white + pure * to.lightness + (1.0 - white - pure) * black;
  const double moved = lightness + go * (to.lightness - lightness);
  const double pull = beyond * beyond * further;
  const double printedLightness =
      std::clamp(moved + pull * std::min(mixed - moved, 0.0), black, 1.0);
  const double printedChroma =
      std::min(printed, std::max(share * print_.MaxChroma(printedLightness, printedHue), 0.002));
  return {LabOfOklab(OklabOf(printedLightness, printedChroma, printedHue)), freedom};
}

}  // namespace corvane
