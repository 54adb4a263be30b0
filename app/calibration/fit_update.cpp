// SPDX-License-Identifier: MIT
//
// Recalibration: what a known printer's inks have become. An ink that lays more or less is what it
// was at another amount; that amount, and how dense its solid is, are all that is looked for.
#include <fmt/format.h>

#include <Eigen/Dense>
#include <algorithm>
#include <array>
#include <cmath>
#include <unsupported/Eigen/NonLinearOptimization>
#include <vector>

#include "app/calibration/colour_weight.h"
#include "app/calibration/fit.h"
#include "app/calibration/least_squares.h"
#include "app/calibration/overprints.h"
#include "app/support/failure.h"

namespace corvane {
namespace {

using Eigen::VectorXd;

// The ink now lays at an amount a what it once laid at gain × a + bend × a (1 - a), with `density`
// times its density.
struct Change {
  double gain = 1, bend = 0, density = 1;

  double Amount(double amount) const {
    return std::max(0.0, gain * amount + bend * amount * (1.0 - amount));
  }
};

// How far changes are expected to go, in Lab differences a unit: a few patches say little.
constexpr double kGainWish = 1.0, kBendWish = 6.0, kDensityWish = 12.0;

struct Tint {
  double amount;
  Triple lab;  // against the paper
};

Change ChangeOf(const VectorXd& unknowns) {
  return {std::exp(unknowns[0]), unknowns[1], std::exp(unknowns[2])};
}

Triple DensityNow(const PrintModel& known, Ink ink, const Change& change, double amount) {
  Triple density = known.InkDensity(ink, change.Amount(amount));
  for (double& band : density) band *= change.density;
  return density;
}

Triple LabOf(Triple density) {
  for (double& band : density) band = std::pow(10.0, -std::clamp(band, -0.5, 5.0));
  return LabFromBands(density);
}

struct Residuals : LeastSquares {
  const PrintModel* known;
  Ink ink;
  std::vector<Tint> tints;

  int inputs() const { return 3; }
  int values() const { return static_cast<int>(3 * tints.size()) + inputs(); }

  int operator()(const VectorXd& unknowns, VectorXd& residuals) const {
    const Change change = ChangeOf(unknowns);
    for (std::size_t i = 0; i < tints.size(); ++i) {
      const Triple lab = LabOf(DensityNow(*known, ink, change, tints[i].amount));
      residuals.segment<3>(static_cast<Eigen::Index>(3 * i)) = SeenDifference(lab, tints[i].lab);
    }
    residuals.tail<3>() << kGainWish * unknowns[0], kBendWish * unknowns[1],
        kDensityWish * unknowns[2];
    return 0;
  }
};

Change FindChange(const PrintModel& known, Ink ink, std::vector<Tint> tints) {
  Residuals residuals{{}, &known, ink, std::move(tints)};
  VectorXd unknowns = VectorXd::Zero(residuals.inputs());
  Eigen::NumericalDiff<Residuals> differentiated(residuals);
  Eigen::LevenbergMarquardt<Eigen::NumericalDiff<Residuals>> search(differentiated);
  search.minimize(unknowns);
  return ChangeOf(unknowns);
}

std::vector<Tint> TintsOf(std::span<const MeasuredPatch> patches, const Triple& paper, Ink ink) {
  std::vector<Tint> tints;
  for (const MeasuredPatch& patch : patches) {
    const std::uint8_t level = patch.levels[static_cast<std::size_t>(ink)];
    if (patch.group != PatchGroup::Ramp || level == 0) continue;
    tints.push_back({level / 255.0, AgainstPaper(patch.lab, paper)});
  }
  return tints;
}

// What inks lie in an overprint term, so the term follows their gains.
void ScaleTerms(const std::array<Change, kInkCount>& changes, InkData& inks) {
  constexpr Ink kDark[kDyeCount] = {Ink::C, Ink::M, Ink::Y, Ink::K};
  for (OverprintTerm& term : inks.overprints) {
    double factor = 1.0;
    for (std::size_t dye = 0; dye < kDyeCount; ++dye) {
      factor *= std::pow(changes[static_cast<std::size_t>(kDark[dye])].gain, term.dyes[dye]);
    }
    for (std::size_t ink = 0; ink < kInkCount; ++ink) {
      factor *= std::pow(changes[ink].gain, term.inks[ink]);
    }
    for (double& band : term.density) band *= factor;
  }
}

// Whether the set was measured on the medium. In a set that does not say on which, the medium that
// all is relative to is taken for it.
bool IsMeasuredOn(const InkData& known, const Media& medium) {
  if (!known.measured) return false;
  const bool says = std::any_of(known.media.begin(), known.media.end(),
                                [](const Media& other) { return other.measured; });
  return says ? medium.measured : medium.density == 1.0 && medium.dotGain == 0.0;
}

constexpr std::array<double, 11> kAmounts = {0.04, 0.09, 0.16, 0.24, 0.33, 0.43,
                                             0.54, 0.66, 0.78, 0.9,  1.0};

}  // namespace

InkData UpdateInks(std::span<const MeasuredPatch> patches, const FitSettings& settings,
                   const InkData& known) {
  const Media& calibrated = known.media[static_cast<std::size_t>(settings.media)];
  if (!IsMeasuredOn(known, calibrated)) {
    throw Failure(
        fmt::format("{}: the inks were not calibrated on {}", known.name, calibrated.name));
  }
  const Triple paper = PaperOf(patches);
  const PrintModel before(known, settings.media);
  InkData inks = known;
  DissolveOverprintedSolids(inks, settings.media);
  std::array<Change, kInkCount> changes{};
  for (const Ink ink : settings.inks) {
    const auto i = static_cast<std::size_t>(ink);
    changes[i] = FindChange(before, ink, TintsOf(patches, paper, ink));
    inks.tints[i].clear();
    for (const double amount : kAmounts) {
      inks.tints[i].push_back({amount, LabOf(DensityNow(before, ink, changes[i], amount))});
    }
    constexpr Ink kDark[kDyeCount] = {Ink::C, Ink::M, Ink::Y, Ink::K};
    const auto dye = static_cast<std::size_t>(DyeOf(ink));
    if (ink == kDark[dye]) inks.solids[dye] = inks.tints[i].back().lab;
  }
  for (const Ink ink : settings.inks) {
    constexpr Ink kDark[kDyeCount] = {Ink::C, Ink::M, Ink::Y, Ink::K};
    const auto i = static_cast<std::size_t>(ink);
    const auto dark = static_cast<std::size_t>(kDark[static_cast<std::size_t>(DyeOf(ink))]);
    if (i != dark) {
      inks.strength[i] =
          std::clamp(inks.strength[i] * changes[i].gain / changes[dark].gain, 0.05, 0.95);
    }
  }
  ScaleTerms(changes, inks);
  Media& medium = inks.media[static_cast<std::size_t>(settings.media)];
  medium.white = paper;
  if (settings.inks.size() > 1) NameOverprintedSolids(inks, settings.media);
  return inks;
}

}  // namespace corvane
