// SPDX-License-Identifier: MIT
#include "app/tables/best_inks.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace corvane {
namespace {

constexpr double kPrinted = 0.3;  // Lab distance below which a colour counts as printed
constexpr int kIterations = 40;

// The solution of a symmetric 3 x 3 system.
Triple Solve(const std::array<Triple, 3>& m, const Triple& right) {
  const auto determinant = [](const Triple& a, const Triple& b, const Triple& c) {
    return a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) +
           a[2] * (b[0] * c[1] - b[1] * c[0]);
  };
  const double whole = determinant(m[0], m[1], m[2]);
  return {determinant(right, m[1], m[2]) / whole, determinant(m[0], right, m[2]) / whole,
          determinant(m[0], m[1], right) / whole};
}

double Distance(const Triple& a, const Triple& b) {
  return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

}  // namespace

BestInks::BestInks(const PrintModel& model, const InkChoice& choice)
    : choice_(choice), response_(model) {
  double low = 0.0, high = 100.0;
  for (int step = 0; step < 16; ++step) {
    const double middle = (low + high) / 2.0;
    (CanPrint({middle, 0, 0}) ? high : low) = middle;
  }
  black_ = high;
}

// Amounts inside 0 to 1 and the ink limit, inks that the set lacks at 0.
void BestInks::Confine(InkAmounts& amounts) const {
  for (double& amount : amounts) amount = std::clamp(amount, 0.0, 1.0);
  if (!choice_.blackInk) amounts[static_cast<int>(Ink::K)] = 0;
  if (!choice_.nineInks) {
    amounts[static_cast<int>(Ink::cd)] = amounts[static_cast<int>(Ink::md)] = 0;
  }
  const double total = std::accumulate(amounts.begin(), amounts.end(), 0.0);
  if (total <= choice_.inkLimit) return;
  for (double& amount : amounts) amount *= choice_.inkLimit / total;
}

// Damped Gauss-Newton steps among the inks that may still move: those at a bound that a step would
// cross stand still, and at the ink limit what one takes another gives.
BestInks::Found BestInks::SearchFrom(const Triple& lab, InkAmounts amounts) const {
  Confine(amounts);
  InkResponse here = response_.Respond(amounts);
  double distance = Distance(here.lab, lab), damping = 1.0;
  for (int iteration = 0; iteration < kIterations && distance > kPrinted / 4; ++iteration) {
    const Triple missing = {lab[0] - here.lab[0], lab[1] - here.lab[1], lab[2] - here.lab[2]};
    std::array<double, kInkCount> pull{};
    std::array<bool, kInkCount> moves{};
    const double total = std::accumulate(amounts.begin(), amounts.end(), 0.0);
    for (int ink = 0; ink < kInkCount; ++ink) {
      for (int i = 0; i < 3; ++i) pull[ink] += here.slopes[ink][i] * missing[i];
      moves[ink] = pull[ink] > 0 ? amounts[ink] < 1.0 : amounts[ink] > 0.0;
    }
    if (!choice_.blackInk) moves[static_cast<int>(Ink::K)] = false;
    if (!choice_.nineInks) {
      moves[static_cast<int>(Ink::cd)] = moves[static_cast<int>(Ink::md)] = false;
    }
    Triple common{};
    if (total >= choice_.inkLimit - 1e-9) {
      // The limit binds only if the free inks together want to grow.
      int free = 0;
      double growth = 0;
      for (int ink = 0; ink < kInkCount; ++ink) {
        if (!moves[ink]) continue;
        ++free;
        growth += pull[ink];
        for (int i = 0; i < 3; ++i) common[i] += here.slopes[ink][i];
      }
      for (double& slope : common) slope = growth > 0 && free > 0 ? slope / free : 0.0;
    }
    std::array<Triple, 3> system{};
    for (int i = 0; i < 3; ++i) system[i][i] = damping;
    for (int ink = 0; ink < kInkCount; ++ink) {
      if (!moves[ink]) continue;
      for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
          system[i][j] += (here.slopes[ink][i] - common[i]) * (here.slopes[ink][j] - common[j]);
        }
      }
    }
    const Triple weights = Solve(system, missing);
    InkAmounts next = amounts;
    for (int ink = 0; ink < kInkCount; ++ink) {
      if (!moves[ink]) continue;
      double step = 0;
      for (int i = 0; i < 3; ++i) step += (here.slopes[ink][i] - common[i]) * weights[i];
      next[ink] += std::clamp(step, -0.4, 0.4);
    }
    Confine(next);
    const double nextDistance = Distance(response_.Lab(next), lab);
    if (nextDistance < distance) {
      const bool stalls = nextDistance > 0.999 * distance;
      amounts = next;
      here = response_.Respond(amounts);
      distance = nextDistance;
      damping = std::max(damping / 4.0, 1e-3);
      if (stalls) break;
    } else {
      damping *= 8.0;
      if (damping > 1e7) break;
    }
  }
  return {amounts, here.lab, distance};
}

BestInks::Found BestInks::Nearest(const Triple& lab) const {
  constexpr double kBlacks[] = {0.0, 0.35, 0.8};
  constexpr double kTints[] = {0.3, 0.0, 0.7};
  Found best;
  best.distance = 1e9;
  for (const double tint : kTints) {
    for (const double black : kBlacks) {
      if (black > 0 && !choice_.blackInk) continue;
      InkAmounts start{};
      for (const Ink ink : {Ink::C, Ink::M, Ink::Y}) start[static_cast<int>(ink)] = tint;
      start[static_cast<int>(Ink::K)] = black;
      const Found found = SearchFrom(lab, start);
      if (found.distance < best.distance) best = found;
      if (best.distance < kPrinted) return best;
    }
  }
  return best;
}

bool BestInks::CanPrint(const Triple& lab) const { return Nearest(lab).distance < kPrinted; }

double BestInks::LargestChroma(double lightness, double hue, double most) const {
  double low = 0.0, high = most;
  for (int step = 0; step < 9; ++step) {
    const double middle = (low + high) / 2.0;
    const bool can = CanPrint({lightness, middle * std::cos(hue), middle * std::sin(hue)});
    (can ? low : high) = middle;
  }
  return low;
}

double BestInks::LargestChroma(double hue) const {
  double most = 0.0;
  for (double lightness = std::ceil(black_); lightness < 98; lightness += 3) {
    // Only what passes the best so far is worth a search.
    const double more = most + 0.5;
    if (!CanPrint({lightness, more * std::cos(hue), more * std::sin(hue)})) continue;
    most = LargestChroma(lightness, hue);
  }
  return most;
}

}  // namespace corvane
