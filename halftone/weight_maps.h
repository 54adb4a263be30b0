// SPDX-License-Identifier: MIT
//
// Weight maps of the halftone engine: how the error that an ink has left after its drop decision
// is split. One share goes to the pixel below, one to its neighbour on the side already visited
// ("behind"), and the rest stays for the next pixel of the row.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>

#include "halftone/threshold_tables.h"

namespace corvane {

// A share of the error: the sum of up to two arithmetic right shifts, each rounded toward minus
// infinity on its own. A shift of 0 is an absent term.
struct ErrorShare {
  std::uint8_t firstShift;
  std::uint8_t secondShift;

  constexpr std::int32_t Of(std::int32_t error) const {
    return (error >> firstShift) + (secondShift != 0 ? error >> secondShift : 0);
  }
  // In sixteenths of the error.
  constexpr int Sixteenths() const {
    return (16 >> firstShift) + (secondShift != 0 ? 16 >> secondShift : 0);
  }
};

// The pairs of shares in use, named below_behind; e2, e3, e4 are a quarter, an eighth and a
// sixteenth of the error, E2E4 is e2 + e4.
enum class WeightClass : std::uint8_t {
  E4_2E4,
  E3_E3,
  E3_E3E4,
  E3_E2,
  E3_E2E4,
  E3_E2E3,
  E3E4_E2E3,
  E3E4_E2E4,
  E2_E2,
  E2_E2E3,
  E2_E2E4,
  E2E4_E2E4,
  E2_E3,
  E2E3_E3,
};
inline constexpr int kWeightClassCount = 14;

struct ErrorWeights {
  ErrorShare below;
  ErrorShare behind;
};

inline constexpr std::array<ErrorWeights, kWeightClassCount> kErrorWeights = {{
    {{4, 0}, {4, 4}},  // E4_2E4
    {{3, 0}, {3, 0}},  // E3_E3
    {{3, 0}, {3, 4}},  // E3_E3E4
    {{3, 0}, {2, 0}},  // E3_E2
    {{3, 0}, {2, 4}},  // E3_E2E4
    {{3, 0}, {2, 3}},  // E3_E2E3
    {{3, 4}, {2, 3}},  // E3E4_E2E3
    {{3, 4}, {2, 4}},  // E3E4_E2E4
    {{2, 0}, {2, 0}},  // E2_E2
    {{2, 0}, {2, 3}},  // E2_E2E3
    {{2, 0}, {2, 4}},  // E2_E2E4
    {{2, 4}, {2, 4}},  // E2E4_E2E4
    {{2, 0}, {3, 0}},  // E2_E3
    {{2, 3}, {3, 0}},  // E2E3_E3
}};

using WeightMap = LevelTable<WeightClass>;

struct WeightRow {
  WeightClass weights;
  std::initializer_list<LevelRange> levels;
};

// A level that no row names, or that two rows name, gets kWeightClassCount, which is no class.
constexpr WeightMap MakeWeightMap(std::initializer_list<WeightRow> rows) {
  constexpr auto kInvalid = static_cast<WeightClass>(kWeightClassCount);
  WeightMap map{};
  for (int level = 0; level < kLevelCount; ++level) {
    int rowsNamingLevel = 0;
    for (const WeightRow& row : rows) {
      for (const LevelRange& range : row.levels) {
        if (level < range.first || level > range.last) continue;
        map[level] = row.weights;
        ++rowsNamingLevel;
      }
    }
    if (rowsNamingLevel != 1) map[level] = kInvalid;
  }
  return map;
}

// Weight class by set and level. The same map serves every ink and both directions.
inline constexpr std::array<WeightMap, kCoverageSetCount> kWeightMaps = [] {
  using enum WeightClass;
  return std::array<WeightMap, kCoverageSetCount>{
      // clang-format off
      /* 6.25 */
      MakeWeightMap({
          {E4_2E4,    {{0, 8}}},
          {E3_E3,     {{9, 22}}},
          {E3_E3E4,   {{23, 40}}},
          {E3_E2,     {{41, 84}, 103, 121}},
          {E3_E2E4,   {{85, 102}, {104, 120}, {122, 162}, {164, 170}, {172, 228}}},
          {E2_E2,     {163, 171, {229, 255}}},
      }),
      /* 12.5 */
      MakeWeightMap({
          {E4_2E4,    {{0, 4}}},
          {E3_E3,     {{5, 11}}},
          {E3_E3E4,   {{12, 20}}},
          {E3_E2,     {{21, 42}}},
          {E3_E2E4,   {{43, 114}}},
          {E2_E2,     {{115, 208}, {218, 255}}},
          {E3E4_E2E3, {{209, 217}}},
      }),
      /* 25 */
      MakeWeightMap({
          {E4_2E4,    {{0, 2}}},
          {E3_E3,     {{3, 4}}},
          {E3_E3E4,   {{5, 9}}},
          {E3_E2,     {{10, 20}}},
          {E3_E2E4,   {{21, 57}}},
          {E2_E2,     {{58, 127}, {251, 255}}},
          {E2_E2E4,   {{128, 132}}},
          {E2E4_E2E4, {{133, 162}, {200, 250}}},
          {E3E4_E2E3, {{163, 199}}},
      }),
      /* 50 */
      MakeWeightMap({
          {E4_2E4,    {{0, 1}}},
          {E3_E3,     {2}},
          {E3_E3E4,   {{3, 4}}},
          {E3_E2,     {{5, 10}}},
          {E3_E2E4,   {{11, 28}, {164, 167}}},
          {E2_E2,     {{29, 64}, {126, 133}, {144, 157}, {168, 235}}},
          {E2_E2E4,   {{65, 66}}},
          {E2E4_E2E4, {{67, 81}, {100, 125}, {134, 139}, {236, 248}}},
          {E3E4_E2E3, {{82, 99}}},
          {E3_E2E3,   {{140, 143}}},
          {E3E4_E2E4, {{158, 163}}},
          {E2_E2E3,   {{249, 255}}},
      }),
      /* 100 */
      MakeWeightMap({
          {E3_E3,     {{0, 1}, {254, 255}}},
          {E3_E3E4,   {2, 253}},
          {E3_E2,     {{3, 5}, {250, 252}}},
          {E3_E2E4,   {{6, 14}, {82, 83}, {172, 173}, {241, 249}}},
          {E2_E2,     {{15, 32}, {63, 66}, {72, 78}, {84, 117}, {138, 171}, {177, 183}, {189, 192},
                       {223, 240}}},
          {E2_E2E4,   {33, 222}},
          {E2E4_E2E4, {{34, 40}, {50, 62}, {67, 69}, {118, 124}, {131, 137}, {186, 188}, {193, 205},
                       {215, 221}}},
          {E3E4_E2E3, {{41, 49}, {206, 214}}},
          {E3_E2E3,   {{70, 71}, {184, 185}}},
          {E3E4_E2E4, {{79, 81}, {174, 176}}},
          {E2_E2E3,   {{125, 130}}},
      }),
      /* 200, by the full byte of a two-drop ink */
      MakeWeightMap({
          {E3_E3,     {0, {127, 128}, 255}},
          {E3_E3E4,   {1, 129}},
          {E3_E2,     {2, {125, 126}, 130, {253, 254}}},
          {E3_E2E4,   {{3, 7}, 41, 86, {121, 124}, {131, 135}, 169, 214, {249, 252}}},
          {E2_E2,     {{8, 16}, {32, 33}, {36, 39}, {42, 58}, {69, 85}, {89, 91}, {95, 96},
                       {112, 120}, {136, 144}, {160, 161}, {164, 167}, {170, 186}, {197, 213},
                       {217, 219}, {223, 224}, {240, 248}}},
          {E2E4_E2E4, {{17, 20}, {25, 31}, 34, {59, 62}, {66, 68}, {93, 94}, {97, 102}, {108, 110},
                       {145, 148}, {153, 159}, 162, {187, 190}, {194, 196}, {221, 222}, {225, 230},
                       {236, 238}}},
          {E3E4_E2E3, {{21, 24}, {103, 107}, {149, 152}, {231, 235}}},
          {E3_E2E3,   {35, 92, 163, 220}},
          {E3E4_E2E4, {40, {87, 88}, 168, {215, 216}}},
          {E2_E2E3,   {{63, 65}, {191, 193}}},
          {E2_E2E4,   {111, 239}},
      }),
      /* 1x2 */
      MakeWeightMap({
          {E3_E2,     {{0, 4}}},
          {E2_E2,     {{5, 25}}},
          {E2E4_E2E4, {{26, 255}}},
      }),
      /* 1x2-K */
      MakeWeightMap({
          {E2_E3,     {{0, 21}}},
          {E2_E2,     {{22, 77}, {81, 117}, {158, 160}, {214, 255}}},
          {E2E3_E3,   {{78, 80}, {118, 157}, {161, 213}}},
      }),
      // clang-format on
  };
}();

// The shares of an ink of `set` at `level`.
constexpr const ErrorWeights& WeightsOf(CoverageSet set, int level) {
  return kErrorWeights[static_cast<int>(kWeightMaps[static_cast<int>(set)][level])];
}

constexpr bool EveryLevelHasOneClass() {
  for (const WeightMap& map : kWeightMaps) {
    for (const WeightClass weights : map) {
      if (static_cast<int>(weights) >= kWeightClassCount) return false;
    }
  }
  return true;
}
static_assert(EveryLevelHasOneClass());

}  // namespace corvane
