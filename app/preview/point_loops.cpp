// SPDX-License-Identifier: MIT
//
// One body for every level, the plain one too. Per-level code must not share inline functions with
// other levels: no standard templates here.
#include "app/preview/point_loops.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

inline float Smaller(float a, float b) { return b < a ? b : a; }
inline float Larger(float a, float b) { return a < b ? b : a; }

// 2^x for -120 <= x <= 0, to about 2e-5: the whole part as an exponent, a polynomial for the rest.
inline float PowerOfTwo(float x) {
  const auto whole = static_cast<std::int32_t>(x);  // toward 0
  const float t = x - static_cast<float>(whole);    // above -1, up to 0
  const float mantissa =
      1.0f +
      t * (0.69314718f +
           t * (0.24022651f +
                t * (0.05550411f + t * (0.00961813f + t * (0.00133336f + t * 0.00015404f)))));
  return mantissa * __builtin_bit_cast(float, (whole + 127) << 23);
}

void AddLayers(const std::uint16_t* __restrict layers, std::size_t points, float dyeOfLayer,
               float* __restrict dye, std::uint16_t* __restrict totals) {
  for (std::size_t x = 0; x < points; ++x) {
    dye[x] += dyeOfLayer * static_cast<float>(layers[x]);
    totals[x] = static_cast<std::uint16_t>(totals[x] + layers[x] / 8);
  }
}

void RootsOfDyes(const BandFactors& factors, const float* const (&dyes)[kDyeCount],
                 std::size_t points, float* __restrict roots) {
  const float* __restrict const c = dyes[0];
  const float* __restrict const m = dyes[1];
  const float* __restrict const y = dyes[2];
  const float* __restrict const k = dyes[3];
  const auto most = static_cast<float>(PrintModel::kMostOverprint);
  const auto [dyeC, dyeM, dyeY, dyeK] = factors.dye;
  const auto [cm, cy, my, cmy] = factors.overprint;
  for (std::size_t x = 0; x < points; ++x) {
    const float cc = Smaller(c[x], most), mm = Smaller(m[x], most), yy = Smaller(y[x], most);
    const float sum = c[x] * dyeC + m[x] * dyeM + y[x] * dyeY + k[x] * dyeK + cc * mm * cm +
                      yy * (cc * cy + mm * my + cc * mm * cmy);
    roots[x] = PowerOfTwo(Smaller(Larger(sum, -120.0f), 0.0f));
  }
}

}  // namespace

const PointLoops kPointLoops = {AddLayers, RootsOfDyes};

}  // namespace corvane::CORVANE_SIMD_NAMESPACE
