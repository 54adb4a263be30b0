// SPDX-License-Identifier: MIT
//
// Brings the colours of the display to what the print can show.
#pragma once

#include <array>
#include <functional>
#include <vector>

#include "app/tables/builder_separation.h"

namespace corvane {

// The largest chroma for each hue and lightness of a gamut, in OKLab.
class GamutBoundary {
 public:
  // `darkest` is the lightness of the darkest neutral.
  explicit GamutBoundary(double darkest);

  // Colours of the gamut, most of all of its surface.
  void Add(const Triple& oklab);
  // After the last colour.
  void Finish();

  double MaxChroma(double lightness, double hue) const;

  struct Point {
    double lightness = 0, chroma = 0;
  };
  // Where the hue has most chroma.
  Point Cusp(double hue) const;

 private:
  static constexpr int kHues = 90;
  static constexpr int kLightnesses = 56;

  double& At(int hue, int step) { return chroma_[hue * kLightnesses + step]; }
  double ChromaAt(int step, double hue) const;

  double darkest_;
  std::vector<double> chroma_;  // kHues x kLightnesses, from the darkest neutral to white
  std::vector<Point> cusps_;
};

// How the colours of the display are rendered.
struct Rendering {
  bool colorimetric =
      false;              // exact as far as the print reaches, else with room for what is beyond
  bool vivid = false;     // raises chroma first
  bool pureInks = false;  // the display's six purest colours become those of the inks
  double black = 0;       // L* of the darkest neutral to use
};

// A wanted colour brought into the print's gamut.
struct Mapped {
  Triple lab{};
  double freedom = 0;  // 0: well inside, to be printed as it is; 1: at the edge and beyond
};

// What the dyes of a medium can print, and how the display's colours are fitted in.
class GamutMap {
 public:
  // `darkest` is the L* of the darkest neutral.
  GamutMap(const PrintModel& model, const Separator& separator, double darkest);

  Mapped Map(const Triple& srgb, const Rendering& rendering) const;

  // The dyes of the display's corner `bits` (red 4, green 2, blue 1) when inks stay pure: the one
  // or two dyes that make it, as much as gives nearly all of their chroma.
  const DyeAmounts& PureDyes(int bits) const { return pureDyes_[bits]; }

 private:
  double HueShift(double hue) const;
  double YellowShift(double hue) const;

  GamutBoundary print_;
  GamutBoundary display_;
  std::array<DyeAmounts, 8> pureDyes_{};
  std::array<double, 6> cornerHues_{};    // of the display: red, yellow, green, cyan, blue, magenta
  std::array<double, 6> cornerShifts_{};  // to the hues of the inks
};

}  // namespace corvane
