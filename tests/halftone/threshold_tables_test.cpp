// SPDX-License-Identifier: MIT
#include "halftone/threshold_tables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <set>
#include <utility>
#include <vector>

#include "halftone/weight_maps.h"

namespace corvane {
namespace {

using testing::ElementsAreArray;

constexpr int kSet25 = static_cast<int>(CoverageSet::Set25);
constexpr int kSet50 = static_cast<int>(CoverageSet::Set50);
constexpr int kSet100 = static_cast<int>(CoverageSet::Set100);
constexpr int kSet200 = static_cast<int>(CoverageSet::Set200);

TEST(Modulation, HoldsEveryValueFourTimesInTheFixedOrder) {
  std::map<int, int> occurrences;
  std::int64_t weightedSum = 0;
  for (int i = 0; i < kModulationLength; ++i) {
    ++occurrences[kModulation[i]];
    weightedSum += std::int64_t{i} * kModulation[i];
  }
  EXPECT_EQ(occurrences.size(), 256u);
  for (int value = 1; value <= 256; ++value) EXPECT_EQ(occurrences[value], 4) << value;

  const std::vector<int> first = {178, 192, 37,  86,  55,  50,  160, 50,  162, 164,
                                  169, 117, 247, 7,   169, 170, 100, 153, 159, 229,
                                  67,  50,  223, 213, 191, 173, 232, 97,  15,  36,
                                  85,  10,  138, 25,  47,  58,  90,  68,  226, 48};
  EXPECT_THAT(std::vector<int>(kModulation.begin(), kModulation.begin() + 40),
              ElementsAreArray(first));
  EXPECT_EQ(kModulation.back(), 33);
  EXPECT_EQ(weightedSum, 67650820);
}

TEST(Bias, HasTheFixedPointsAndSums) {
  const struct {
    CoverageSet set;
    std::vector<int> first;    // levels 0 to 7
    int atFull, largest, sum;  // at level 255, and over all levels
  } facts[] = {
      {CoverageSet::Set6_25, {0, 15, 15, 17, 29, 31, 31, 45}, 479, 495, 71657},
      {CoverageSet::Set12_5, {0, 15, 29, 31, 47, 39, 45, 53}, 907, 907, 124913},
      {CoverageSet::Set25, {0, 29, 47, 45, 61, 63, 77, 91}, 1169, 1331, 200215},
      {CoverageSet::Set50, {0, 47, 61, 77, 101, 103, 123, 145}, 1573, 2233, 324307},
      {CoverageSet::Set100, {0, 61, 101, 123, 165, 207, 213, 247}, 3823, 3823, 478045},
      {CoverageSet::Set200, {0, 101, 165, 213, 283, 353, 419, 485}, 3807, 3813, 476185},
      {CoverageSet::Set1x2, {0, 0, 0, 0, 0, 0, 0, 0}, 0, 0, 0},
      {CoverageSet::Set1x2K, {0, 45, 90, 136, 181, 226, 271, 317}, 6502, 6502, 849915},
  };
  for (const auto& fact : facts) {
    SCOPED_TRACE(static_cast<int>(fact.set));
    const auto& bias = kBias[static_cast<int>(fact.set)];
    EXPECT_THAT(std::vector<int>(bias.begin(), bias.begin() + 8), ElementsAreArray(fact.first));
    EXPECT_EQ(bias[255], fact.atFull);
    EXPECT_EQ(*std::max_element(bias.begin(), bias.end()), fact.largest);
    EXPECT_EQ(*std::min_element(bias.begin(), bias.end()), 0);
    EXPECT_EQ(std::accumulate(bias.begin(), bias.end(), 0), fact.sum);
  }
  EXPECT_EQ(kBias[kSet25][100], 729);
  EXPECT_EQ(kBias[kSet200][127], 3813);
  EXPECT_EQ(kBias[kSet200][128], 1);
}

// What a level adds to the error per binary pixel.
int InputOf(int set, int level) { return (set == kSet200 ? level % 128 : level) << set; }

using SetAndLevel = std::pair<int, int>;

// Calls `visit` with the levels of two different sets that put in the same, sets 6.25 to 200.
template <typename Visit>
void ForEachSharedInput(Visit visit) {
  std::map<int, std::vector<SetAndLevel>> levelsByInput;
  for (int set = 0; set <= kSet200; ++set) {
    for (int level = 0; level < kLevelCount; ++level) {
      levelsByInput[InputOf(set, level)].push_back({set, level});
    }
  }
  for (const auto& [input, levels] : levelsByInput) {
    for (const SetAndLevel& a : levels) {
      for (const SetAndLevel& b : levels) {
        if (a.first < b.first) visit(input, a, b);
      }
    }
  }
}

// The sets are samples of one curve: where two of them put in the same, they agree.
TEST(ThresholdSets, AgreeWhereTheyPutInTheSame) {
  std::set<int> inputsWithOtherClass;
  std::set<int> inputsWithOtherWeights;
  ForEachSharedInput([&](int input, SetAndLevel a, SetAndLevel b) {
    if (kModulationShift[a.first][a.second] != kModulationShift[b.first][b.second]) {
      inputsWithOtherClass.insert(input);
    }
    if (kWeightMaps[a.first][a.second] != kWeightMaps[b.first][b.second]) {
      inputsWithOtherWeights.insert(input);
    }
  });
  EXPECT_THAT(inputsWithOtherClass, ElementsAreArray({1952}));
  EXPECT_THAT(inputsWithOtherWeights, ElementsAreArray({0, 20, 40, 84, 420, 424, 428, 432, 512}));
}

TEST(ThresholdSets, Set100IsAMirrorImageAndSet200RepeatsIt) {
  for (int level = 0; level < kLevelCount; ++level) {
    SCOPED_TRACE(level);
    EXPECT_EQ(kModulationShift[kSet100][level], kModulationShift[kSet100][255 - level]);
    EXPECT_EQ(kWeightMaps[kSet100][level], kWeightMaps[kSet100][255 - level]);
    EXPECT_EQ(kModulationShift[kSet200][level], kModulationShift[kSet200][(level + 128) % 256]);
    EXPECT_EQ(kWeightMaps[kSet200][level], kWeightMaps[kSet200][(level + 128) % 256]);
    if (level >= 128) continue;
    EXPECT_EQ(kModulationShift[kSet200][level], kModulationShift[kSet100][2 * level]);
    EXPECT_EQ(kWeightMaps[kSet200][level], kWeightMaps[kSet100][2 * level]);
  }
}

TEST(ThresholdSets, SelectTheRowOfTheModulationByLevel) {
  EXPECT_EQ(Threshold(CoverageSet::Set25, 100, 0), 729 + 178);
  EXPECT_EQ(Threshold(CoverageSet::Set25, 255, 1), 1169 + 4 * 192);
  EXPECT_EQ(Threshold(CoverageSet::Set50, 174, 2), kBias[kSet50][174] + 2 * 37);
  EXPECT_EQ(Threshold(CoverageSet::Set1x2, 81, 3), 86);
  EXPECT_EQ(Threshold(CoverageSet::Set1x2, 82, 3), 2 * 86);
  EXPECT_EQ(Threshold(CoverageSet::Set1x2, 123, 3), 4 * 86);
  EXPECT_EQ(Threshold(CoverageSet::Set1x2K, 255, 1023), 6502 + 33);
}

TEST(ErrorShares, ShiftEveryTermOnItsOwn) {
  struct Case {
    CoverageSet set;
    int level;
    int error, below, behind;
  };
  const std::vector<Case> cases = {
      {CoverageSet::Set25, 100, -680, -170, -170},  // e2, e2
      {CoverageSet::Set25, 100, 350, 87, 87},
      {CoverageSet::Set25, 2, 15, 0, 0},  // e4, 2 e4: not 15 >> 3
      {CoverageSet::Set25, 2, -1, -1, -2},
      {CoverageSet::Set25, 199, -17, -5, -8},      // e3 + e4, e2 + e3
      {CoverageSet::Set50, 255, 1000, 250, 375},   // e2, e2 + e3
      {CoverageSet::Set100, 70, 1000, 125, 375},   // e3, e2 + e3
      {CoverageSet::Set200, 40, 1000, 187, 312},   // e3 + e4, e2 + e4
      {CoverageSet::Set1x2K, 0, 100, 25, 12},      // e2, e3
      {CoverageSet::Set1x2K, 78, -100, -38, -13},  // e2 + e3, e3
      {CoverageSet::Set12_5, 30, 100, 12, 25},     // e3, e2
      {CoverageSet::Set6_25, 40, 100, 12, 18},     // e3, e3 + e4
      {CoverageSet::Set6_25, 172, 100, 12, 31},    // e3, e2 + e4
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "set " << static_cast<int>(c.set) << " level " << c.level);
    EXPECT_EQ(WeightsOf(c.set, c.level).below.Of(c.error), c.below);
    EXPECT_EQ(WeightsOf(c.set, c.level).behind.Of(c.error), c.behind);
  }
}

}  // namespace
}  // namespace corvane
