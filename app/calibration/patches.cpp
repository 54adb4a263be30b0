// SPDX-License-Identifier: MIT
#include "app/calibration/patches.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <utility>

#include "app/tables/builder_separation.h"

namespace corvane {
namespace {

constexpr int kWhites = 8;
constexpr int kSpread = 220, kHeldBack = 120;
constexpr int kReferenceMedium = 2;
constexpr double kRampAmounts[] = {0.03, 0.06, 0.1,  0.15, 0.2,  0.27, 0.35,
                                   0.43, 0.52, 0.62, 0.73, 0.86, 1.0};

// The i-th number of a sequence that fills 0 to 1 evenly (Halton), i from 0.
double Even(int i, int base) {
  double value = 0, digit = 1;
  for (int rest = i + 1; rest > 0; rest /= base) {
    digit /= base;
    value += digit * (rest % base);
  }
  return value;
}

constexpr int kPrimes[] = {2, 3, 5, 7, 11, 13, 17, 19, 23, 29, 31};

class ChartMaker {
 public:
  ChartMaker(std::span<const Ink> inks, double inkLimit)
      : inks_(inks.begin(), inks.end()),
        limit_(inkLimit),
        model_(DefaultInkData(), kReferenceMedium),
        light_(model_, RulesFor(Has(Ink::c) ? 1.0 : 0.0)),
        dark_(model_, RulesFor(0.0)) {
    std::sort(inks_.begin(), inks_.end());
  }

  bool Has(Ink ink) const { return std::find(inks_.begin(), inks_.end(), ink) != inks_.end(); }

  void Whites(int count) {
    for (int i = 0; i < count; ++i) patches_.push_back({});
  }

  void Ramps(std::span<const double> amounts) {
    for (const Ink ink : inks_) {
      for (const double amount : amounts) Add({{ink, amount}}, PatchGroup::Ramp);
    }
  }

  // Light and dark inks of a dye together, both inks all the way.
  void HandOvers() {
    constexpr double kLevels[] = {0.3, 0.65, 1.0};
    for (std::size_t i = 0; i < inks_.size(); ++i) {
      for (std::size_t j = i + 1; j < inks_.size(); ++j) {
        if (DyeOf(inks_[i]) != DyeOf(inks_[j])) continue;
        for (const double a : kLevels) {
          for (const double b : kLevels) Add({{inks_[i], a}, {inks_[j], b}}, PatchGroup::HandOver);
        }
      }
    }
  }

  void Overprints() {
    constexpr double kDark[] = {0.25, 0.6, 1.0}, kThin[] = {0.5, 1.0};
    for (std::size_t i = 0; i < inks_.size(); ++i) {
      for (std::size_t j = i + 1; j < inks_.size(); ++j) {
        const Ink first = inks_[i], second = inks_[j];
        if (DyeOf(first) == DyeOf(second)) continue;
        const bool dark = IsDark(first) && IsDark(second);
        // Of dark with light inks one patch shows how they meet.
        if (!dark && (IsDark(first) || IsDark(second))) {
          Add({{first, 0.7}, {second, 0.7}}, PatchGroup::Overprint);
          continue;
        }
        for (const double a : dark ? std::span<const double>(kDark) : kThin) {
          for (const double b : dark ? std::span<const double>(kDark) : kThin) {
            Add({{first, a}, {second, b}}, PatchGroup::Overprint);
          }
        }
      }
    }
    if (!Has(Ink::C)) return;
    constexpr double kThree[] = {0.3, 0.65, 1.0}, kBlack[] = {0.25, 0.6};
    for (const double c : kThree) {
      for (const double m : kThree) {
        for (const double y : kThree) {
          Add({{Ink::C, c}, {Ink::M, m}, {Ink::Y, y}}, PatchGroup::Overprint);
        }
      }
    }
    for (int corner = 1; Has(Ink::K) && corner < 8; ++corner) {
      for (const double k : kBlack) {
        Add({{Ink::C, corner & 1 ? 0.6 : 0},
             {Ink::M, corner & 2 ? 0.6 : 0},
             {Ink::Y, corner & 4 ? 0.6 : 0},
             {Ink::K, k}},
            PatchGroup::Overprint);
      }
    }
  }

  // Black first, then the three dark inks together, then the light ones on top.
  void Totals() {
    if (!Has(Ink::C)) return;
    constexpr int kSteps = 12;
    for (int step = 1; step <= kSteps; ++step) {
      const double total = limit_ * step / kSteps;
      const double black = Has(Ink::K) ? std::min(1.0, total / 4) : 0.0;
      const double dark = std::min(1.0, (total - black) / 3);
      const double light = (total - black - 3 * dark) / 3;
      Add({{Ink::K, black},
           {Ink::C, dark},
           {Ink::M, dark},
           {Ink::Y, dark},
           {Ink::c, light},
           {Ink::m, light},
           {Ink::y, light}},
          PatchGroup::Total);
    }
  }

  // What the model holds for greys, with and without black.
  void Neutrals() {
    if (!Has(Ink::C)) return;
    constexpr int kSteps = 12;
    for (int step = 1; step <= kSteps; ++step) {
      const double grey = static_cast<double>(step) / kSteps;
      for (const double black : {0.0, 0.35}) {
        if (black > 0 && !Has(Ink::K)) continue;
        const double dyes = grey * (1.0 - 0.6 * black);
        Separate({dyes * 0.95, dyes * 0.85, dyes * 0.8, grey * grey * black * 2}, 1.0,
                 PatchGroup::Neutral);
      }
    }
  }

  // Two of three as tables separate, the third any inks. `start` keeps two sets apart.
  void Fill(int count, int start, PatchGroup group) {
    if (!Has(Ink::C)) {
      for (int i = 0; i < count / 10; ++i) {
        Add({{inks_[static_cast<std::size_t>(i) % inks_.size()], Even(start + i, 2)}}, group);
      }
      return;
    }
    for (int i = start; i < start + count; ++i) {
      if (i % 3 == 2) {
        AnyInks(i, group);
        continue;
      }
      // Squares put more of them where little ink shows most; every other one is without black.
      const double black = i % 2 == 0 ? 0.0 : std::pow(Even(i, 7), 2.0);
      Separate(
          {std::pow(Even(i, 2), 1.5), std::pow(Even(i, 3), 1.5), std::pow(Even(i, 5), 1.5), black},
          i % 4 == 0 ? 0.0 : 1.0, group);
    }
  }

  std::vector<ChartPatch> Mixed() {
    // A linear congruential generator (Knuth's MMIX constants): the same order everywhere.
    std::uint64_t state = 20;
    for (std::size_t i = patches_.size(); i > 1; --i) {
      state = state * 6364136223846793005u + 1442695040888963407u;
      std::swap(patches_[i - 1], patches_[(state >> 33) % i]);
    }
    return std::move(patches_);
  }

 private:
  static bool IsDark(Ink ink) {
    return ink == Ink::C || ink == Ink::M || ink == Ink::Y || ink == Ink::K;
  }

  SeparationRules RulesFor(double lightInkUse) const {
    return {.nineInks = Has(Ink::cd),
            .blackInk = Has(Ink::K),
            .inkLimit = limit_,
            .lightInkUse = lightInkUse};
  }

  void Add(const InkAmounts& amounts, PatchGroup group) {
    ChartPatch patch{{}, group};
    double total = 0;
    for (const Ink ink : inks_) total += std::clamp(amounts[static_cast<int>(ink)], 0.0, 1.0);
    const double scale = 255 * std::min(1.0, limit_ / std::max(total, 1e-9));
    for (const double rounding : {0.5, 0.0}) {
      for (const Ink ink : inks_) {
        const double amount = std::clamp(amounts[static_cast<int>(ink)], 0.0, 1.0);
        patch.levels[static_cast<int>(ink)] =
            static_cast<std::uint8_t>(std::floor(amount * scale + rounding));
      }
      if (TotalInk(patch.levels) <= limit_ + 1e-9) break;
    }
    const auto same = [&](const ChartPatch& other) { return other.levels == patch.levels; };
    if (std::none_of(patches_.begin(), patches_.end(), same)) patches_.push_back(patch);
  }

  struct Amount {
    Ink ink;
    double amount;
  };
  void Add(std::initializer_list<Amount> given, PatchGroup group) {
    InkAmounts amounts{};
    for (const auto& [ink, amount] : given) amounts[static_cast<int>(ink)] = amount;
    Add(amounts, group);
  }

  void Separate(const DyeAmounts& dyes, double lightUse, PatchGroup group) {
    Add((lightUse > 0 ? light_ : dark_).AmountsOf(dyes), group);
  }

  void AnyInks(int i, PatchGroup group) {
    InkAmounts amounts{};
    for (std::size_t ink = 0; ink < inks_.size(); ++ink) {
      // About half of the inks, so that colours do not all end up dark.
      amounts[static_cast<int>(inks_[ink])] = std::max(0.0, 2.0 * Even(i, kPrimes[ink]) - 1.0);
    }
    Add(amounts, group);
  }

  std::vector<Ink> inks_;
  double limit_;
  PrintModel model_;
  Separator light_, dark_;  // with light inks as far as they go, and without
  std::vector<ChartPatch> patches_;
};

}  // namespace

std::vector<ChartPatch> ChartPatches(std::span<const Ink> inks, double inkLimit) {
  ChartMaker chart(inks, inkLimit);
  chart.Whites(kWhites);
  chart.Ramps(kRampAmounts);
  chart.HandOvers();
  chart.Overprints();
  chart.Totals();
  chart.Neutrals();
  chart.Fill(kSpread, 100, PatchGroup::Spread);
  chart.Fill(kHeldBack, 1000, PatchGroup::HeldBack);
  return chart.Mixed();
}

std::vector<ChartPatch> UpdatePatches(std::span<const Ink> inks, double inkLimit) {
  constexpr int kPatches = 40, kFewWhites = 4;
  constexpr double kFew[] = {0.12, 0.3, 0.55, 1.0}, kMore[] = {0.1, 0.25, 0.45, 0.7, 1.0};
  ChartMaker chart(inks, inkLimit);
  chart.Whites(kFewWhites);
  const bool more = inks.size() * std::size(kMore) + kFewWhites <= kPatches;
  chart.Ramps(more ? std::span<const double>(kMore) : kFew);
  return chart.Mixed();
}

std::string PatchText(const Contone& levels) {
  std::string text;
  for (int ink = 0; ink < kInkCount; ++ink) {
    if (levels[ink] == 0) continue;
    text +=
        fmt::format("{}{} {:.0f} %", text.empty() ? "" : ", ", kInkNames[ink], levels[ink] / 2.55);
  }
  return text.empty() ? "paper" : text;
}

double TotalInk(const Contone& levels) {
  return std::accumulate(levels.begin(), levels.end(), 0) / 255.0;
}

}  // namespace corvane
