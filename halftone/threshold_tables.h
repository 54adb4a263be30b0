// SPDX-License-Identifier: MIT
//
// Threshold tables of the halftone engine. An ink at level v and modulation phase p gets a drop
// where its error exceeds
//
//     bias[v] + (kModulation[p] << modulation shift[v])
//
// Levels run over 0..255, phases over 0..1023, errors in units of 1/16 level: a full drop is
// 4080 = 255 * 16 (4064 = 127 * 32 in the two-drop set). Every threshold is at least 1.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>

namespace corvane {

// One set of thresholds and weights per maximum coverage, in per cent. Set200 serves the two-drop
// inks and is indexed by their full byte; Set1x2 and Set1x2K serve the "1x2" kernels.
enum class CoverageSet : std::uint8_t {
  Set6_25,
  Set12_5,
  Set25,
  Set50,
  Set100,
  Set200,
  Set1x2,
  Set1x2K,
};
inline constexpr int kCoverageSetCount = 8;

inline constexpr int kLevelCount = 256;
inline constexpr int kModulationLength = 1024;

// A value for each level.
template <typename T>
using LevelTable = std::array<T, kLevelCount>;

// The levels from first to last, both included.
struct LevelRange {
  constexpr LevelRange(int level) : first(level), last(level) {}  // NOLINT: 103 reads as 103..103
  constexpr LevelRange(int firstLevel, int lastLevel) : first(firstLevel), last(lastLevel) {}

  int first;
  int last;
};

// Modulation sequence: each of 1..256 four times, in an order without short-range correlation.
extern const std::array<std::int32_t, kModulationLength> kModulation;

// Bias by set and level: 0 at level 0, rising in trend.
extern const std::array<LevelTable<std::int32_t>, kCoverageSetCount> kBias;

// The levels at which the modulation is stronger: twice, and four times the sequence.
constexpr LevelTable<std::uint8_t> MakeModulationShift(
    std::initializer_list<LevelRange> twice, std::initializer_list<LevelRange> fourTimes) {
  LevelTable<std::uint8_t> shift{};
  for (const LevelRange& range : twice) {
    for (int level = range.first; level <= range.last; ++level) shift[level] = 1;
  }
  for (const LevelRange& range : fourTimes) {
    for (int level = range.first; level <= range.last; ++level) shift[level] = 2;
  }
  return shift;
}

// Left shift of the modulation, 0 to 2, by set and level.
inline constexpr std::array<LevelTable<std::uint8_t>, kCoverageSetCount> kModulationShift = {
    // clang-format off
    /* 6.25  */ MakeModulationShift({}, {}),
    /* 12.5  */ MakeModulationShift({}, {}),
    /* 25    */ MakeModulationShift({}, {{249, 255}}),
    /* 50    */ MakeModulationShift({{174, 175}, {245, 246}},
                                    {{125, 139}, {168, 173}, {247, 255}}),
    /* 100   */ MakeModulationShift({87, {122, 123}, {132, 133}, 168},
                                    {{63, 69}, {84, 86}, {124, 131}, {169, 171}, {186, 192}}),
    /* 200   */ MakeModulationShift({61, 66, 84, 189, 194, 212},
                                    {{32, 34}, {42, 43}, {62, 65}, 85, {93, 96},
                                     {160, 162}, {170, 171}, {190, 193}, 213, {221, 224}}),
    /* 1x2   */ MakeModulationShift({{82, 122}}, {{123, 255}}),
    /* 1x2-K */ MakeModulationShift({}, {}),
    // clang-format on
};

// The error above which an ink at `level` gets a drop, at modulation phase `phase`.
inline std::int32_t Threshold(CoverageSet set, int level, int phase) {
  const int index = static_cast<int>(set);
  return kBias[index][level] + (kModulation[phase] << kModulationShift[index][level]);
}

}  // namespace corvane
