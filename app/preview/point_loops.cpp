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

// The binary logarithm of 0 < x <= 1, to about 1e-7: the exponent, and the series of the inverse
// hyperbolic tangent for the rest between the roots of a half and of two.
inline float BinaryLogarithm(float x) {
  const auto bits = __builtin_bit_cast(std::int32_t, x);
  const std::int32_t whole = (bits - 0x3F3504F3) >> 23;
  const float mantissa = __builtin_bit_cast(float, bits - (whole << 23));
  const float t = (mantissa - 1.0f) / (mantissa + 1.0f), tt = t * t;
  return static_cast<float>(whole) +
         t * (2.88539008f +
              tt * (0.96179669f + tt * (0.57707802f + tt * (0.41219858f + tt * 0.32059890f))));
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

void AddAbsorbed(const float* __restrict roots, int perSample, std::size_t samples,
                 float* __restrict sums) {
  if (perSample == 2) {
    for (std::size_t i = 0; i < samples; ++i) {
      sums[i] += (1.0f - roots[2 * i]) + (1.0f - roots[2 * i + 1]);
    }
    return;
  }
  for (std::size_t i = 0; i < samples; ++i) {
    for (int point = 0; point < perSample; ++point) sums[i] += 1.0f - *roots++;
  }
}

void AddLayerSums(const std::uint16_t* __restrict layers, int perSample, std::size_t samples,
                  float* __restrict sums) {
  if (perSample == 2) {
    for (std::size_t i = 0; i < samples; ++i) {
      sums[i] += static_cast<float>(layers[2 * i]) + static_cast<float>(layers[2 * i + 1]);
    }
    return;
  }
  for (std::size_t i = 0; i < samples; ++i) {
    for (int point = 0; point < perSample; ++point) sums[i] += static_cast<float>(*layers++);
  }
}

void Spread(const float* const (&rows)[kSpreadTaps], const float (&weights)[kSpreadReach + 1],
            std::size_t samples, float* __restrict work, float* __restrict spread) {
  static_assert(kSpreadReach == 2);
  const auto [near, next, far] = weights;
  const float* const r0 = rows[0];
  const float* const r1 = rows[1];
  const float* const r2 = rows[2];
  const float* const r3 = rows[3];
  const float* const r4 = rows[4];
  float* const middle = work + kSpreadReach;
  for (std::size_t i = 0; i < samples; ++i) {
    middle[i] = near * r2[i] + next * (r1[i] + r3[i]) + far * (r0[i] + r4[i]);
  }
  for (std::size_t i = 0; i < samples; ++i) {
    spread[i] =
        near * work[i + 2] + next * (work[i + 1] + work[i + 3]) + far * (work[i] + work[i + 4]);
  }
}

void AbsorbedLight(float n, float scale, std::size_t samples, float* __restrict absorbed) {
  for (std::size_t i = 0; i < samples; ++i) {
    const float root = Larger(1.0f - absorbed[i] * scale, 1e-30f);
    absorbed[i] = 1.0f - PowerOfTwo(Smaller(Larger(n * BinaryLogarithm(root), -120.0f), 0.0f));
  }
}

void AddWeighted(const float* __restrict row, std::size_t samples, float weightA,
                 float* __restrict a, float weightB, float* __restrict b) {
  for (std::size_t i = 0; i < samples; ++i) {
    a[i] += weightA * row[i];
    b[i] += weightB * row[i];
  }
}

}  // namespace

const PointLoops kPointLoops = {AddLayers, RootsOfDyes,   AddAbsorbed, AddLayerSums,
                                Spread,    AbsorbedLight, AddWeighted};

}  // namespace corvane::CORVANE_SIMD_NAMESPACE
