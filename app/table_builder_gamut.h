// SPDX-License-Identifier: MIT
//
// Brings the colours of the display into what the print can show.
#pragma once

#include <functional>
#include <vector>

#include "app/table_builder_separation.h"

namespace corvane {

// The largest chroma for each hue and lightness, in OKLab.
class GamutBoundary {
 public:
  // `inside` says whether a colour belongs to the gamut; `black` is the lightness of its darkest
  // neutral.
  GamutBoundary(const std::function<bool(const Triple& oklab)>& inside, double black);

  double Black() const { return black_; }
  double MaxChroma(double lightness, double hue) const;

  struct Point {
    double lightness, chroma;
  };
  // Where the hue has most chroma.
  Point Cusp(double hue) const;
  // The point of the boundary nearest to one outside it, at the same hue.
  Point Nearest(Point from, double hue) const;

 private:
  static constexpr int kHues = 72;
  static constexpr int kLightnesses = 40;

  struct HuePosition {
    int first, second;
    double part;
  };
  HuePosition PositionOf(double hue) const;
  double ChromaAt(int step, const HuePosition& hue) const;

  double black_;
  std::vector<double> chroma_;  // kHues x (kLightnesses + 1), from black to white
  std::vector<Point> cusps_;
};

// The rendering of display colours on one print condition.
class GamutMap {
 public:
  explicit GamutMap(const Separator& separator);

  // Colours of the print as they are, others to the nearest of the same hue.
  Triple Colorimetric(const Triple& linearSrgb) const;

  // The whole range of the display into that of the print: lightness from white to the print's
  // black, chroma compressed towards its boundary. `vivid` raises the chroma first.
  Triple Perceptual(const Triple& linearSrgb, bool vivid) const;

  bool Contains(const Triple& linearSrgb) const;

 private:
  const Separator& separator_;
  GamutBoundary print_;
  GamutBoundary display_;  // after its black has been brought to the print's
};

}  // namespace corvane
