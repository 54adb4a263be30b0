// SPDX-License-Identifier: MIT
#include "app/inks/ink_model.h"

#include <algorithm>
#include <cmath>

namespace corvane {
namespace {

constexpr double kSquareMicrometresPerSquareInch = 25400.0 * 25400.0;

// The mean n-th root of what `layers` on average let pass, `root` being that of a single layer.
//
// Drops that lie as error diffusion lays them overlap less than by chance: the number of layers at
// a point follows a binomial distribution whose trials grow with the mean. Without clustering there
// is one trial up to a full layer; with much of it the distribution becomes that of chance
// (Poisson).
double MeanRoot(double layers, double root, double clustering) {
  const double trials = std::max(1.0 + clustering * layers, layers);
  return std::pow(1.0 - layers / trials * (1.0 - root), trials);
}

// The density of an evenly spread dye whose halftoned solid has the density `solid`.
double EvenDensity(double solid, double layers, double n, double clustering) {
  double low = 0.0, high = 20.0;
  for (int step = 0; step < 60; ++step) {
    const double middle = (low + high) / 2.0;
    (LayeredDensity(layers, middle / layers, n, clustering) < solid ? low : high) = middle;
  }
  return (low + high) / 2.0;
}

Triple DensityOfLab(const Triple& lab) {
  Triple density = BandsFromLab(lab);
  for (double& band : density) band = -std::log10(std::max(band, 1e-5));
  return density;
}

std::optional<TintCurve> CurveOf(const std::vector<InkTint>& tints) {
  if (tints.empty()) return std::nullopt;
  std::vector<double> amounts;
  std::vector<Triple> densities;
  for (const InkTint& tint : tints) {
    amounts.push_back(tint.amount);
    densities.push_back(DensityOfLab(tint.lab));
  }
  return TintCurve(amounts, densities);
}

}  // namespace

const InkData& DefaultInkData() {
  static const InkData inks = [] {
    InkData data;
    data.name = "Photo dyes, three strengths";
    data.measured = false;
    data.yuleNielsen = 12.0;
    data.clustering = 0.2;
    data.fullLoad = 3600.0;
    data.spotArea = 283.0;
    data.solids = {{{54, -37, -50}, {48, 75, -5}, {90, -7, 96}, {7, 0, 0}}};
    data.cyanMagenta = Triple{24, 22, -48};
    data.cyanYellow = Triple{50, -66, 29};
    data.magentaYellow = Triple{48, 68, 50};
    data.cyanMagentaYellow = Triple{14, 1, 0};
    data.strength = {1, 1.0 / 3, 1, 1.0 / 3, 1, 1.0 / 3, 1, 2.0 / 3, 2.0 / 3};
    data.media = {{
        {"plain paper", {93, 1, -4}, 0.72, 0.25, 2.0},
        {"coated inkjet paper", {95, 0.5, -3}, 0.88, 0.12, 2.4},
        {"glossy photo paper", {96, 0, -3}, 1.0, 0.0, 3.0},
        {"satin photo paper", {95.5, 0, -2}, 0.96, 0.04, 2.8},
        {"transparency film", {95, 0, 0}, 1.0, 0.0, 2.6},
        {"fine art paper", {95, 0.5, 3}, 0.82, 0.15, 2.5},
    }};
    return data;
  }();
  return inks;
}

double LayeredDensity(double layers, double layerDensity, double n, double clustering) {
  return -n * std::log10(MeanRoot(layers, std::pow(10.0, -layerDensity / n), clustering));
}

InkCurves::InkCurves() {
  for (auto& curve : values) {
    for (int v = 0; v < 256; ++v) curve[v] = static_cast<std::uint8_t>(v);
  }
}

bool InkCurves::IsIdentity() const { return values == InkCurves().values; }

PrintModel::PrintModel(const InkData& inks, int media)
    : n_(inks.yuleNielsen),
      clustering_(inks.clustering),
      gain_(inks.media[media].dotGain),
      density_(inks.media[media].density),
      strength_(inks.strength),
      terms_(inks.overprints),
      mostOfInk_(inks.inkLimit) {
  const Media& medium = inks.media[media];
  const double referenceLayers =
      inks.fullLoad * 1000.0 * inks.spotArea / kSquareMicrometresPerSquareInch;
  spotArea_ = inks.spotArea * (1.0 + medium.dotGain);
  layersAtFull_ = referenceLayers * (1.0 + medium.dotGain);
  inkLimit_ = medium.inkLimit;
  paper_ = BandsFromLab(medium.white);

  std::array<Triple, kDyeCount> solids;
  for (int dye = 0; dye < kDyeCount; ++dye) {
    solids[dye] = DensityOfLab(inks.solids[dye]);
    for (int band = 0; band < 3; ++band) {
      dyeDensity_[dye][band] =
          medium.density * EvenDensity(solids[dye][band], referenceLayers, n_, clustering_);
    }
  }

  const std::optional<Triple>* const given[4] = {&inks.cyanMagenta, &inks.cyanYellow,
                                                 &inks.magentaYellow, &inks.cyanMagentaYellow};
  constexpr int kFirst[3] = {0, 0, 1}, kSecond[3] = {1, 2, 2};
  for (int stack = 0; stack < 4; ++stack) {
    if (!given[stack]->has_value()) continue;
    hasOverprints_ = true;
    const Triple density = DensityOfLab(**given[stack]);
    for (int band = 0; band < 3; ++band) {
      const double sum =
          stack < 3 ? solids[kFirst[stack]][band] + solids[kSecond[stack]][band]
                    : solids[0][band] + solids[1][band] + solids[2][band] +
                          (overprint_[0][band] + overprint_[1][band] + overprint_[2][band]) /
                              medium.density;
      overprint_[stack][band] = medium.density * (density[band] - sum);
    }
  }
  for (OverprintTerm& term : terms_) {
    for (double& band : term.density) band *= medium.density;
  }
  for (int ink = 0; ink < kInkCount; ++ink) tints_[ink] = CurveOf(inks.tints[ink]);
}

Triple PrintModel::LayerDensity(Ink ink) const {
  Triple density = dyeDensity_[static_cast<int>(DyeOf(ink))];
  for (double& band : density) band *= LayerDye(ink);
  return density;
}

Triple PrintModel::InkDensity(Ink ink, double amount) const {
  if (const auto& tints = tints_[static_cast<int>(ink)]) {
    Triple density = tints->At(amount * (1.0 + gain_));
    for (double& band : density) band *= density_;
    return density;
  }
  return LayersDensity(ink, amount);
}

Triple PrintModel::LayersDensity(Ink ink, double amount) const {
  Triple density = LayerDensity(ink);
  for (double& band : density) band = LayeredDensity(amount * layersAtFull_, band, n_, clustering_);
  return density;
}

bool PrintModel::IsBeyondLayers() const {
  return !terms_.empty() || std::any_of(tints_.begin(), tints_.end(),
                                        [](const auto& tints) { return tints.has_value(); });
}

Triple PrintModel::TintBeyondLayers(Ink ink, double amount) const {
  Triple density = InkDensity(ink, amount);
  const Triple layers = LayersDensity(ink, amount);
  for (int band = 0; band < 3; ++band) density[band] -= layers[band];
  return density;
}

Triple PrintModel::OverprintBeyondLayers(const InkAmounts& amounts) const {
  if (terms_.empty()) return {};
  std::array<double, kDyeCount> dyes = DyesOf(amounts);
  for (double& dye : dyes) dye = std::clamp(dye, 0.0, kMostOverprint);
  return TermsOverprint(dyes, amounts, nullptr, nullptr);
}

std::array<double, kDyeCount> PrintModel::DyesOf(const InkAmounts& amounts) const {
  std::array<double, kDyeCount> dyes{};
  for (int ink = 0; ink < kInkCount; ++ink) {
    dyes[static_cast<int>(DyeOf(static_cast<Ink>(ink)))] += amounts[ink] * strength_[ink];
  }
  return dyes;
}

Triple PrintModel::SolidsOverprint(const std::array<double, kDyeCount>& dyes,
                                   DyeSlopes* slopes) const {
  const double c = dyes[0], m = dyes[1], y = dyes[2];
  Triple density;
  for (int band = 0; band < 3; ++band) {
    const double cm = overprint_[0][band], cy = overprint_[1][band], my = overprint_[2][band],
                 cmy = overprint_[3][band];
    density[band] = c * m * cm + c * y * cy + m * y * my + c * m * y * cmy;
    if (slopes == nullptr) continue;
    (*slopes)[0][band] += m * cm + y * cy + m * y * cmy;
    (*slopes)[1][band] += c * cm + y * my + c * y * cmy;
    (*slopes)[2][band] += c * cy + m * my + c * m * cmy;
  }
  return density;
}

Triple PrintModel::TermsOverprint(const std::array<double, kDyeCount>& dyes,
                                  const InkAmounts& amounts, DyeSlopes* dyeSlopes,
                                  std::array<Triple, kInkCount>* inkSlopes) const {
  constexpr int kFactors = kDyeCount + kInkCount;
  std::array<std::array<double, kMostPower + 1>, kFactors> powers;
  for (int i = 0; i < kFactors; ++i) {
    const double amount = i < kDyeCount ? dyes[i] : amounts[i - kDyeCount];
    powers[i][0] = 1.0;
    for (int power = 1; power <= kMostPower; ++power) {
      powers[i][power] = powers[i][power - 1] * amount;
    }
  }
  Triple density{};
  for (const OverprintTerm& term : terms_) {
    const auto powerOf = [&](int i) {
      return i < kDyeCount ? term.dyes[i] : term.inks[i - kDyeCount];
    };
    double product = 1.0;
    for (int i = 0; i < kFactors; ++i) product *= powers[i][powerOf(i)];
    for (int band = 0; band < 3; ++band) density[band] += product * term.density[band];
    for (int i = 0; dyeSlopes != nullptr && i < kFactors; ++i) {
      if (powerOf(i) == 0) continue;
      double slope = powerOf(i) * powers[i][powerOf(i) - 1];
      for (int other = 0; other < kFactors; ++other) {
        if (other != i) slope *= powers[other][powerOf(other)];
      }
      Triple& sum = i < kDyeCount ? (*dyeSlopes)[i] : (*inkSlopes)[i - kDyeCount];
      for (int band = 0; band < 3; ++band) sum[band] += slope * term.density[band];
    }
  }
  return density;
}

Triple PrintModel::OverprintDensity(const InkAmounts& amounts,
                                    std::array<Triple, kInkCount>* slopes) const {
  std::array<double, kDyeCount> dyes = DyesOf(amounts);
  std::array<bool, kDyeCount> varies;
  for (int dye = 0; dye < kDyeCount; ++dye) {
    varies[dye] = dyes[dye] >= 0.0 && dyes[dye] <= kMostOverprint;
    dyes[dye] = std::clamp(dyes[dye], 0.0, kMostOverprint);
  }
  DyeSlopes dyeSlopes{};
  DyeSlopes* const wanted = slopes != nullptr ? &dyeSlopes : nullptr;
  Triple density{};
  if (hasOverprints_) density = SolidsOverprint(dyes, wanted);
  if (!terms_.empty()) {
    const Triple more = TermsOverprint(dyes, amounts, wanted, slopes);
    for (int band = 0; band < 3; ++band) density[band] += more[band];
  }
  for (int ink = 0; slopes != nullptr && ink < kInkCount; ++ink) {
    const int dye = static_cast<int>(DyeOf(static_cast<Ink>(ink)));
    if (!varies[dye]) continue;
    for (int band = 0; band < 3; ++band) {
      (*slopes)[ink][band] += strength_[ink] * dyeSlopes[dye][band];
    }
  }
  return density;
}

Triple PrintModel::Bands(const InkAmounts& amounts) const {
  Triple density{};
  for (int i = 0; i < kInkCount; ++i) {
    if (amounts[i] <= 0.0) continue;
    const Triple own = InkDensity(static_cast<Ink>(i), amounts[i]);
    for (int band = 0; band < 3; ++band) density[band] += own[band];
  }
  const Triple overprint = HasOverprints() ? OverprintDensity(amounts) : Triple{};
  Triple bands;
  for (int band = 0; band < 3; ++band) {
    bands[band] = std::pow(10.0, -(density[band] + overprint[band]));
  }
  return bands;
}

}  // namespace corvane
