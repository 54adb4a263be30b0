// SPDX-License-Identifier: MIT
#include "app/inks/tint_curve.h"

#include <algorithm>

namespace corvane {

TintCurve::TintCurve(std::span<const double> amounts, std::span<const Triple> densities)
    : amounts_{0.0}, densities_{Triple{}} {
  amounts_.insert(amounts_.end(), amounts.begin(), amounts.end());
  densities_.insert(densities_.end(), densities.begin(), densities.end());
  bends_.resize(amounts_.size());

  // The tridiagonal system of a natural spline, eliminated from the front.
  const std::size_t last = amounts_.size() - 1;
  std::vector<double> factor(amounts_.size());
  for (std::size_t i = 1; i < last; ++i) {
    const double before = amounts_[i] - amounts_[i - 1], after = amounts_[i + 1] - amounts_[i];
    const double pivot = 2.0 * (before + after) - before * factor[i - 1];
    factor[i] = after / pivot;
    for (int band = 0; band < 3; ++band) {
      const double turn = (densities_[i + 1][band] - densities_[i][band]) / after -
                          (densities_[i][band] - densities_[i - 1][band]) / before;
      bends_[i][band] = (6.0 * turn - before * bends_[i - 1][band]) / pivot;
    }
  }
  for (std::size_t i = last; i-- > 1;) {
    for (int band = 0; band < 3; ++band) bends_[i][band] -= factor[i] * bends_[i + 1][band];
  }
}

Triple TintCurve::At(double amount) const {
  const std::size_t last = amounts_.size() - 1;
  const auto above = std::upper_bound(amounts_.begin() + 1, amounts_.end() - 1, amount);
  const auto i = static_cast<std::size_t>(above - amounts_.begin());
  const double width = amounts_[i] - amounts_[i - 1];
  Triple density;
  for (int band = 0; band < 3; ++band) {
    const double low = densities_[i - 1][band], high = densities_[i][band];
    const double bendLow = bends_[i - 1][band], bendHigh = bends_[i][band];
    if (amount > amounts_[last]) {
      const double slope = (high - low) / width + width * (2.0 * bendHigh + bendLow) / 6.0;
      density[band] = high + slope * (amount - amounts_[last]);
      continue;
    }
    const double t = (amount - amounts_[i - 1]) / width, s = 1.0 - t;
    density[band] = s * low + t * high +
                    width * width * ((s * s * s - s) * bendLow + (t * t * t - t) * bendHigh) / 6.0;
  }
  return density;
}

}  // namespace corvane
