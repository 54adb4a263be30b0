// SPDX-License-Identifier: MIT
#include "halftone/engine.h"

#include <array>
#include <cstring>

#include "halftone/threshold_tables.h"
#include "halftone/weight_maps.h"

namespace corvane {
namespace {

using LevelRuleTable = std::array<LevelTable<LevelRule>, kCoverageSetCount>;

LevelRuleTable MakeLevelRules() {
  LevelRuleTable rules{};
  for (int set = 0; set < kCoverageSetCount; ++set) {
    for (int level = 0; level < kLevelCount; ++level) {
      rules[set][level] = {static_cast<std::int16_t>(kBias[set][level]),
                           kModulationShift[set][level],
                           static_cast<std::uint8_t>(kWeightMaps[set][level])};
    }
  }
  return rules;
}

}  // namespace

const LevelRule* LevelRulesOf(CoverageSet set) {
  static const LevelRuleTable rules = MakeLevelRules();
  return rules[static_cast<int>(set)].data();
}

std::uint32_t ShiftOf(InkGroup group, const RowState& state) {
  switch (group) {
    case InkGroup::CMY:
      return state.ShiftCMY;
    case InkGroup::cmy:
      return state.Shiftcmy;
    default:
      return state.ShiftK;
  }
}

std::uint32_t ClearOutput(const Kernel& kernel, const RowState& state) {
  const std::uint32_t rowBytes = ((state.outputWidth - 1) / 8 + 1) * kernel.planeCount;
  std::memset(state.output, 0, rowBytes);
  return rowBytes;
}

RowPasses PassesOf(const Kernel& kernel, const RowState& state) {
  const bool odd = state.row % 2 != 0;
  const bool both = state.BothDirections && !kernel.fixedSerpentine;
  return {odd || both, !odd || both};
}

}  // namespace corvane
