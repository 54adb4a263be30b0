// SPDX-License-Identifier: MIT
#include "app/tables/check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

#include "app/tables/builder.h"
#include "app/tables/check_picture.h"

namespace corvane {
namespace {

constexpr int kNodes = 17 * 17 * 17;
constexpr int kGlossy = 2;

// What any inks print, the search finds again, with inks inside the limits; beyond lies nothing.
TEST(BestInks, FindsEveryColourThatInksPrint) {
  const PrintModel model(DefaultInkData(), 0);
  const InkChoice choice = {true, true, model.InkLimit()};
  const BestInks best(model, choice);
  std::mt19937 random(3);
  std::uniform_real_distribution<double> part(0, 1);
  for (int i = 0; i < 300; ++i) {
    InkAmounts amounts;
    for (double& amount : amounts) amount = std::max(0.0, part(random) * 1.6 - 0.6);
    const double total = std::accumulate(amounts.begin(), amounts.end(), 0.0);
    for (double& amount : amounts) amount *= std::min(1.0, choice.inkLimit / total);
    const Triple lab = LabFromBands(model.Bands(amounts));
    const BestInks::Found found = best.Nearest(lab);
    ASSERT_LT(found.distance, 0.5) << lab[0] << ' ' << lab[1] << ' ' << lab[2];
    ASSERT_LE(std::accumulate(found.amounts.begin(), found.amounts.end(), 0.0),
              choice.inkLimit + 1e-9);
    ASSERT_LT(DeltaE2000(LabFromBands(model.Bands(found.amounts)), lab), 0.5);
  }
  EXPECT_FALSE(best.CanPrint({best.Black() - 2, 0, 0}));
  EXPECT_FALSE(best.CanPrint({50, 0, -90}));
  EXPECT_GT(best.LargestChroma(1.7), 60);
}

TEST(InkResponse, GivesTheModelsColoursAndTheirSlopes) {
  const PrintModel model(DefaultInkData(), kGlossy);
  const InkResponseTable table(model);
  const InkAmounts amounts = {0.3, 0.2, 0.55, 0.1, 0.4, 0.3, 0.15, 0.25, 0.05};
  const InkResponse response = table.Respond(amounts);
  const Triple exact = LabFromBands(model.Bands(amounts));
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(response.lab[i], exact[i], 0.01);
  for (int ink = 0; ink < kInkCount; ++ink) {
    InkAmounts more = amounts, less = amounts;
    more[ink] += 0.02;
    less[ink] -= 0.02;
    const Triple above = LabFromBands(model.Bands(more)), below = LabFromBands(model.Bands(less));
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(response.slopes[ink][i], (above[i] - below[i]) / 0.04, 0.6) << ink << ' ' << i;
    }
  }
}

// A fault put into a table that had none of its kind is found, where it was put.
TEST(TableCheck, FindsFaultsThatWerePutIn) {
  const TableKey key = {.inkClass = 2, .media = kGlossy, .quality = 1, .intent = 1};
  const IndexedTable sound = {{2, kGlossy, 0, 1, 1}, TableBuilder(DefaultInkData()).Build(key)};
  IndexedTable hole = sound, flooded = sound;
  const auto node = [](int r, int g, int b) { return (r * 17 + g) * 17 + b; };
  for (int plane = 0; plane < 7; ++plane) {
    hole.bytes[static_cast<std::size_t>(plane * kNodes + node(8, 9, 9))] = 0;
    flooded.bytes[static_cast<std::size_t>(plane * kNodes + node(16, 16, 16))] = 255;
  }
  const IndexedTable tables[] = {sound, hole, flooded};
  const std::vector<TableCheck> checks = CheckTables(tables, DefaultInkData(), 2, [] {});
  ASSERT_EQ(checks.size(), 3u);
  EXPECT_GT(checks[0].inside, 300);
  EXPECT_GT(checks[1].holes, checks[0].holes);
  EXPECT_GT(checks[1].worstInside.value, 15);
  for (const double channel : checks[1].worstInside.at) EXPECT_NEAR(channel, 0.46, 0.07);
  EXPECT_GT(checks[1].bend.value, checks[0].bend.value);
  EXPECT_GT(checks[1].fall.value, checks[0].fall.value);
  EXPECT_LE(checks[0].ink, checks[0].inkLimit);
  EXPECT_DOUBLE_EQ(checks[2].ink, 7);
  EXPECT_GT(MissesOf(checks[2]).size(), MissesOf(checks[0]).size());

  const PrintModel model(DefaultInkData(), kGlossy);
  EXPECT_GT(DrawTableCheck(sound, model, "sound").Shapes().size(), 1000u);
}

}  // namespace
}  // namespace corvane
