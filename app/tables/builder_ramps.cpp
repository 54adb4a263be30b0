// SPDX-License-Identifier: MIT
#include "app/tables/builder_ramps.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace corvane {
namespace {

constexpr int kBlackNode = kNodes - 1;

// Red, green and blue as the bits of a set.
constexpr unsigned kRed = 1, kGreen = 2, kBlue = 4, kAllChannels = 7;

// From one node to the next when the channels of a set each become lighter by a grid step.
int StepOf(unsigned channels) {
  int step = 0;
  for (int i = 0; i < 3; ++i) {
    if (channels >> i & 1) step -= kAxisSteps[i];
  }
  return step;
}

// Ink is taken in steps of this part, about a contone step. A node that needs more than `kMost`
// taken stays as it is: less ink would cost more colour than the fall does.
constexpr double kStep = 1.0 / 256;
constexpr double kMost = 0.04;

// The nodes around a ramp follow it, less and less up to this distance.
constexpr int kReach = 2;

class Ramps {
 public:
  Ramps(std::span<InkAmounts> nodes, const PrintModel& model,
        const std::function<ContoneInks(const InkAmounts&)>& rounded)
      : nodes_(nodes),
        model_(model),
        rounded_(rounded),
        taken_(kNodes, 0.0),
        fixed_(kNodes, false) {}

  // Walks a ramp from its darkest node on.
  void Walk(int node, unsigned channels) {
    fixed_[node] = true;
    InkAmounts darker = Printed(node);
    for (int i = 1; i < kGrid; ++i) {
      node += StepOf(channels);
      fixed_[node] = true;
      Lighten(node, darker);
      darker = Printed(node);
    }
  }

  // Takes ink from the nodes around the ramps, so that these do not stand out.
  void Spread() {
    std::vector<double> around(kNodes, 0.0);
    for (int node = 0; node < kNodes; ++node) {
      if (taken_[node] > 0.0) SpreadFrom(node, around);
    }
    for (int node = 0; node < kNodes; ++node) {
      if (!fixed_[node]) Take(node, around[node]);
    }
  }

 private:
  InkAmounts Printed(int node) const {
    const ContoneInks contone = rounded_(nodes_[node]);
    InkAmounts amounts;
    for (int i = 0; i < kInkCount; ++i) amounts[i] = contone[i] / 255.0;
    return amounts;
  }

  // Whether lightness falls on the way between two nodes.
  bool Falls(const InkAmounts& darker, const InkAmounts& lighter) const {
    constexpr int kParts = 16;
    double last = 0.0;
    for (int part = 0; part <= kParts; ++part) {
      InkAmounts amounts;
      for (int i = 0; i < kInkCount; ++i) {
        amounts[i] = darker[i] + (lighter[i] - darker[i]) * part / kParts;
      }
      const double luminance = XyzFromBands(model_.Bands(amounts))[1];
      if (luminance < last) return true;
      last = luminance;
    }
    return false;
  }

  // Takes ink from a node until lightness does not fall on the way there.
  void Lighten(int node, const InkAmounts& darker) {
    const InkAmounts before = nodes_[node];
    while (Falls(darker, Printed(node))) {
      Take(node, kStep);
      if (taken_[node] <= kMost) continue;
      nodes_[node] = before;
      taken_[node] = 0.0;
      return;
    }
  }

  void Take(int node, double part) {
    for (double& amount : nodes_[node]) amount *= 1.0 - part;
    taken_[node] = 1.0 - (1.0 - taken_[node]) * (1.0 - part);
  }

  void SpreadFrom(int node, std::vector<double>& around) const {
    const int centre[3] = {node / kAxisSteps[0], node / kAxisSteps[1] % kGrid, node % kGrid};
    int from[3], to[3];
    for (int i = 0; i < 3; ++i) {
      from[i] = std::max(centre[i] - kReach + 1, 0);
      to[i] = std::min(centre[i] + kReach - 1, kGrid - 1);
    }
    for (int r = from[0]; r <= to[0]; ++r) {
      for (int g = from[1]; g <= to[1]; ++g) {
        for (int b = from[2]; b <= to[2]; ++b) {
          const int distance =
              std::max({std::abs(r - centre[0]), std::abs(g - centre[1]), std::abs(b - centre[2])});
          double& part = around[r * kAxisSteps[0] + g * kAxisSteps[1] + b];
          part = std::max(part, taken_[node] * (kReach - distance) / kReach);
        }
      }
    }
  }

  std::span<InkAmounts> nodes_;
  const PrintModel& model_;
  const std::function<ContoneInks(const InkAmounts&)>& rounded_;
  std::vector<double> taken_;  // part of a node's ink
  std::vector<bool> fixed_;    // nodes of the ramps
};

}  // namespace

void KeepRampsRising(std::span<InkAmounts> nodes, const PrintModel& model,
                     const std::function<ContoneInks(const InkAmounts&)>& rounded) {
  Ramps ramps(nodes, model, rounded);
  constexpr unsigned kHues[] = {kRed, kGreen, kBlue, kGreen | kBlue, kRed | kBlue, kRed | kGreen};
  ramps.Walk(kBlackNode, kAllChannels);
  for (const unsigned hue : kHues) {
    ramps.Walk(kBlackNode, hue);
    ramps.Walk(kBlackNode + (kGrid - 1) * StepOf(hue), kAllChannels & ~hue);
  }
  ramps.Spread();
}

}  // namespace corvane
