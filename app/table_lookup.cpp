// SPDX-License-Identifier: MIT
#include "app/table_lookup.h"

#include <algorithm>

namespace corvane {
namespace {

constexpr int kNodes = 17 * 17 * 17;
constexpr int kAxisSteps[3] = {289, 17, 1};

// The values of a colour's inks in 256ths.
std::array<int, kInkCount> Interpolate(std::span<const std::uint8_t> table, const Rgb8& rgb) {
  std::array<int, kInkCount> values{};
  if (table.size() == 256) {
    values[static_cast<int>(Ink::K)] = 256 * table[255 - ((3 * rgb[0] + 4 * rgb[1] + rgb[2]) >> 3)];
    return values;
  }

  // The walk from the base node towards the opposite corner of its cell, along the axis with the
  // largest fraction first; equal fractions leave nothing to weigh between them.
  struct Axis {
    int fraction, step;
  };
  Axis axes[3];
  int node = 0;
  for (int i = 0; i < 3; ++i) {
    const int value = 255 - rgb[i];
    const int index = value >> 4;
    axes[i] = {value * 4096 / 255 - 256 * index, kAxisSteps[i]};
    node += index * kAxisSteps[i];
  }
  std::stable_sort(axes, axes + 3,
                   [](const Axis& a, const Axis& b) { return a.fraction > b.fraction; });
  const int nodes[4] = {node, node + axes[0].step, node + axes[0].step + axes[1].step, node + 307};
  const int weights[4] = {256 - axes[0].fraction, axes[0].fraction - axes[1].fraction,
                          axes[1].fraction - axes[2].fraction, axes[2].fraction};
  const int planes = static_cast<int>(table.size()) / kNodes;
  for (int plane = 0; plane < planes; ++plane) {
    for (int i = 0; i < 4; ++i) values[plane] += weights[i] * table[plane * kNodes + nodes[i]];
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

InkAmounts AmountsOf(const Contone& contone) {
  InkAmounts amounts;
  for (int i = 0; i < kInkCount; ++i) amounts[i] = contone[i] / 255.0;
  return amounts;
}

}  // namespace corvane
