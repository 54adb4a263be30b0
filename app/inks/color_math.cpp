// SPDX-License-Identifier: MIT
#include "app/inks/color_math.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace corvane {
namespace {

using Matrix = std::array<Triple, 3>;

constexpr Triple kD50 = {0.9642, 1.0, 0.8249};

constexpr Matrix kXyzOfLinearSrgb = {{{0.4360747, 0.3850649, 0.1430804},
                                      {0.2225045, 0.7168786, 0.0606169},
                                      {0.0139322, 0.0971045, 0.7141733}}};
constexpr Matrix kXyzOfRomm = {
    {{0.7976749, 0.1351917, 0.0313534}, {0.2880402, 0.7118741, 0.0000857}, {0.0, 0.0, 0.8252100}}};

constexpr Triple operator*(const Matrix& m, const Triple& v) {
  Triple product{};
  for (int row = 0; row < 3; ++row) {
    product[row] = m[row][0] * v[0] + m[row][1] * v[1] + m[row][2] * v[2];
  }
  return product;
}

constexpr Matrix operator*(const Matrix& a, const Matrix& b) {
  Matrix product{};
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      for (int k = 0; k < 3; ++k) product[row][column] += a[row][k] * b[k][column];
    }
  }
  return product;
}

constexpr Matrix Inverse(const Matrix& m) {
  Matrix adjugate{};
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      const int r1 = (column + 1) % 3, r2 = (column + 2) % 3;
      const int c1 = (row + 1) % 3, c2 = (row + 2) % 3;
      adjugate[row][column] = m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1];
    }
  }
  const double determinant =
      m[0][0] * adjugate[0][0] + m[0][1] * adjugate[1][0] + m[0][2] * adjugate[2][0];
  for (Triple& row : adjugate) {
    for (double& entry : row) entry /= determinant;
  }
  return adjugate;
}

// Scales the rows so that white goes to (1, 1, 1) exactly: the matrices carry seven digits.
constexpr Matrix KeepingWhite(Matrix m) {
  for (Triple& row : m) {
    const double sum = row[0] + row[1] + row[2];
    for (double& entry : row) entry /= sum;
  }
  return m;
}

constexpr Matrix kBandsOfLinearSrgb = KeepingWhite(Inverse(kXyzOfRomm) * kXyzOfLinearSrgb);
constexpr Matrix kLinearSrgbOfBands = Inverse(kBandsOfLinearSrgb);

// The rows of the band matrix scaled to the D50 white in use.
constexpr Matrix XyzOfBands() {
  Matrix m = KeepingWhite(kXyzOfRomm);
  for (int row = 0; row < 3; ++row) {
    for (double& entry : m[row]) entry *= kD50[row];
  }
  return m;
}
constexpr Matrix kXyzOfBands = XyzOfBands();
constexpr Matrix kBandsOfXyz = Inverse(kXyzOfBands);

constexpr Matrix kConesOfLinearSrgb = KeepingWhite({{{0.4122214708, 0.5363325363, 0.0514459929},
                                                     {0.2119034982, 0.6806995451, 0.1073969566},
                                                     {0.0883024619, 0.2817188376, 0.6299787005}}});
constexpr Matrix kLinearSrgbOfCones = Inverse(kConesOfLinearSrgb);
constexpr Matrix kOklabOfCones = {{{0.2104542553, 0.7936177850, -0.0040720468},
                                   {1.9779984951, -2.4285922050, 0.4505937099},
                                   {0.0259040371, 0.7827717662, -0.8086757660}}};
constexpr Matrix kConesOfOklab = Inverse(kOklabOfCones);

constexpr double kLabLinearBelow = 216.0 / 24389.0;
constexpr double kLabSlope = 24389.0 / 27.0;

double LabCurve(double t) {
  return t > kLabLinearBelow ? std::cbrt(t) : (kLabSlope * t + 16.0) / 116.0;
}

double LabCurveInverse(double f) {
  const double cube = f * f * f;
  return cube > kLabLinearBelow ? cube : (116.0 * f - 16.0) / kLabSlope;
}

double Degrees(double radians) { return radians * 180.0 / std::numbers::pi; }
double Radians(double degrees) { return degrees * std::numbers::pi / 180.0; }

double HueDegrees(double a, double b) {
  if (a == 0.0 && b == 0.0) return 0.0;
  const double hue = Degrees(std::atan2(b, a));
  return hue < 0.0 ? hue + 360.0 : hue;
}

}  // namespace

Triple LinearFromSrgb(const Triple& srgb) {
  Triple linear;
  for (int i = 0; i < 3; ++i) {
    linear[i] = srgb[i] <= 0.04045 ? srgb[i] / 12.92 : std::pow((srgb[i] + 0.055) / 1.055, 2.4);
  }
  return linear;
}

Triple SrgbFromLinear(const Triple& linear) {
  Triple srgb;
  for (int i = 0; i < 3; ++i) {
    const double v = std::clamp(linear[i], 0.0, 1.0);
    srgb[i] = v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
  }
  return srgb;
}

std::uint8_t SrgbByte(double linear) {
  static const std::array<std::uint8_t, 4097> bytes = [] {
    std::array<std::uint8_t, 4097> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
      // Finer where the curve is steep: entry i stands for (i / 4096)^2.
      const double root = static_cast<double>(i) / 4096.0;
      const double encoded = SrgbFromLinear({root * root, 0, 0})[0];
      table[i] = static_cast<std::uint8_t>(std::lround(encoded * 255.0));
    }
    return table;
  }();
  const double part = linear > 0 ? std::min(linear, 1.0) : 0.0;  // 0 of what is no number, too
  return bytes[static_cast<std::size_t>(std::lround(std::sqrt(part) * 4096.0))];
}

Triple BandsFromLinearSrgb(const Triple& linear) { return kBandsOfLinearSrgb * linear; }
Triple LinearSrgbFromBands(const Triple& bands) { return kLinearSrgbOfBands * bands; }
Triple XyzFromBands(const Triple& bands) { return kXyzOfBands * bands; }
Triple BandsFromXyz(const Triple& xyz) { return kBandsOfXyz * xyz; }

Triple LabFromXyz(const Triple& xyz) {
  const double fx = LabCurve(xyz[0] / kD50[0]);
  const double fy = LabCurve(xyz[1] / kD50[1]);
  const double fz = LabCurve(xyz[2] / kD50[2]);
  return {116.0 * fy - 16.0, 500.0 * (fx - fy), 200.0 * (fy - fz)};
}

Triple XyzFromLab(const Triple& lab) {
  const double fy = (lab[0] + 16.0) / 116.0;
  return {kD50[0] * LabCurveInverse(fy + lab[1] / 500.0), kD50[1] * LabCurveInverse(fy),
          kD50[2] * LabCurveInverse(fy - lab[2] / 200.0)};
}

Triple LabFromBands(const Triple& bands) { return LabFromXyz(XyzFromBands(bands)); }
Triple BandsFromLab(const Triple& lab) { return BandsFromXyz(XyzFromLab(lab)); }

// Lab is linear in the cube roots of X, Y and Z, which are linear in the bands.
Triple LabSlope(const Triple& bandSlope, const Triple& xyz) {
  const Triple slope = XyzFromBands(bandSlope);
  const Triple white = XyzFromBands({1, 1, 1});
  Triple root;
  for (int i = 0; i < 3; ++i) {
    const double part = xyz[i] / white[i];
    const double steep = part > kLabLinearBelow ? 1.0 / (3.0 * std::cbrt(part) * std::cbrt(part))
                                                : kLabSlope / 116.0;
    root[i] = steep * slope[i] / white[i];
  }
  return {116.0 * root[1], 500.0 * (root[0] - root[1]), 200.0 * (root[1] - root[2])};
}

// The names of the intermediate quantities are those of the published formula.
double DeltaE2000(const Triple& lab1, const Triple& lab2) {
  const double meanC = (std::hypot(lab1[1], lab1[2]) + std::hypot(lab2[1], lab2[2])) / 2.0;
  const double meanC7 = std::pow(meanC, 7.0);
  constexpr double kPow25To7 = 6103515625.0;
  const double g = 0.5 * (1.0 - std::sqrt(meanC7 / (meanC7 + kPow25To7)));
  const double a1 = (1.0 + g) * lab1[1], a2 = (1.0 + g) * lab2[1];
  const double c1 = std::hypot(a1, lab1[2]), c2 = std::hypot(a2, lab2[2]);
  const double h1 = HueDegrees(a1, lab1[2]), h2 = HueDegrees(a2, lab2[2]);

  const double deltaL = lab2[0] - lab1[0];
  const double deltaC = c2 - c1;
  double deltaHue = c1 * c2 == 0.0 ? 0.0 : h2 - h1;
  if (deltaHue > 180.0) deltaHue -= 360.0;
  if (deltaHue < -180.0) deltaHue += 360.0;
  const double deltaH = 2.0 * std::sqrt(c1 * c2) * std::sin(Radians(deltaHue / 2.0));

  const double meanL = (lab1[0] + lab2[0]) / 2.0;
  const double meanCp = (c1 + c2) / 2.0;
  double meanH = h1 + h2;
  if (c1 * c2 != 0.0) {
    if (std::abs(h1 - h2) > 180.0) meanH += meanH < 360.0 ? 360.0 : -360.0;
    meanH /= 2.0;
  }
  const double t =
      1.0 - 0.17 * std::cos(Radians(meanH - 30.0)) + 0.24 * std::cos(Radians(2.0 * meanH)) +
      0.32 * std::cos(Radians(3.0 * meanH + 6.0)) - 0.20 * std::cos(Radians(4.0 * meanH - 63.0));
  const double offset50 = (meanL - 50.0) * (meanL - 50.0);
  const double sl = 1.0 + 0.015 * offset50 / std::sqrt(20.0 + offset50);
  const double sc = 1.0 + 0.045 * meanCp;
  const double sh = 1.0 + 0.015 * meanCp * t;
  const double meanCp7 = std::pow(meanCp, 7.0);
  const double rotation = 30.0 * std::exp(-std::pow((meanH - 275.0) / 25.0, 2.0));
  const double rt =
      -2.0 * std::sqrt(meanCp7 / (meanCp7 + kPow25To7)) * std::sin(Radians(2.0 * rotation));
  const double l = deltaL / sl, c = deltaC / sc, h = deltaH / sh;
  return std::sqrt(std::max(0.0, l * l + c * c + h * h + rt * c * h));
}

Triple OklabFromLinearSrgb(const Triple& linear) {
  Triple cones = kConesOfLinearSrgb * linear;
  for (double& cone : cones) cone = std::cbrt(cone);
  return kOklabOfCones * cones;
}

Triple LinearSrgbFromOklab(const Triple& oklab) {
  Triple cones = kConesOfOklab * oklab;
  for (double& cone : cones) cone = cone * cone * cone;
  return kLinearSrgbOfCones * cones;
}

}  // namespace corvane
