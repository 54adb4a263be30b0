// SPDX-License-Identifier: MIT
#include "app/calibration/fit.h"

#include <fmt/format.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "app/calibration/colour_weight.h"
#include "app/calibration/fit_ramps.h"
#include "app/calibration/overprints.h"
#include "app/support/failure.h"

namespace corvane {
namespace {

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

// Where an ink's tints are given.
constexpr std::array<double, 11> kKnots = {0.04, 0.09, 0.16, 0.24, 0.33, 0.43,
                                           0.54, 0.66, 0.78, 0.9,  1.0};
constexpr int kKnotCount = static_cast<int>(kKnots.size());

// How far things may be from what is expected of them, as standard deviations: the smooth part that
// a tint's density may have beyond the physical model's, its bends, the overprints, and the paper.
constexpr double kTintFree = 0.25, kTintBend = 0.02, kOverprintFree = 0.15, kPaperFree = 0.01;
constexpr int kSteps = 12;
constexpr double kLargeResidual = 2.5;  // in standard deviations: those beyond count less

// ---------------------------------------------------------------------------------------------
// The unknowns: densities of tints at the knots, and factors of overprint terms. The density of a
// patch is linear in them, with the same factors for the three bands.

struct Basis {
  std::vector<Ink> inks;
  std::vector<OverprintTerm> terms;
  InkAmounts strength{};
  std::array<std::array<double, kKnotCount>, 256> spline{};  // weights of the knots at a level

  // The last unknown is what the paper is denser than it was taken for.
  Index Paper() const {
    return static_cast<Index>(inks.size()) * kKnotCount + static_cast<Index>(terms.size());
  }
  Index Unknowns() const { return Paper() + 1; }
};

struct Factor {
  Index unknown;
  double weight;
};

void AddTerm(Basis& basis, std::array<int, kDyeCount> dyes) {
  basis.terms.push_back({dyes, {}, {}});
}

// Every two dyes with each up to its square, three and four dyes, and inks of the same dye.
void AddTerms(Basis& basis) {
  std::array<bool, kDyeCount> has{};
  for (const Ink ink : basis.inks) has[static_cast<std::size_t>(DyeOf(ink))] = true;
  for (std::size_t i = 0; i < kDyeCount; ++i) {
    for (std::size_t j = i + 1; j < kDyeCount; ++j) {
      if (!has[i] || !has[j]) continue;
      for (int p = 1; p <= 2; ++p) {
        for (int q = 1; q <= 2; ++q) {
          std::array<int, kDyeCount> dyes{};
          dyes[i] = p;
          dyes[j] = q;
          AddTerm(basis, dyes);
        }
      }
      for (std::size_t k = j + 1; k < kDyeCount; ++k) {
        if (!has[k]) continue;
        for (std::size_t twice = 0; twice <= kDyeCount; ++twice) {
          if (twice < kDyeCount && twice != i && twice != j && twice != k) continue;
          std::array<int, kDyeCount> dyes{};
          dyes[i] = dyes[j] = dyes[k] = 1;
          if (twice < kDyeCount) dyes[twice] = 2;
          AddTerm(basis, dyes);
        }
      }
    }
  }
  if (std::all_of(has.begin(), has.end(), [](bool dye) { return dye; })) {
    AddTerm(basis, {1, 1, 1, 1});
  }
  for (std::size_t i = 0; i < basis.inks.size(); ++i) {
    for (std::size_t j = i + 1; j < basis.inks.size(); ++j) {
      if (DyeOf(basis.inks[i]) != DyeOf(basis.inks[j])) continue;
      OverprintTerm term;
      term.inks[static_cast<std::size_t>(basis.inks[i])] = 1;
      term.inks[static_cast<std::size_t>(basis.inks[j])] = 1;
      basis.terms.push_back(term);
    }
  }
}

Basis BasisOf(std::span<const Ink> inks, const InkAmounts& strength) {
  Basis basis;
  basis.inks.assign(inks.begin(), inks.end());
  basis.strength = strength;
  AddTerms(basis);
  for (int knot = 0; knot < kKnotCount; ++knot) {
    std::array<Triple, kKnotCount> densities{};
    densities[static_cast<std::size_t>(knot)][0] = 1.0;
    const TintCurve curve(kKnots, densities);
    for (std::size_t level = 0; level < 256; ++level) {
      basis.spline[level][static_cast<std::size_t>(knot)] =
          curve.At(static_cast<double>(level) / 255.0)[0];
    }
  }
  return basis;
}

double Power(double base, int power) {
  double product = 1.0;
  for (int i = 0; i < power; ++i) product *= base;
  return product;
}

std::vector<Factor> FactorsOf(const Basis& basis, const Contone& levels) {
  std::vector<Factor> factors = {{basis.Paper(), 1.0}};
  std::array<double, kDyeCount> dyes{};
  for (std::size_t i = 0; i < basis.inks.size(); ++i) {
    const auto ink = static_cast<std::size_t>(basis.inks[i]);
    if (levels[ink] == 0) continue;
    dyes[static_cast<std::size_t>(DyeOf(basis.inks[i]))] +=
        levels[ink] / 255.0 * basis.strength[ink];
    for (int knot = 0; knot < kKnotCount; ++knot) {
      factors.push_back({static_cast<Index>(i) * kKnotCount + knot,
                         basis.spline[levels[ink]][static_cast<std::size_t>(knot)]});
    }
  }
  for (double& dye : dyes) dye = std::min(dye, PrintModel::kMostOverprint);
  const Index first = static_cast<Index>(basis.inks.size()) * kKnotCount;
  for (std::size_t t = 0; t < basis.terms.size(); ++t) {
    double product = 1.0;
    for (std::size_t i = 0; i < kDyeCount; ++i) product *= Power(dyes[i], basis.terms[t].dyes[i]);
    for (std::size_t i = 0; i < kInkCount; ++i) {
      product *= Power(levels[i] / 255.0, basis.terms[t].inks[i]);
    }
    if (product != 0.0) factors.push_back({first + static_cast<Index>(t), product});
  }
  return factors;
}

// A quadratic wish: (sum of weights × unknowns) stays near the same of the start.
struct Wish {
  std::vector<Factor> factors;
  double deviation;
};

std::vector<Wish> WishesOf(const Basis& basis) {
  std::vector<Wish> wishes;
  for (std::size_t i = 0; i < basis.inks.size(); ++i) {
    const Index first = static_cast<Index>(i) * kKnotCount;
    for (int knot = 0; knot < kKnotCount; ++knot) {
      wishes.push_back({{{first + knot, 1.0}}, kTintFree});
      if (knot + 1 == kKnotCount) continue;
      // The bend between three knots (nothing at 0 is the first), as the distance of the middle one
      // from the straight line.
      const double x0 = knot == 0 ? 0.0 : kKnots[static_cast<std::size_t>(knot) - 1];
      const double x1 = kKnots[static_cast<std::size_t>(knot)];
      const double x2 = kKnots[static_cast<std::size_t>(knot) + 1];
      const double t = (x1 - x0) / (x2 - x0);
      Wish bend{{{first + knot, 1.0}, {first + knot + 1, -t}}, kTintBend};
      if (knot > 0) bend.factors.push_back({first + knot - 1, -(1.0 - t)});
      wishes.push_back(std::move(bend));
    }
  }
  const Index terms = static_cast<Index>(basis.inks.size()) * kKnotCount;
  for (std::size_t t = 0; t < basis.terms.size(); ++t) {
    wishes.push_back({{{terms + static_cast<Index>(t), 1.0}}, kOverprintFree});
  }
  wishes.push_back({{{basis.Paper(), 1.0}}, kPaperFree});
  return wishes;
}

// ---------------------------------------------------------------------------------------------
// Gauss-Newton steps on all unknowns.

using Unknowns = Eigen::Matrix<double, Eigen::Dynamic, 3, Eigen::RowMajor>;

struct FitPatch {
  std::vector<Factor> factors;
  Triple lab{};  // against the paper
  Matrix3d seen;
  double weight = 1;
};

Vector3d DensityOf(const std::vector<Factor>& factors, const Unknowns& unknowns) {
  Vector3d density = Vector3d::Zero();
  for (const Factor& factor : factors)
    density += factor.weight * unknowns.row(factor.unknown).transpose();
  return density;
}

Triple BandsOf(const Vector3d& density) {
  Triple bands;
  for (int band = 0; band < 3; ++band) {
    bands[static_cast<std::size_t>(band)] = std::pow(10.0, -std::clamp(density[band], -0.5, 5.0));
  }
  return bands;
}

class Fit {
 public:
  Fit(const Basis& basis, std::vector<FitPatch> patches, Unknowns start)
      : patches_(std::move(patches)), wishes_(WishesOf(basis)), start_(std::move(start)) {}

  Unknowns Solve() {
    Unknowns unknowns = start_;
    for (int step = 0; step < kSteps; ++step) {
      const double deviation = DeviationOf(unknowns);
      unknowns += Step(unknowns, deviation);
    }
    return unknowns;
  }

 private:
  Vector3d ResidualOf(const FitPatch& patch, const Unknowns& unknowns) const {
    const Triple lab = LabFromBands(BandsOf(DensityOf(patch.factors, unknowns)));
    return patch.seen * (ToVector(lab) - ToVector(patch.lab));
  }

  // From the median, so that a few bad patches do not widen it.
  double DeviationOf(const Unknowns& unknowns) const {
    std::vector<double> sizes;
    for (const FitPatch& patch : patches_) sizes.push_back(ResidualOf(patch, unknowns).norm());
    const auto middle = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2);
    std::nth_element(sizes.begin(), middle, sizes.end());
    constexpr double kMedianOfThree = 1.538;  // of the length of three unit deviates
    return std::clamp(*middle / kMedianOfThree, 0.1, 2.0);
  }

  Unknowns Step(const Unknowns& unknowns, double deviation) const {
    const Index size = 3 * unknowns.rows();
    MatrixXd form = MatrixXd::Zero(size, size);
    VectorXd slope = VectorXd::Zero(size);
    for (const FitPatch& patch : patches_) AddPatch(patch, unknowns, deviation, form, slope);
    for (const Wish& wish : wishes_) AddWish(wish, unknowns, form, slope);
    const VectorXd step = -form.selfadjointView<Eigen::Lower>().ldlt().solve(slope);
    return Eigen::Map<const Unknowns>(step.data(), unknowns.rows(), 3);
  }

  static void AddPatch(const FitPatch& patch, const Unknowns& unknowns, double deviation,
                       MatrixXd& form, VectorXd& slope) {
    const Triple bands = BandsOf(DensityOf(patch.factors, unknowns));
    const Triple xyz = XyzFromBands(bands);
    Matrix3d labOfDensity;
    for (int band = 0; band < 3; ++band) {
      Triple change{};
      change[static_cast<std::size_t>(band)] =
          -std::numbers::ln10 * bands[static_cast<std::size_t>(band)];
      labOfDensity.col(band) = ToVector(LabSlope(change, xyz));
    }
    const Matrix3d seen = patch.seen * labOfDensity / deviation;
    const Vector3d residual =
        patch.seen * (ToVector(LabFromXyz(xyz)) - ToVector(patch.lab)) / deviation;
    const double length = residual.norm();
    const double weight = patch.weight * (length > kLargeResidual ? kLargeResidual / length : 1.0);
    const Matrix3d square = weight * seen.transpose() * seen;
    const Vector3d pull = weight * seen.transpose() * residual;
    for (const Factor& row : patch.factors) {
      slope.segment<3>(3 * row.unknown) += row.weight * pull;
      for (const Factor& column : patch.factors) {
        if (column.unknown > row.unknown) continue;
        form.block<3, 3>(3 * row.unknown, 3 * column.unknown) +=
            row.weight * column.weight * square;
      }
    }
  }

  void AddWish(const Wish& wish, const Unknowns& unknowns, MatrixXd& form, VectorXd& slope) const {
    const double weight = 1.0 / (wish.deviation * wish.deviation);
    Vector3d off = DensityOf(wish.factors, unknowns) - DensityOf(wish.factors, start_);
    for (const Factor& row : wish.factors) {
      slope.segment<3>(3 * row.unknown) += weight * row.weight * off;
      for (const Factor& column : wish.factors) {
        if (column.unknown > row.unknown) continue;
        form.block<3, 3>(3 * row.unknown, 3 * column.unknown).diagonal().array() +=
            weight * row.weight * column.weight;
      }
    }
  }

  std::vector<FitPatch> patches_;
  std::vector<Wish> wishes_;
  Unknowns start_;
};

// ---------------------------------------------------------------------------------------------
// From and to ink sets.

// The density of an ink where its dye absorbs most.
double MainDensity(Ink ink, const Triple& density) {
  const Dye dye = DyeOf(ink);
  return dye == Dye::Black ? (density[0] + density[1] + density[2]) / 3.0
                           : density[static_cast<std::size_t>(dye)];
}

constexpr Ink DarkInkOf(Ink ink) {
  constexpr Ink kDark[kDyeCount] = {Ink::C, Ink::M, Ink::Y, Ink::K};
  return kDark[static_cast<int>(DyeOf(ink))];
}

RampModel StartOf(const InkData& base, const FitSettings& settings) {
  const PrintModel model(base, settings.media);
  RampModel start;
  start.yuleNielsen = base.yuleNielsen;
  start.clustering = base.clustering;
  for (int ink = 0; ink < kInkCount; ++ink) {
    start.inks[static_cast<std::size_t>(ink)] = {model.LayersAtFull(),
                                                 model.LayerDensity(static_cast<Ink>(ink))};
  }
  return start;
}

// The amount of the dark ink that looks like half of the light one, doubled: light and dark inks
// then hand over to one another where they are worth the same.
double StrengthOf(const RampModel& ramps, Ink ink) {
  constexpr double kWhere = 0.5;
  const double wanted = MainDensity(ink, ramps.Density(ink, kWhere));
  double low = 0.0, high = 1.0;
  for (int step = 0; step < 40; ++step) {
    const double middle = (low + high) / 2.0;
    const Ink dark = DarkInkOf(ink);
    (MainDensity(dark, ramps.Density(dark, middle)) < wanted ? low : high) = middle;
  }
  return std::clamp(low / kWhere, 0.05, 0.95);
}

Unknowns StartingPoint(const Basis& basis, const RampModel& ramps) {
  Unknowns start = Unknowns::Zero(basis.Unknowns(), 3);
  for (std::size_t i = 0; i < basis.inks.size(); ++i) {
    for (int knot = 0; knot < kKnotCount; ++knot) {
      const Triple density = ramps.Density(basis.inks[i], kKnots[static_cast<std::size_t>(knot)]);
      start.row(static_cast<Index>(i) * kKnotCount + knot) = ToVector(density).transpose();
    }
  }
  return start;
}

Triple LabOfDensity(const Vector3d& density) { return LabFromBands(BandsOf(density)); }

bool Holds(std::span<const Ink> inks, Ink ink) {
  return std::find(inks.begin(), inks.end(), ink) != inks.end();
}

// Whether all that an overprint term multiplies is on the chart.
bool IsOfChart(const OverprintTerm& term, std::span<const Ink> inks) {
  for (std::size_t ink = 0; ink < kInkCount; ++ink) {
    if (term.inks[ink] > 0 && !Holds(inks, static_cast<Ink>(ink))) return false;
  }
  for (std::size_t dye = 0; dye < kDyeCount; ++dye) {
    const auto carries = [&](Ink ink) { return DyeOf(ink) == static_cast<Dye>(dye); };
    if (term.dyes[dye] > 0 && std::none_of(inks.begin(), inks.end(), carries)) return false;
  }
  return true;
}

// What the chart does not show stays as `base` has it on the medium, whose density and gain are in
// the colours themselves from now on. A light ink that is known by its dye alone follows the dark
// ink where that is measured.
void KeepOthers(const InkData& base, const FitSettings& settings, InkData& inks) {
  DissolveOverprintedSolids(inks, settings.media);
  std::erase_if(inks.overprints,
                [&](const OverprintTerm& term) { return IsOfChart(term, settings.inks); });
  for (OverprintTerm& term : inks.overprints) {
    for (double& band : term.density) {
      band *= base.media[static_cast<std::size_t>(settings.media)].density;
    }
  }
  const PrintModel model(base, settings.media);
  for (std::size_t i = 0; i < kInkCount; ++i) {
    const Ink ink = static_cast<Ink>(i);
    const bool follows = base.tints[i].empty() && Holds(settings.inks, DarkInkOf(ink));
    if (follows || Holds(settings.inks, ink)) continue;
    inks.tints[i].clear();
    for (const double amount : kKnots) {
      inks.tints[i].push_back({amount, LabOfDensity(ToVector(model.InkDensity(ink, amount)))});
    }
    if (ink == DarkInkOf(ink)) {
      inks.solids[static_cast<std::size_t>(DyeOf(ink))] = inks.tints[i].back().lab;
    }
  }
}

// Writes the fitted tints, overprints and paper into the set.
void TakeOver(const Basis& basis, const Unknowns& unknowns, int media, InkData& inks) {
  const auto tint = [&](Ink ink, int knot) -> Vector3d {
    const auto found = std::find(basis.inks.begin(), basis.inks.end(), ink);
    return unknowns.row((found - basis.inks.begin()) * kKnotCount + knot).transpose();
  };
  for (const Ink ink : basis.inks) {
    std::vector<InkTint>& tints = inks.tints[static_cast<std::size_t>(ink)];
    tints.clear();
    for (int knot = 0; knot < kKnotCount; ++knot) {
      tints.push_back({kKnots[static_cast<std::size_t>(knot)], LabOfDensity(tint(ink, knot))});
    }
    if (ink == DarkInkOf(ink)) inks.solids[static_cast<std::size_t>(DyeOf(ink))] = tints.back().lab;
  }
  const Index first = static_cast<Index>(basis.inks.size()) * kKnotCount;
  for (std::size_t t = 0; t < basis.terms.size(); ++t) {
    const auto row = unknowns.row(first + static_cast<Index>(t));
    inks.overprints.push_back({basis.terms[t].dyes, basis.terms[t].inks, {row[0], row[1], row[2]}});
  }
  Triple& white = inks.media[static_cast<std::size_t>(media)].white;
  Triple bands = BandsFromLab(white);
  const Triple paper = BandsOf(unknowns.row(basis.Paper()).transpose());
  for (std::size_t band = 0; band < 3; ++band) bands[band] *= paper[band];
  white = LabFromBands(bands);
}

// The media that were not printed on, as the base has them against the one that was.
void RelateMedia(const InkData& base, const FitSettings& settings, const Triple& paper,
                 InkData& inks) {
  const Media& printed = base.media[static_cast<std::size_t>(settings.media)];
  for (Media& medium : inks.media) {
    medium.density = std::clamp(medium.density / printed.density, 0.1, 2.0);
    medium.dotGain = std::clamp((1.0 + medium.dotGain) / (1.0 + printed.dotGain) - 1.0, -0.5, 2.0);
    medium.measured = false;
  }
  Media& measured = inks.media[static_cast<std::size_t>(settings.media)];
  measured.white = paper;
  measured.measured = true;
}

// What the drops of the dark inks wet, so that a preview draws their spots.
void TakeDrops(const RampModel& ramps, const FitSettings& settings, const InkData& base,
               InkData& inks) {
  inks.yuleNielsen = ramps.yuleNielsen;
  inks.clustering = std::min(ramps.clustering, 100.0);
  const PrintModel model(base, settings.media);
  double sum = 0, count = 0;
  for (const Ink ink : settings.inks) {
    if (ink != DarkInkOf(ink)) continue;
    sum += std::log(ramps.inks[static_cast<std::size_t>(ink)].layers);
    ++count;
  }
  if (count == 0) return;
  const double factor = std::exp(sum / count) / model.LayersAtFull();
  const double gain = 1.0 + base.media[static_cast<std::size_t>(settings.media)].dotGain;
  inks.spotArea = std::clamp(base.spotArea * gain * factor, 1.0, 1e4);
}

// The amount beyond which an ink gets no darker.
double UsefulAmount(const PrintModel& model, Ink ink) {
  constexpr int kParts = 50;
  constexpr double kNearlyAll = 0.995;
  const auto density = [&](int part) {
    return MainDensity(ink, model.InkDensity(ink, static_cast<double>(part) / kParts));
  };
  double most = 0;
  for (int part = 1; part <= kParts; ++part) most = std::max(most, density(part));
  int part = 1;
  while (part < kParts && density(part) < kNearlyAll * most) ++part;
  return part >= kParts - 2 ? 1.0 : static_cast<double>(part) / kParts;
}

// The total ink beyond which the patches made for it get no darker; `known` without such patches.
double UsefulTotal(std::span<const MeasuredPatch> patches, const FitSettings& settings,
                   double known) {
  constexpr double kNearlyAll = 0.985;
  std::vector<std::pair<double, double>> totals;  // ink and density
  for (const MeasuredPatch& patch : patches) {
    if (patch.group != PatchGroup::Total) continue;
    totals.emplace_back(TotalInk(patch.levels),
                        -std::log10(std::max(XyzFromLab(patch.lab)[1], 1e-5)));
  }
  std::sort(totals.begin(), totals.end());
  double most = 0;
  for (const auto& [ink, density] : totals) most = std::max(most, density);
  for (const auto& [ink, density] : totals) {
    if (density >= kNearlyAll * most) return std::clamp(ink, 1.0, settings.inkLimit);
  }
  return known;
}

std::vector<MeasuredPatch> AgainstPaper(std::span<const MeasuredPatch> patches,
                                        const Triple& paper) {
  std::vector<MeasuredPatch> relative(patches.begin(), patches.end());
  for (MeasuredPatch& patch : relative) patch.lab = corvane::AgainstPaper(patch.lab, paper);
  return relative;
}

// Tone curves and greys are to be true even where the model cannot be true to all patches.
double WeightOf(PatchGroup group) {
  constexpr double kMuch = 2.0;
  return group == PatchGroup::Ramp || group == PatchGroup::Neutral ? kMuch : 1.0;
}

std::vector<FitPatch> FitPatchesOf(const Basis& basis, std::span<const MeasuredPatch> patches) {
  std::vector<FitPatch> fit;
  for (const MeasuredPatch& patch : patches) {
    if (patch.group == PatchGroup::HeldBack) continue;
    fit.push_back(
        {FactorsOf(basis, patch.levels), patch.lab, SeenBy(patch.lab), WeightOf(patch.group)});
  }
  return fit;
}

}  // namespace

// The mean of those near the median, so that a patch that was not paper does not tint all colours.
Triple PaperOf(std::span<const MeasuredPatch> patches) {
  constexpr double kNear = 4.0;
  std::array<std::vector<double>, 3> values;
  for (const MeasuredPatch& patch : patches) {
    if (patch.group != PatchGroup::White) continue;
    for (std::size_t i = 0; i < 3; ++i) values[i].push_back(patch.lab[i]);
  }
  if (values[0].empty()) throw Failure("no patch without ink is measured");
  Triple median;
  for (std::size_t i = 0; i < 3; ++i) {
    const auto middle = values[i].begin() + static_cast<std::ptrdiff_t>(values[i].size() / 2);
    std::nth_element(values[i].begin(), middle, values[i].end());
    median[i] = *middle;
  }
  Triple sum{};
  double count = 0;
  for (const MeasuredPatch& patch : patches) {
    if (patch.group != PatchGroup::White) continue;
    if ((ToVector(patch.lab) - ToVector(median)).norm() > kNear) continue;
    for (std::size_t i = 0; i < 3; ++i) sum[i] += patch.lab[i];
    ++count;
  }
  if (count == 0) return median;
  return {sum[0] / count, sum[1] / count, sum[2] / count};
}

Triple AgainstPaper(const Triple& lab, const Triple& paper) {
  Triple bands = BandsFromLab(lab);
  const Triple white = BandsFromLab(paper);
  for (std::size_t i = 0; i < 3; ++i) bands[i] = std::max(bands[i] / white[i], 1e-5);
  return LabFromBands(bands);
}

InkData FitInks(std::span<const MeasuredPatch> patches, const FitSettings& settings,
                const InkData& base) {
  const Triple paper = PaperOf(patches);
  const std::vector<MeasuredPatch> relative = AgainstPaper(patches, paper);
  const RampModel ramps = FitRamps(relative, settings.inks, StartOf(base, settings));

  InkData inks = base;
  inks.measured = true;
  KeepOthers(base, settings, inks);
  TakeDrops(ramps, settings, base, inks);
  for (const Ink ink : settings.inks) {
    if (ink != DarkInkOf(ink))
      inks.strength[static_cast<std::size_t>(ink)] = StrengthOf(ramps, ink);
  }
  RelateMedia(base, settings, paper, inks);

  const Basis basis = BasisOf(settings.inks, inks.strength);
  Fit fit(basis, FitPatchesOf(basis, relative), StartingPoint(basis, ramps));
  TakeOver(basis, fit.Solve(), settings.media, inks);
  NameOverprintedSolids(inks, settings.media);

  const PrintModel model(inks, settings.media);
  for (const Ink ink : settings.inks) {
    inks.inkLimit[static_cast<std::size_t>(ink)] = UsefulAmount(model, ink);
  }
  double& inkLimit = inks.media[static_cast<std::size_t>(settings.media)].inkLimit;
  inkLimit = UsefulTotal(relative, settings, inkLimit);
  return inks;
}

}  // namespace corvane
