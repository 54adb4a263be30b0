// SPDX-License-Identifier: MIT
#include "app/calibration/fit_ramps.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <unsupported/Eigen/NonLinearOptimization>
#include <vector>

#include "app/calibration/colour_weight.h"
#include "app/calibration/least_squares.h"

namespace corvane {
namespace {

using Eigen::Index;
using Eigen::VectorXd;

// Unknowns: the logarithms of n - 1, of the clustering and of each ink's layers, then each ink's
// three densities. Logarithms keep them positive; the weak wish to stay near the start keeps those
// in place that a printer's ramps say nothing about.
constexpr Index kShared = 2, kPerInk = 4;
constexpr double kWish = 0.1;

RampModel ModelOf(const VectorXd& unknowns, std::span<const Ink> inks) {
  RampModel model;
  model.yuleNielsen = 1.0 + std::exp(std::clamp(unknowns[0], -4.0, 4.0));
  model.clustering = std::exp(std::clamp(unknowns[1], -6.0, 4.0));
  for (std::size_t i = 0; i < inks.size(); ++i) {
    const Index first = kShared + kPerInk * static_cast<Index>(i);
    RampLayers& ink = model.inks[static_cast<std::size_t>(inks[i])];
    ink.layers = std::exp(std::clamp(unknowns[first], -3.0, 3.0));
    for (int band = 0; band < 3; ++band) {
      ink.density[static_cast<std::size_t>(band)] = unknowns[first + 1 + band];
    }
  }
  return model;
}

VectorXd UnknownsOf(const RampModel& model, std::span<const Ink> inks) {
  VectorXd unknowns(kShared + kPerInk * static_cast<Index>(inks.size()));
  unknowns[0] = std::log(std::max(model.yuleNielsen - 1.0, 0.02));
  unknowns[1] = std::log(std::max(model.clustering, 0.01));
  for (std::size_t i = 0; i < inks.size(); ++i) {
    const Index first = kShared + kPerInk * static_cast<Index>(i);
    const RampLayers& ink = model.inks[static_cast<std::size_t>(inks[i])];
    unknowns[first] = std::log(ink.layers);
    for (int band = 0; band < 3; ++band) {
      unknowns[first + 1 + band] = ink.density[static_cast<std::size_t>(band)];
    }
  }
  return unknowns;
}

struct RampTint {
  Ink ink;
  double amount;
  Triple lab;
};

struct Residuals : LeastSquares {
  std::vector<RampTint> tints;
  std::span<const Ink> inks;
  VectorXd start;

  int inputs() const { return static_cast<int>(start.size()); }
  int values() const { return static_cast<int>(3 * tints.size()) + inputs(); }

  int operator()(const VectorXd& unknowns, VectorXd& residuals) const {
    const RampModel model = ModelOf(unknowns, inks);
    Index row = 0;
    for (const RampTint& tint : tints) {
      Triple bands = model.Density(tint.ink, tint.amount);
      for (double& band : bands) band = std::pow(10.0, -std::clamp(band, -1.0, 6.0));
      const Eigen::Vector3d difference = SeenDifference(LabFromBands(bands), tint.lab);
      // Large differences count as their square roots do: a single bad patch bends nothing.
      const double size = difference.norm();
      constexpr double kLarge = 3.0;
      const double factor = size > kLarge ? std::sqrt(kLarge / size) : 1.0;
      residuals.segment<3>(row) = factor * difference;
      row += 3;
    }
    residuals.tail(inputs()) = kWish * (unknowns - start);
    return 0;
  }
};

}  // namespace

Triple RampModel::Density(Ink ink, double amount) const {
  const RampLayers& own = inks[static_cast<std::size_t>(ink)];
  Triple density;
  for (std::size_t band = 0; band < 3; ++band) {
    density[band] = LayeredDensity(amount * own.layers, own.density[band], yuleNielsen, clustering);
  }
  return density;
}

RampModel FitRamps(std::span<const MeasuredPatch> patches, std::span<const Ink> inks,
                   const RampModel& start) {
  Residuals residuals;
  residuals.inks = inks;
  residuals.start = UnknownsOf(start, inks);
  for (const MeasuredPatch& patch : patches) {
    if (patch.group != PatchGroup::Ramp) continue;
    const auto* const level = std::max_element(patch.levels.begin(), patch.levels.end());
    residuals.tints.push_back(
        {static_cast<Ink>(level - patch.levels.begin()), *level / 255.0, patch.lab});
  }
  VectorXd unknowns = residuals.start;
  Eigen::NumericalDiff<Residuals> differentiated(residuals);
  Eigen::LevenbergMarquardt<Eigen::NumericalDiff<Residuals>> search(differentiated);
  constexpr int kSteps = 60;
  search.parameters.maxfev = kSteps * static_cast<int>(unknowns.size());
  search.parameters.ftol = search.parameters.xtol = 1e-7;
  search.minimize(unknowns);
  return ModelOf(unknowns, inks);
}

}  // namespace corvane
