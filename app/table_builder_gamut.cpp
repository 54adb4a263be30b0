// SPDX-License-Identifier: MIT
#include "app/table_builder_gamut.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace corvane {
namespace {

using std::numbers::pi;

// Amounts may pass their limits by this much before a colour counts as out of gamut.
constexpr double kTolerance = 0.004;

double HueOf(const Triple& oklab) { return std::atan2(oklab[2], oklab[1]); }
double ChromaOf(const Triple& oklab) { return std::hypot(oklab[1], oklab[2]); }

Triple OklabOf(double lightness, double chroma, double hue) {
  return {lightness, chroma * std::cos(hue), chroma * std::sin(hue)};
}

bool IsPrintable(const Separator& separator, const Triple& linearSrgb) {
  const Triple bands = BandsFromLinearSrgb(linearSrgb);
  for (const double band : bands) {
    if (band <= 1e-5) return false;
  }
  return separator.Separate(bands).excess <= kTolerance;
}

double LightnessOfGrey(double linear) { return OklabFromLinearSrgb({linear, linear, linear})[0]; }

// Straight through up to `knee`, then smoothly bent so that `most` comes out as 1. All are parts of
// the print's largest chroma.
double Compress(double chroma, double most, double knee) {
  if (most <= 1.0 || chroma <= knee) return chroma;
  const double t = (chroma - knee) / (most - knee);
  const double bend = (most - knee) / (1.0 - knee) - 1.0;
  return knee + (1.0 - knee) * t * (1.0 + bend) / (1.0 + bend * t);
}

}  // namespace

GamutBoundary::GamutBoundary(const std::function<bool(const Triple&)>& inside, double black)
    : black_(black), chroma_(kHues * (kLightnesses + 1)), cusps_(kHues) {
  for (int hue = 0; hue < kHues; ++hue) {
    for (int step = 0; step <= kLightnesses; ++step) {
      const double lightness = black_ + (1.0 - black_) * step / kLightnesses;
      double low = 0.0, high = 0.4;
      for (int iteration = 0; iteration < 14; ++iteration) {
        const double middle = (low + high) / 2.0;
        (inside(OklabOf(lightness, middle, 2 * pi * hue / kHues)) ? low : high) = middle;
      }
      chroma_[hue * (kLightnesses + 1) + step] = low;
      if (low > cusps_[hue].chroma) cusps_[hue] = {lightness, low};
    }
  }
}

GamutBoundary::HuePosition GamutBoundary::PositionOf(double hue) const {
  double position = hue / (2 * pi) * kHues;
  position -= kHues * std::floor(position / kHues);
  const int first = static_cast<int>(position) % kHues;
  return {first, (first + 1) % kHues, position - std::floor(position)};
}

double GamutBoundary::ChromaAt(int step, const HuePosition& hue) const {
  const double a = chroma_[hue.first * (kLightnesses + 1) + step];
  const double b = chroma_[hue.second * (kLightnesses + 1) + step];
  return a + (b - a) * hue.part;
}

double GamutBoundary::MaxChroma(double lightness, double hue) const {
  const double position = (lightness - black_) / (1.0 - black_) * kLightnesses;
  if (position < 0.0 || position > kLightnesses) return 0.0;
  const int step = std::min(static_cast<int>(position), kLightnesses - 1);
  const HuePosition at = PositionOf(hue);
  const double a = ChromaAt(step, at), b = ChromaAt(step + 1, at);
  return a + (b - a) * (position - step);
}

GamutBoundary::Point GamutBoundary::Cusp(double hue) const {
  const HuePosition at = PositionOf(hue);
  const Point &a = cusps_[at.first], &b = cusps_[at.second];
  return {a.lightness + (b.lightness - a.lightness) * at.part,
          a.chroma + (b.chroma - a.chroma) * at.part};
}

GamutBoundary::Point GamutBoundary::Nearest(Point from, double hue) const {
  const HuePosition at = PositionOf(hue);
  // Round the hue's slice of the gamut: out from black, along the boundary, back to white.
  Point nearest{}, previous = {black_, 0.0};
  double least = 1e9;
  const auto look = [&](Point point) {
    const double dl = point.lightness - previous.lightness, dc = point.chroma - previous.chroma;
    const double length = std::max(dl * dl + dc * dc, 1e-12);
    const double along = std::clamp(
        ((from.lightness - previous.lightness) * dl + (from.chroma - previous.chroma) * dc) /
            length,
        0.0, 1.0);
    const Point foot = {previous.lightness + along * dl, previous.chroma + along * dc};
    const double distance = std::hypot(from.lightness - foot.lightness, from.chroma - foot.chroma);
    if (distance < least) {
      least = distance;
      nearest = foot;
    }
    previous = point;
  };
  for (int step = 0; step <= kLightnesses; ++step) {
    look({black_ + (1.0 - black_) * step / kLightnesses, ChromaAt(step, at)});
  }
  look({1.0, 0.0});
  return nearest;
}

GamutMap::GamutMap(const Separator& separator)
    : separator_(separator),
      print_(
          [&](const Triple& oklab) { return IsPrintable(separator, LinearSrgbFromOklab(oklab)); },
          LightnessOfGrey(separator.BlackPoint())),
      display_(
          [black = separator.BlackPoint()](const Triple& oklab) {
            const Triple linear = LinearSrgbFromOklab(oklab);
            return std::all_of(linear.begin(), linear.end(), [&](double channel) {
              return channel >= black - 1e-4 && channel <= 1.0 + 1e-4;
            });
          },
          LightnessOfGrey(separator.BlackPoint())) {}

bool GamutMap::Contains(const Triple& linearSrgb) const {
  return IsPrintable(separator_, linearSrgb);
}

Triple GamutMap::Colorimetric(const Triple& linearSrgb) const {
  if (Contains(linearSrgb)) return linearSrgb;
  const Triple oklab = OklabFromLinearSrgb(linearSrgb);
  const double hue = HueOf(oklab);
  const GamutBoundary::Point to = print_.Nearest({oklab[0], ChromaOf(oklab)}, hue);
  return LinearSrgbFromOklab(OklabOf(to.lightness, to.chroma, hue));
}

Triple GamutMap::Perceptual(const Triple& linearSrgb, bool vivid) const {
  const double black = separator_.BlackPoint();
  Triple raised;
  for (int i = 0; i < 3; ++i) raised[i] = black + (1.0 - black) * linearSrgb[i];
  const Triple oklab = OklabFromLinearSrgb(raised);
  const double hue = HueOf(oklab);
  double chroma = ChromaOf(oklab);
  if (chroma < 1e-6) return raised;

  // The most saturated colours take the lightness at which the print is most saturated, the others
  // less the nearer they are to grey, black or white.
  const GamutBoundary::Point from = display_.Cusp(hue), to = print_.Cusp(hue);
  const double saturation = std::min(chroma / from.chroma, 1.0);
  const double nearness = oklab[0] < from.lightness
                              ? (oklab[0] - print_.Black()) / (from.lightness - print_.Black())
                              : (1.0 - oklab[0]) / (1.0 - from.lightness);
  const double shift = 0.85 * (to.lightness - from.lightness) * saturation * std::sqrt(saturation);
  const double lightness =
      std::clamp(oklab[0] + shift * std::max(nearness, 0.0), print_.Black(), 1.0);

  double displayMost = std::max(display_.MaxChroma(oklab[0], hue), chroma);
  const double printMost = std::max(print_.MaxChroma(lightness, hue), 1e-4);
  if (vivid) {
    const double boost = 1.0 + 0.2 * chroma / (chroma + 0.04);
    chroma *= boost;
    displayMost *= boost;
  }
  const double knee = vivid ? 0.9 : 0.75;
  const double mapped = printMost * Compress(chroma / printMost, displayMost / printMost, knee);
  return LinearSrgbFromOklab(OklabOf(lightness, mapped, hue));
}

}  // namespace corvane
