// SPDX-License-Identifier: MIT
#include "app/tables/lookup.h"

#include <algorithm>
#include <array>

#include "app/tables/grid.h"
#include "color/table/stored_form.h"

namespace corvane {
namespace {

constexpr int kNodes = kCubeBytes;

// The four nodes of a colour's tetrahedron and their weights, which add to `whole`: the walk from
// the base node of a cell towards its opposite corner, along the axis with the largest fraction
// first. Equal fractions leave nothing to weigh between them.
template <typename Number>
struct Tetrahedron {
  int nodes[4];
  Number weights[4];

  Tetrahedron(int base, const std::array<Number, 3>& fractions, Number whole) {
    int axes[3] = {0, 1, 2};
    std::stable_sort(axes, axes + 3, [&](int i, int j) { return fractions[i] > fractions[j]; });
    nodes[0] = base;
    weights[0] = whole - fractions[axes[0]];
    for (int i = 0; i < 3; ++i) {
      nodes[i + 1] = nodes[i] + kAxisSteps[axes[i]];
      weights[i + 1] = fractions[axes[i]] - (i < 2 ? fractions[axes[i + 1]] : Number{0});
    }
  }
};

// The values of a colour's inks in 256ths.
std::array<int, kInkCount> Interpolate(std::span<const std::uint8_t> table, const Rgb8& rgb) {
  std::array<int, kInkCount> values{};
  if (table.size() == kBlackCurveBytes) {
    values[static_cast<int>(Ink::K)] = 256 * table[255 - ((3 * rgb[0] + 4 * rgb[1] + rgb[2]) >> 3)];
    return values;
  }

  std::array<int, 3> fractions;
  int base = 0;
  for (int i = 0; i < 3; ++i) {
    const int value = 255 - rgb[i];
    const int index = value >> 4;
    fractions[i] = value * 4096 / 255 - 256 * index;
    base += index * kAxisSteps[i];
  }
  const Tetrahedron<int> at(base, fractions, 256);
  const int planes = static_cast<int>(table.size()) / kNodes;
  for (int plane = 0; plane < planes; ++plane) {
    for (int i = 0; i < 4; ++i)
      values[plane] += at.weights[i] * table[plane * kNodes + at.nodes[i]];
  }
  return values;
}

}  // namespace

Contone LookUp(std::span<const std::uint8_t> table, const Rgb8& rgb) {
  const std::array<int, kInkCount> values = Interpolate(table, rgb);
  Contone contone;
  for (int i = 0; i < kInkCount; ++i) contone[i] = static_cast<std::uint8_t>(values[i] >> 8);
  return contone;
}

InkAmounts InterpolatedAmounts(std::span<const std::uint8_t> table, const Rgb8& rgb) {
  const std::array<int, kInkCount> values = Interpolate(table, rgb);
  InkAmounts amounts;
  for (int i = 0; i < kInkCount; ++i) amounts[i] = values[i] / (256.0 * 255.0);
  return amounts;
}

InkAmounts Interpolated(std::span<const InkAmounts> nodes, const Triple& srgb) {
  std::array<double, 3> fractions;
  int base = 0;
  for (int i = 0; i < 3; ++i) {
    const double position = (1.0 - std::clamp(srgb[i], 0.0, 1.0)) * (kCubeEdge - 1);
    const int index = std::min(static_cast<int>(position), static_cast<int>(kCubeEdge) - 2);
    fractions[i] = position - index;
    base += index * kAxisSteps[i];
  }
  const Tetrahedron<double> at(base, fractions, 1.0);
  InkAmounts amounts{};
  for (int i = 0; i < 4; ++i) {
    for (int ink = 0; ink < kInkCount; ++ink) {
      amounts[ink] += at.weights[i] * nodes[static_cast<std::size_t>(at.nodes[i])][ink];
    }
  }
  return amounts;
}

InkAmounts AmountsOf(const Contone& contone) {
  InkAmounts amounts;
  for (int i = 0; i < kInkCount; ++i) amounts[i] = contone[i] / 255.0;
  return amounts;
}

}  // namespace corvane
