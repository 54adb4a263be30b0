// SPDX-License-Identifier: MIT
#include "app/calibration/spectrum.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace corvane {
namespace {

// The colour matching functions of the CIE 1931 observer and the power of illuminant D50, from 380
// to 730 nm in steps of 10 (CIE 15).
constexpr double kFirst = 380, kStep = 10;
struct Row {
  double x, y, z, light;
};
constexpr Row kRows[] = {
    {0.001368, 0.000039, 0.006450, 24.49},  {0.004243, 0.000120, 0.020050, 29.87},
    {0.014310, 0.000396, 0.067850, 49.31},  {0.043510, 0.001210, 0.207400, 56.51},
    {0.134380, 0.004000, 0.645600, 60.03},  {0.283900, 0.011600, 1.385600, 57.82},
    {0.348280, 0.023000, 1.747060, 74.82},  {0.336200, 0.038000, 1.772110, 87.25},
    {0.290800, 0.060000, 1.669200, 90.61},  {0.195360, 0.090980, 1.287640, 91.37},
    {0.095640, 0.139020, 0.812950, 95.11},  {0.032010, 0.208020, 0.465180, 91.96},
    {0.004900, 0.323000, 0.272000, 95.72},  {0.009300, 0.503000, 0.158200, 96.61},
    {0.063270, 0.710000, 0.078250, 97.13},  {0.165500, 0.862000, 0.042160, 102.10},
    {0.290400, 0.954000, 0.020300, 100.75}, {0.433450, 0.994950, 0.008750, 102.32},
    {0.594500, 0.995000, 0.003900, 100.00}, {0.762100, 0.952000, 0.002100, 97.74},
    {0.916300, 0.870000, 0.001650, 98.92},  {1.026300, 0.757000, 0.001100, 93.50},
    {1.062200, 0.631000, 0.000800, 97.69},  {1.002600, 0.503000, 0.000340, 99.27},
    {0.854450, 0.381000, 0.000190, 99.04},  {0.642400, 0.265000, 0.000050, 95.72},
    {0.447900, 0.175000, 0.000020, 98.86},  {0.283500, 0.107000, 0, 95.67},
    {0.164900, 0.061000, 0, 98.19},         {0.087400, 0.032000, 0, 103.00},
    {0.046770, 0.017000, 0, 99.13},         {0.022700, 0.008210, 0, 87.38},
    {0.011359, 0.004102, 0, 91.60},         {0.005790, 0.002091, 0, 92.89},
    {0.002899, 0.001047, 0, 76.85},         {0.001440, 0.000520, 0, 86.51}};

double ReflectanceAt(const Spectrum& spectrum, double nm) {
  const double last = static_cast<double>(spectrum.reflectance.size() - 1);
  const double position = std::clamp((nm - spectrum.firstNm) / spectrum.stepNm, 0.0, last);
  const auto low = static_cast<std::size_t>(position);
  const std::size_t high = std::min(low + 1, spectrum.reflectance.size() - 1);
  const double part = position - static_cast<double>(low);
  return (1.0 - part) * spectrum.reflectance[low] + part * spectrum.reflectance[high];
}

}  // namespace

Triple XyzOfSpectrum(const Spectrum& spectrum) {
  Triple sum{}, white{};
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    const Row& row = kRows[i];
    const double reflectance = ReflectanceAt(spectrum, kFirst + kStep * static_cast<double>(i));
    const double weights[3] = {row.x, row.y, row.z};
    for (std::size_t k = 0; k < 3; ++k) {
      sum[k] += reflectance * weights[k] * row.light;
      white[k] += weights[k] * row.light;
    }
  }
  // White is that of Lab exactly: the steps of 10 nm miss it by a little.
  const Triple d50 = XyzFromLab({100, 0, 0});
  for (std::size_t k = 0; k < 3; ++k) sum[k] *= d50[k] / white[k];
  return sum;
}

}  // namespace corvane
