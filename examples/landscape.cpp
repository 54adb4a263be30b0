// SPDX-License-Identifier: MIT
//
// Paints a mountain lake at dawn, out of noise alone, for the sample page: usage
// `landscape WIDTH HEIGHT > image.ppm`.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

struct Colour {
  double r = 0, g = 0, b = 0;
};

Colour operator+(Colour a, Colour b) { return {a.r + b.r, a.g + b.g, a.b + b.b}; }
Colour operator*(Colour a, double k) { return {a.r * k, a.g * k, a.b * k}; }
Colour Mix(Colour a, Colour b, double t) { return a * (1 - t) + b * t; }

double Smooth(double from, double to, double x) {
  const double t = std::clamp((x - from) / (to - from), 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

// -----------------------------------------------------------------------------------------------
// Noise: smooth between random values at whole coordinates.

double Random(std::int32_t x, std::int32_t y) {
  std::uint32_t h =
      static_cast<std::uint32_t>(x) * 0x9E3779B1u ^ static_cast<std::uint32_t>(y) * 0x85EBCA77u;
  h = (h ^ h >> 15) * 0x2C1B3C6Du;
  h = (h ^ h >> 12) * 0x297A2D39u;
  return static_cast<double>(h ^ h >> 15) / 4294967296.0;
}

double Noise(double x, double y) {
  const double fx = std::floor(x), fy = std::floor(y);
  const auto ix = static_cast<std::int32_t>(fx), iy = static_cast<std::int32_t>(fy);
  const double tx = Smooth(0, 1, x - fx), ty = Smooth(0, 1, y - fy);
  const double top = Random(ix, iy) * (1 - tx) + Random(ix + 1, iy) * tx;
  const double bottom = Random(ix, iy + 1) * (1 - tx) + Random(ix + 1, iy + 1) * tx;
  return top * (1 - ty) + bottom * ty;
}

// Sum of octaves, 0 to 1.
double Clouds(double x, double y, int octaves) {
  double sum = 0, weight = 0.5, total = 0;
  for (int i = 0; i < octaves; ++i, weight *= 0.5) {
    sum += weight * Noise(x, y);
    total += weight;
    x = 2 * x + 17.3;
    y = 2 * y + 5.9;
  }
  return sum / total;
}

// The same with sharp crests.
double Ridges(double x, double y, int octaves) {
  double sum = 0, weight = 0.5, total = 0;
  for (int i = 0; i < octaves; ++i, weight *= 0.5) {
    sum += weight * (1 - std::abs(2 * Noise(x, y) - 1));
    total += weight;
    x = 2 * x + 31.7;
    y = 2 * y + 11.1;
  }
  return sum / total;
}

// -----------------------------------------------------------------------------------------------
// The scene. x runs over the width in picture heights, y from 0 at the top to 1 at the bottom.

constexpr double kHorizon = 0.60;
constexpr double kSunX = 1.12, kSunY = 0.50;
constexpr Colour kZenith = {0.10, 0.22, 0.46};
constexpr Colour kMiddle = {0.46, 0.56, 0.72};
constexpr Colour kGlow = {1.00, 0.80, 0.56};
constexpr Colour kHaze = {0.86, 0.70, 0.62};
constexpr Colour kSunlight = {1.00, 0.90, 0.72};

Colour Sky(double x, double y) {
  const double height = std::clamp(1 - y / kHorizon, 0.0, 1.0);
  Colour sky =
      Mix(Mix(kGlow, kMiddle, Smooth(0.02, 0.50, height)), kZenith, Smooth(0.35, 1.0, height));
  const double toSun = std::hypot((x - kSunX) * 0.8, (y - kSunY) * 1.5);
  sky = Mix(sky, kSunlight, 0.85 * std::exp(-toSun * toSun * 18));

  const double wind = Clouds(x * 1.6, y * 5.5 + 3, 7);
  const double shape = Clouds(x * 2.3 + wind * 0.8, y * 8 + wind, 8);
  const double cover = Smooth(0.50, 0.74, shape) * Smooth(0.02, 0.20, height) * 0.9;
  const double lit = Smooth(0.46, 0.78, Clouds(x * 2.3 + wind * 0.8, (y + 0.018) * 8 + wind, 8));
  const Colour cloud = Mix({1.0, 0.72, 0.58}, {0.52, 0.50, 0.64}, lit);
  sky = Mix(sky, Mix(cloud, kSunlight, 0.5 * std::exp(-toSun * 3)), cover);
  return sky;
}

struct Range {
  double base, rise, scale, seed, distance;
  int octaves;
};

constexpr Range kRanges[] = {
    {0.53, 0.66, 1.25, 4.2, 0.50, 8},
    {0.575, 0.40, 1.9, 23.5, 0.30, 8},
    {0.597, 0.20, 2.6, 57.1, 0.18, 7},
    {0.606, 0.085, 4.0, 91.7, 0.06, 6},
};

double CrestOf(const Range& range, double x) {
  const double shape = Ridges(x * range.scale + range.seed, range.seed, range.octaves);
  const double broad = Clouds(x * range.scale * 0.5 + range.seed, 7.7, 3);
  return range.base - range.rise * (0.55 * shape + 0.75 * broad - 0.40);
}

// Rock, snow and light of a range at a point below its crest.
Colour Rock(const Range& range, double x, double y, double crest) {
  const double k = 5 * range.scale;
  const auto surface = [&](double px, double py) {
    return Ridges(px * k + range.seed + 0.6 * Noise(px * 3 * k, py * k), py * k * 1.3, 7);
  };
  const double here = surface(x, y);
  const double slope = (surface(x + 0.004, y - 0.002) - here) * 13;
  const double light = std::clamp(0.42 + slope + 0.22 * (here - 0.5), 0.05, 1.0);
  const Colour stone = Mix({0.10, 0.12, 0.17}, {0.60, 0.46, 0.38}, light);
  const double depth = y - crest;
  const double snowLine = 0.06 + 0.15 * Noise(x * 9, range.seed) * range.rise / 0.4;
  const double snow = Smooth(snowLine, 0.25 * snowLine, depth) * Smooth(0.22, 0.42, here) *
                      Smooth(0.12, 0.3, range.rise);
  const Colour white = Mix({0.50, 0.58, 0.76}, {1.0, 0.91, 0.84}, light);
  Colour rock = Mix(stone, white, snow);
  if (range.distance < 0.25) {  // forest
    const double trees = Clouds(x * 90, y * 150, 4);
    const Colour wood = Mix({0.03, 0.07, 0.06}, {0.19, 0.22, 0.13}, trees * light * 1.5);
    rock = Mix(rock, wood, Smooth(0.0, 0.05, depth) * 0.95);
  }
  const double mist =
      range.distance + (1 - range.distance) * 0.62 * Smooth(0.09, 0.0, kHorizon - y);
  return Mix(rock, Mix(kHaze, kSunlight, 0.35 * std::exp(-std::abs(x - kSunX) * 2)),
             std::clamp(mist, 0.0, 0.95));
}

Colour Land(double x, double y) {
  for (int i = 3; i >= 0; --i) {
    const double crest = CrestOf(kRanges[i], x);
    if (y > crest) return Rock(kRanges[i], x, y, crest);
  }
  return Sky(x, y);
}

Colour Water(double x, double y) {
  const double depth = (y - kHorizon) / (1 - kHorizon);
  const double near = 0.15 + depth;
  const double wave = Clouds(x * 14 / near, 46 * std::log(near + 0.05), 5) - 0.5;
  const double fine = Clouds(x * 70 / near, 160 * std::log(near + 0.05), 3) - 0.5;
  const double ripple = wave * 0.6 + fine * 0.4;
  const double mirrored = 2 * kHorizon - y + ripple * 0.11 * near;
  Colour water = Land(x + ripple * 0.02, std::clamp(mirrored, 0.0, kHorizon - 0.001));
  water = Mix(water * 0.80, {0.05, 0.13, 0.20}, 0.12 + 0.40 * depth);
  const double path = std::exp(-std::pow((x - kSunX) / (0.06 + 0.20 * depth), 2));
  water = water + kSunlight * (path * Smooth(0.10, 0.34, ripple) * 0.75);
  return water;
}

// Where the near shore begins.
double BankAt(double x, double width) {
  const double fromSide = std::min(x / 0.62, (width - x) / 0.36);
  return 0.885 + 0.13 * Smooth(0.0, 1.0, fromSide) + 0.030 * Clouds(x * 7, 3.3, 4);
}

// Whether a place `dx` beside the foot of a pine and `up` above it is dark with its branches.
bool InPine(double dx, double up, double height, double seed) {
  if (up < 0 || up > height) return false;
  const double rung = up / height * 26;
  const double branch = 0.55 + 0.45 * (1 - (rung - std::floor(rung)));
  const double ragged = 0.75 + 0.5 * Noise(dx * 160 + seed, up * 130 + seed);
  const double reach = (height - up) * 0.23 * branch * ragged + 0.0012;
  return std::abs(dx) < reach;
}

struct Pine {
  double x, foot, height;
};

std::vector<Pine> Pines(double width) {
  std::vector<Pine> pines;
  for (int i = 0; i < 30; ++i) {
    const double t = Random(i, 1);
    const bool left = i % 5 != 0;
    const double x = left ? 0.46 * t * t : width - 0.24 * t * t;
    const double height = (0.24 + 0.30 * Random(i, 2)) * (1 - 0.55 * t);
    pines.push_back({x, BankAt(x, width) + 0.01 + 0.05 * Random(i, 3), height});
  }
  return pines;
}

Colour Scene(double x, double y, double width, const std::vector<Pine>& pines) {
  const double bank = BankAt(x, width) + 0.010 * Noise(x * 240, 1);
  for (std::size_t i = 0; i < pines.size(); ++i) {
    const Pine& pine = pines[i];
    if (!InPine(x - pine.x, pine.foot - y, pine.height, static_cast<double>(i) * 9)) continue;
    const double needle = Clouds(x * 240, y * 240, 3);
    const double rim = Smooth(-0.01, 0.02, x - pine.x) * 0.5;
    return Mix({0.015, 0.030, 0.035}, {0.16, 0.17, 0.11}, needle * (0.35 + rim));
  }
  if (y > bank) {
    const double grass = Clouds(x * 150 + 3 * Noise(y * 60, x * 40), y * 40, 5);
    const double light = Smooth(0.3, 0.8, grass) * (0.6 - 2.0 * (y - bank));
    return Mix({0.03, 0.05, 0.03}, {0.38, 0.34, 0.14}, std::clamp(light, 0.0, 1.0));
  }
  return y < kHorizon ? Land(x, y) : Water(x, y);
}

std::uint8_t Byte(double light, double grain) {
  return static_cast<std::uint8_t>(std::clamp(light * 255 + grain, 0.0, 255.0));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: landscape WIDTH HEIGHT > image.ppm\n", stderr);
    return 2;
  }
  const int width = std::atoi(argv[1]), height = std::atoi(argv[2]);
  const double across = static_cast<double>(width) / height;
  const std::vector<Pine> pines = Pines(across);
  std::printf("P6 %d %d 255\n", width, height);
  constexpr int kSamples = 2;  // along each side of a pixel
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      Colour sum;
      for (int s = 0; s < kSamples * kSamples; ++s) {
        const double dx = (s % kSamples + 0.5) / kSamples, dy = (s / kSamples + 0.5) / kSamples;
        sum = sum + Scene((x + dx) / height, (y + dy) / height, across, pines);
      }
      const Colour pixel = sum * (1.0 / (kSamples * kSamples));
      const double grain = 3 * (Random(x, y + 7777) + Random(x + 9999, y) - 1);
      const std::uint8_t bytes[3] = {Byte(pixel.r, grain), Byte(pixel.g, grain),
                                     Byte(pixel.b, grain)};
      std::fwrite(bytes, 1, sizeof bytes, stdout);
    }
  }
  return 0;
}
