// SPDX-License-Identifier: MIT
#include "app/table_builder_separation.h"

#include <algorithm>
#include <cmath>

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
  return {0.6 * strength, std::min(1.2 * strength, 0.8), 0.85, end};
}

// Light inks give way where the total would pass this part of the ink limit: dark inks do with
// less.
constexpr double kLightInkRoom = 0.75;

// Where the search for dye amounts begins.
constexpr Triple kStart = {0.3, 0.3, 0.3};

double SmoothStep(double t) {
  t = std::clamp(t, 0.0, 1.0);
  return t * t * (3.0 - 2.0 * t);
}

// The smallest of three, rounded off where two are nearly equal, exact where all are.
double SoftMinimum(const Triple& values) {
  constexpr double kWidth = 0.05;
  const double least = *std::min_element(values.begin(), values.end());
  double sum = 0.0;
  for (const double value : values) sum += std::exp((least - value) / kWidth);
  return least - kWidth * std::log(sum / 3.0);
}

// Solves the 3 x 3 system whose columns are `columns`.
Triple Solve(const std::array<Triple, 3>& columns, const Triple& right) {
  const auto determinant = [](const Triple& a, const Triple& b, const Triple& c) {
    return a[0] * (b[1] * c[2] - b[2] * c[1]) - b[0] * (a[1] * c[2] - a[2] * c[1]) +
           c[0] * (a[1] * b[2] - a[2] * b[1]);
  };
  const double whole = determinant(columns[0], columns[1], columns[2]);
  return {determinant(right, columns[1], columns[2]) / whole,
          determinant(columns[0], right, columns[2]) / whole,
          determinant(columns[0], columns[1], right) / whole};
}

double TotalInk(const InkAmounts& amounts) {
  double total = 0.0;
  for (const double amount : amounts) total += amount;
  return total;
}

}  // namespace

Separator::Separator(const PrintModel& model, const SeparationRules& rules)
    : model_(model), rules_(rules) {
  for (int dye = 0; dye < 3; ++dye) {
    for (int use = 0; use <= kLightUses; ++use) {
      for (int step = 0; step <= kSteps; ++step) {
        InkAmounts amounts{};
        SplitDye(static_cast<Dye>(dye), static_cast<double>(step) / kSteps,
                 static_cast<double>(use) / kLightUses, amounts);
        Triple& density = dyeCurves_[dye][use][step];
        density = {};
        for (int i = 0; i < kInkCount; ++i) {
          if (amounts[i] <= 0.0) continue;
          const Triple own = model.InkDensity(static_cast<Ink>(i), amounts[i]);
          for (int band = 0; band < 3; ++band) density[band] += own[band];
        }
      }
    }
    for (int step = 0; step <= kSteps; ++step) {
      // Cyan absorbs the first band, magenta the second, yellow the third.
      mainDensity_[dye][step] = dyeCurves_[dye][kLightUses][step][dye];
    }
  }
  for (int step = 0; step <= kSteps; ++step) {
    const Triple density = model.InkDensity(Ink::K, static_cast<double>(step) / kSteps);
    mainDensity_[3][step] = (density[0] + density[1] + density[2]) / 3.0;
  }
  FindBlackPoint();
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
  amounts[static_cast<int>(inks.dark)] = amount;
}

InkAmounts Separator::Split(const Triple& dyes, double black, double lightUse) const {
  InkAmounts amounts{};
  for (int dye = 0; dye < 3; ++dye) {
    SplitDye(static_cast<Dye>(dye), std::clamp(dyes[dye], 0.0, 1.0), lightUse, amounts);
  }
  amounts[static_cast<int>(Ink::K)] = black;
  return amounts;
}

// The largest use of light inks that leaves these dyes some room below the ink limit.
double Separator::LightUse(const Triple& dyes, double black) const {
  const double room = kLightInkRoom * rules_.inkLimit;
  if (TotalInk(Split(dyes, black, 1.0)) <= room) return 1.0;
  double low = 0.0, high = 1.0;
  for (int step = 0; step < 14; ++step) {
    const double middle = (low + high) / 2.0;
    (TotalInk(Split(dyes, black, middle)) <= room ? low : high) = middle;
  }
  return low;
}

// The density of a dye amount and its slope. Beyond 0 and 1 the curve goes on straight, so that a
// colour out of reach still has a solution, and that says how far out it lies.
Triple Separator::DyeDensity(int dye, double amount, double lightUse, Triple* slope) const {
  const double position = amount * kSteps;
  const int step = std::clamp(static_cast<int>(std::floor(position)), 0, kSteps - 1);
  const double usePosition = lightUse * kLightUses;
  const int use = std::min(static_cast<int>(usePosition), kLightUses - 1);
  const double part = usePosition - use;
  const DyeCurve &lower = dyeCurves_[dye][use], &upper = dyeCurves_[dye][use + 1];
  Triple density;
  for (int band = 0; band < 3; ++band) {
    const double here = lower[step][band] + part * (upper[step][band] - lower[step][band]);
    const double next =
        lower[step + 1][band] + part * (upper[step + 1][band] - lower[step + 1][band]);
    density[band] = here + (next - here) * (position - step);
    (*slope)[band] = (next - here) * kSteps;
  }
  return density;
}

// The amounts of the three dyes whose densities add up to `density`, by Newton's method.
Triple Separator::SolveDyes(const Triple& density, double lightUse, Triple dyes) const {
  for (int iteration = 0; iteration < 25; ++iteration) {
    std::array<Triple, 3> slopes;
    Triple rest = density;
    for (int dye = 0; dye < 3; ++dye) {
      const Triple own = DyeDensity(dye, dyes[dye], lightUse, &slopes[dye]);
      for (int band = 0; band < 3; ++band) rest[band] -= own[band];
    }
    if (model_.HasOverprints()) {
      const Triple overprint = model_.OverprintDensity({dyes[0], dyes[1], dyes[2], 0.0}, &slopes);
      for (int band = 0; band < 3; ++band) rest[band] -= overprint[band];
    }
    const Triple step = Solve(slopes, rest);
    double largest = 0.0;
    for (int dye = 0; dye < 3; ++dye) {
      dyes[dye] += std::clamp(step[dye], -0.3, 0.3);
      largest = std::max(largest, std::abs(step[dye]));
    }
    if (largest < 1e-6) break;
  }
  return dyes;
}

Separator::Dyes Separator::SolveWithinLimit(const Triple& density, double black,
                                            const Triple& start) const {
  Dyes dyes = {SolveDyes(density, 1.0, start), 1.0};
  // Another split of a dye has slightly another density, which asks for a little more or less of
  // it.
  for (int iteration = 0; iteration < 3; ++iteration) {
    const double lightUse = LightUse(dyes.amounts, black);
    if (iteration == 0 && lightUse == 1.0) break;
    dyes = {SolveDyes(density, lightUse, dyes.amounts), lightUse};
  }
  return dyes;
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

double Separator::Excess(const Dyes& dyes, double black) const {
  double excess = TotalInk(Split(dyes.amounts, black, dyes.lightUse)) - rules_.inkLimit;
  for (const double amount : dyes.amounts) excess = std::max({excess, -amount, amount - 1.0});
  return excess;
}

// The darkest neutral: all of the black ink, if there is one, and as much of the dyes as the limits
// leave room for.
void Separator::FindBlackPoint() {
  const double black = rules_.blackInk ? 1.0 : 0.0;
  const Triple blackDensity = rules_.blackInk ? model_.InkDensity(Ink::K, 1.0) : Triple{};
  double low = 0.0, high = 6.0;
  for (int step = 0; step < 40; ++step) {
    const double middle = (low + high) / 2.0;
    Triple rest;
    for (int band = 0; band < 3; ++band) rest[band] = middle - blackDensity[band];
    // Below the black ink's own density the dyes come out negative: that is not too dark.
    Dyes dyes = {SolveDyes(rest, 0.0, kStart), 0.0};
    for (double& amount : dyes.amounts) amount = std::max(amount, 0.0);
    (Excess(dyes, black) <= 0.0 ? low : high) = middle;
  }
  blackPointDensity_ = low;
  blackPoint_ = std::pow(10.0, -low);
  blackPointGrey_ = SoftMinimum(SolveDyes({low, low, low}, 1.0, kStart));
}

Separation Separator::Separate(const Triple& bands) const {
  Triple density;
  for (int band = 0; band < 3; ++band) density[band] = -std::log10(std::max(bands[band], 1e-6));

  double black = 0.0;
  Triple start = kStart;
  if (rules_.blackInk) {
    // Black takes over a part of the grey that the three dyes have in common: none up to `first`,
    // the same part as at the black point from `full` on. Paper that takes little ink needs it
    // early.
    start = SolveDyes(density, 1.0, kStart);
    const double grey = SoftMinimum(start);
    const double room = std::min(1.0, rules_.inkLimit / 3.0);
    const double first = 0.9 * (1.0 - rules_.blackStrength) * room;
    const double full = std::max(first + 0.5, std::min(1.2 * room, blackPointGrey_));
    const double progress = (grey - first) / (full - first);
    if (progress > 0.0) {
      const double share = SmoothStep(progress) * SolidDensity(Dye::Black) / blackPointDensity_;
      const double greyDensity = grey / blackPointGrey_ * blackPointDensity_;
      black = DyeAmount(Dye::Black, share * greyDensity);
      const Triple ofBlack = model_.InkDensity(Ink::K, black);
      for (int band = 0; band < 3; ++band) density[band] -= ofBlack[band];
    }
  }
  const Dyes dyes = SolveWithinLimit(density, black, start);
  return {WithinLimit(Split(dyes.amounts, black, dyes.lightUse)), Excess(dyes, black)};
}

InkAmounts Separator::AmountsOf(const std::array<double, kDyeCount>& dyes) const {
  const double black = std::clamp(dyes[3], 0.0, 1.0);
  Triple coloured = {dyes[0], dyes[1], dyes[2]};
  if (!rules_.blackInk) {
    for (double& amount : coloured) amount += black;
  }
  const double ink = rules_.blackInk ? black : 0.0;
  return WithinLimit(Split(coloured, ink, LightUse(coloured, ink)));
}

InkAmounts Separator::WithinLimit(InkAmounts amounts) const {
  const double total = TotalInk(amounts);
  if (total <= rules_.inkLimit) return amounts;
  const double black = std::min(amounts[static_cast<int>(Ink::K)], rules_.inkLimit);
  const double factor = (rules_.inkLimit - black) / (total - black);
  for (double& amount : amounts) amount *= factor;
  amounts[static_cast<int>(Ink::K)] = black;
  return amounts;
}

}  // namespace corvane
