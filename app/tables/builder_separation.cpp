// SPDX-License-Identifier: MIT
#include "app/tables/builder_separation.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "app/tables/smooth_step.h"

namespace corvane {
namespace {

// A lighter ink takes all of its dye up to `turn`, is used most at `peak` and gives way to the
// darker ink, until at a dye amount of `end` none is left. Both inks' amounts are smooth in the
// dye's, and the darker ink's never falls.
struct Crossover {
  double turn, peak, peakAmount, end;
};

// A cubic with the given values and slopes at both ends of [x0, x1].
double Hermite(double x, double x0, double y0, double slope0, double x1, double y1, double slope1) {
  const double width = x1 - x0, t = (x - x0) / width, s = 1.0 - t;
  return y0 * s * s * (1 + 2 * t) + y1 * t * t * (3 - 2 * t) +
         width * t * s * (slope0 * s - slope1 * t);
}

double LighterInk(double dye, double strength, const Crossover& crossover) {
  if (dye <= crossover.turn) return dye / strength;
  if (dye <= crossover.peak) {
    return Hermite(dye, crossover.turn, crossover.turn / strength, 1.0 / strength, crossover.peak,
                   crossover.peakAmount, 0.0);
  }
  if (dye >= crossover.end) return 0.0;
  return Hermite(dye, crossover.peak, crossover.peakAmount, 0.0, crossover.end, 0.0, 0.0);
}

// The crossover from a lighter ink of this strength, gone at the dye amount `end`.
Crossover CrossoverOf(double strength, double end) {
  return {0.6 * strength, std::min({1.2 * strength, 0.8, end - 0.1}), 0.85, end};
}

double TotalInk(const InkAmounts& amounts) {
  return std::accumulate(amounts.begin(), amounts.end(), 0.0);
}

double GreyDensity(double lightness) { return -std::log10(XyzFromLab({lightness, 0, 0})[1]); }

}  // namespace

Separator::Separator(const PrintModel& model, const SeparationRules& rules)
    : model_(model), rules_(rules) {
  for (int dye = 0; dye < kDyeCount; ++dye) {
    for (int step = 0; step <= kSteps; ++step) {
      DyeAmounts dyes{};
      dyes[dye] = static_cast<double>(step) / kSteps;
      const InkAmounts amounts = Split(dyes, rules_.lightInkUse);
      double& main = mainDensity_[dye][step];
      main = 0;
      for (int ink = 0; ink < kInkCount; ++ink) {
        if (amounts[ink] <= 0.0) continue;
        const Triple own = model.InkDensity(static_cast<Ink>(ink), amounts[ink]);
        // Cyan absorbs the first band, magenta the second, yellow the third.
        main += dye < 3 ? own[dye] : (own[0] + own[1] + own[2]) / 3.0;
      }
    }
  }
}

void Separator::SplitDye(Dye dye, double amount, double lightUse, InkAmounts& amounts) const {
  struct Inks {
    Ink dark, light, medium;
  };
  constexpr Inks kInks[3] = {
      {Ink::C, Ink::c, Ink::cd}, {Ink::M, Ink::m, Ink::md}, {Ink::Y, Ink::y, Ink::Y}};
  const Inks& inks = kInks[static_cast<int>(dye)];
  const auto take = [&](Ink ink, const Crossover& crossover) {
    const double strength = model_.Strength(ink);
    const double part = lightUse * LighterInk(amount, strength, crossover);
    amounts[static_cast<int>(ink)] = part;
    amount -= part * strength;
  };
  const bool medium = rules_.nineInks && inks.medium != inks.dark;
  take(inks.light, CrossoverOf(model_.Strength(inks.light), medium ? 0.7 : 0.9));
  if (medium) take(inks.medium, CrossoverOf(model_.Strength(inks.medium), 1.0));
  amounts[static_cast<int>(inks.dark)] = std::min(amount, 1.0);
  // More than the dark ink's solid is printed with the light ink on top.
  if (amount > 1.0) {
    amounts[static_cast<int>(inks.light)] += (amount - 1.0) / model_.Strength(inks.light);
  }
}

double Separator::MostOf(Dye dye) const {
  constexpr Ink kLight[3] = {Ink::c, Ink::m, Ink::y};
  return dye == Dye::Black ? 1.0 : 1.0 + model_.Strength(kLight[static_cast<int>(dye)]);
}

double Separator::LeastInk(const DyeAmounts& dyes, DyeAmounts* slopes) const {
  double total = 0.0;
  for (int dye = 0; dye < kDyeCount; ++dye) {
    const bool beyond = dyes[dye] > 1.0;
    const double slope = beyond ? 1.0 / (MostOf(static_cast<Dye>(dye)) - 1.0) : 1.0;
    total += beyond ? 1.0 + (dyes[dye] - 1.0) * slope : dyes[dye];
    if (slopes != nullptr) (*slopes)[dye] = slope;
  }
  return total;
}

InkAmounts Separator::Split(const DyeAmounts& dyes, double lightUse) const {
  InkAmounts amounts{};
  for (int dye = 0; dye < 3; ++dye) {
    SplitDye(static_cast<Dye>(dye), std::clamp(dyes[dye], 0.0, MostOf(static_cast<Dye>(dye))),
             lightUse, amounts);
  }
  amounts[static_cast<int>(Ink::K)] = std::clamp(dyes[3], 0.0, 1.0);
  for (int ink = 0; ink < kInkCount; ++ink) {
    amounts[ink] = std::min(amounts[ink], model_.InkLimit(static_cast<Ink>(ink)));
  }
  return amounts;
}

// As much use of light inks as there is room for, rounded off where the room ends.
double Separator::LightUse(const DyeAmounts& dyes) const {
  if (rules_.lightInkUse <= 0.0) return 0.0;
  const double room = std::min(rules_.lightInkRoom, 0.97 * rules_.inkLimit);
  const double dark = TotalInk(Split(dyes, 0.0)), light = TotalInk(Split(dyes, 1.0));
  if (dark >= room) return 0.0;
  if (light <= dark + 1e-9) return rules_.lightInkUse;
  const double part = (room - dark) / (light - dark) / rules_.lightInkUse;
  return rules_.lightInkUse * part / std::pow(1.0 + std::pow(part, 6.0), 1.0 / 6.0);
}

InkAmounts Separator::AmountsOf(const DyeAmounts& dyes) const {
  DyeAmounts printed = dyes;
  if (!rules_.blackInk) {
    for (int dye = 0; dye < 3; ++dye) printed[dye] += std::clamp(dyes[3], 0.0, 1.0);
    printed[3] = 0.0;
  }
  return WithinLimit(Split(printed, LightUse(printed)));
}

double Separator::DyeAmount(Dye dye, double density) const {
  const auto& curve = mainDensity_[static_cast<int>(dye)];
  if (density <= 0.0) return 0.0;
  if (density >= curve.back()) return 1.0;
  const auto above = std::upper_bound(curve.begin(), curve.end(), density);
  const int step = static_cast<int>(above - curve.begin());
  const double rise = curve[step] - curve[step - 1];
  return (step - 1 + (density - curve[step - 1]) / rise) / kSteps;
}

double Separator::WantedBlack(const Triple& lab, double black) const {
  constexpr double kColoured = 24.0;  // chroma at which a colour is no grey any more
  if (!rules_.blackInk) return 0.0;
  const Triple bands = BandsFromLab(lab);
  // The grey that the three dyes have in common: where the colour absorbs least.
  const double lightest = *std::max_element(bands.begin(), bands.end());
  const double grey = -std::log10(std::clamp(lightest, 1e-6, 1.0));
  const double from = GreyDensity(rules_.blackFrom), darkest = GreyDensity(black);
  const double progress = (grey - from) / std::max(darkest - from, 0.1);
  const double most = std::min(1.0, SolidDensity(Dye::Black) / darkest);
  double share = rules_.blackShare * SmoothStep(progress) * most;
  if (rules_.blackGreys) {
    share += (1.0 - share) * (1.0 - SmoothStep(std::hypot(lab[1], lab[2]) / kColoured));
  }
  return DyeAmount(Dye::Black, share * grey);
}

InkAmounts Separator::WithinLimit(InkAmounts amounts) const {
  for (int ink = 0; ink < kInkCount; ++ink) {
    amounts[ink] = std::min(amounts[ink], model_.InkLimit(static_cast<Ink>(ink)));
  }
  const double total = TotalInk(amounts);
  if (total <= rules_.inkLimit) return amounts;
  const double black = std::min(amounts[static_cast<int>(Ink::K)], rules_.inkLimit);
  const double factor = (rules_.inkLimit - black) / (total - black);
  for (double& amount : amounts) amount *= factor;
  amounts[static_cast<int>(Ink::K)] = black;
  return amounts;
}

}  // namespace corvane
