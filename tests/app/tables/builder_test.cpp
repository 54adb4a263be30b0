// SPDX-License-Identifier: MIT
#include "app/tables/builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "app/support/failure.h"
#include "app/tables/check.h"
#include "app/tables/lookup.h"

namespace corvane {
namespace {

constexpr TableKey kSevenGlossy = {.inkClass = 2, .media = 2, .quality = 1};

std::vector<TableKey> DistinctKeys(const TableBuilder& builder) {
  std::vector<TableKey> keys;
  for (int place = 0; place < kTableCount; ++place) {
    const TableKey key = TableKeyOf(place);
    EXPECT_EQ(PlaceOf(key), place);
    if (builder.Representative(key) == key) keys.push_back(key);
  }
  return keys;
}

// Every tuple that is said to share a table does, and the tables differ in size by ink class.
TEST(TableBuilder, RepresentativesStandForIdenticalTables) {
  const TableBuilder builder(DefaultInkData());
  for (const TableKey& key : {TableKey{0, 1, 1, 3, 1}, TableKey{1, 2, 1, 2, 1},
                              TableKey{2, 3, 0, 3, 0}, TableKey{3, 4, 1, 0, 1}}) {
    const TableKey first = builder.Representative(key);
    EXPECT_NE(first, key);
    EXPECT_EQ(builder.Representative(first), first);
    EXPECT_EQ(builder.Build(first), builder.Build(key));
    EXPECT_EQ(builder.Build(key).size(), TableBytes(key));
  }
  EXPECT_LT(DistinctKeys(builder).size(), 200u);
}

TEST(TableBuilder, KeepsWhiteWhiteAndTheInkLimitAtEveryNode) {
  TableSettings tight;
  tight.inkLimit = 1.7;
  const TableBuilder builders[] = {TableBuilder(DefaultInkData()),
                                   TableBuilder(DefaultInkData(), tight)};
  int number = 0;
  for (const TableBuilder& builder : builders) {
    for (const TableKey& key : DistinctKeys(builder)) {
      // A part of those of plain paper: each takes seconds.
      const bool isTried = key.media == 0 && ++number % 5 == 0;
      if (!isTried && !(key == kSevenGlossy)) continue;
      const std::vector<std::uint8_t> table = builder.Build(key);
      const int planes = static_cast<int>(std::max<std::size_t>(table.size() / 4913, 1));
      const int nodes = static_cast<int>(table.size()) / planes;
      for (int plane = 0; plane < planes; ++plane) EXPECT_EQ(table[plane * nodes], 0);
      const int most = static_cast<int>(builder.InkLimit(key) * 255.0);
      for (int node = 0; node < nodes; ++node) {
        int total = 0;
        for (int plane = 0; plane < planes; ++plane) total += table[plane * nodes + node];
        ASSERT_LE(total, most);
      }
    }
  }
}

TEST(TableBuilder, MeetsTheWantedColoursInsideTheGamut) {
  const PrintModel model(DefaultInkData(), kSevenGlossy.media);
  TableKey key = kSevenGlossy;
  key.intent = 1;
  for (const int inkClass : {2, 3}) {
    key.inkClass = inkClass;
    const std::vector<std::uint8_t> table = TableBuilder(DefaultInkData()).Build(key);
    for (const Rgb8& rgb : {Rgb8{200, 180, 170}, Rgb8{120, 90, 80}, Rgb8{90, 120, 140},
                            Rgb8{60, 60, 60}, Rgb8{240, 235, 220}, Rgb8{40, 50, 45}}) {
      const Triple wanted = LabFromBands(
          BandsFromLinearSrgb(LinearFromSrgb({rgb[0] / 255.0, rgb[1] / 255.0, rgb[2] / 255.0})));
      const Triple printed = LabFromBands(model.Bands(AmountsOf(LookUp(table, rgb))));
      EXPECT_LT(DeltaE2000(wanted, printed), 1.5) << +rgb[0] << ' ' << +rgb[1] << ' ' << +rgb[2];
    }
  }
}

TEST(TableBuilder, UsesLightInksInHighlightsAndBlackInShadowsOnly) {
  const std::vector<std::uint8_t> table = TableBuilder(DefaultInkData()).Build(kSevenGlossy);
  const auto ink = [&](std::uint8_t grey, Ink which) {
    return LookUp(table, {grey, grey, grey})[static_cast<int>(which)];
  };
  EXPECT_EQ(ink(230, Ink::C), 0);
  EXPECT_GT(ink(230, Ink::c), 30);
  for (int grey = 100; grey < 256; ++grey)
    EXPECT_EQ(ink(static_cast<std::uint8_t>(grey), Ink::K), 0);
  EXPECT_GT(ink(30, Ink::K), 40);
  EXPECT_GT(ink(0, Ink::K), 230);
  for (int grey = 0; grey < 255; ++grey) {
    EXPECT_GE(ink(static_cast<std::uint8_t>(grey), Ink::K),
              ink(static_cast<std::uint8_t>(grey + 1), Ink::K));
  }
}

// The lightness of a table along 256 colours, `varying` channels rising from 0 and the others at
// `fixed`.
std::vector<double> LightnessAlong(const std::vector<std::uint8_t>& table, const PrintModel& model,
                                   unsigned varying, std::uint8_t fixed) {
  std::vector<double> lightness;
  for (int v = 0; v < 256; ++v) {
    Rgb8 rgb;
    for (int i = 0; i < 3; ++i) {
      rgb[i] = varying >> i & 1 ? static_cast<std::uint8_t>(v) : fixed;
    }
    lightness.push_back(LabFromBands(model.Bands(InterpolatedAmounts(table, rgb)))[0]);
  }
  return lightness;
}

// Papers and inks whose gamut ends early, where colours out of reach would fall behind darker ones.
// Cyan ends darker than the last colours before it that can be printed as they are.
TEST(TableBuilder, LightnessNeverFallsAlongGreyAndHardlyAlongSixHues) {
  constexpr unsigned kGrey = 7;
  const TableBuilder builder(DefaultInkData());
  for (const TableKey& key : {TableKey{1, 0, 0, 0, 0}, TableKey{2, 0, 0, 1, 1},
                              TableKey{2, 5, 0, 0, 1}, TableKey{3, 2, 0, 3, 1}}) {
    const PrintModel model(DefaultInkData(), key.media);
    const std::vector<std::uint8_t> table = builder.Build(key);
    for (unsigned varying = 1; varying < 8; ++varying) {
      for (const std::uint8_t fixed : {0, 255}) {
        const std::vector<double> lightness = LightnessAlong(table, model, varying, fixed);
        const double most = varying == kGrey ? 1e-9 : 0.8;
        for (int v = 1; v < 256; ++v) {
          ASSERT_GE(lightness[v], lightness[v - 1] - most)
              << PlaceOf(key) << ' ' << varying << ' ' << +fixed << ' ' << v;
        }
        EXPECT_GT(lightness[255], lightness[0]);
      }
    }
  }
}

IndexedTable BuiltTable(const TableBuilder& builder, const TableKey& key) {
  const auto index = [](int value) { return static_cast<std::uint32_t>(value); };
  return {{index(key.inkClass), index(key.media), index(key.preference), index(key.quality),
           index(key.intent)},
          builder.Build(key)};
}

// What a table is for: colours as wanted, everywhere, and the same ones in every quality.
TEST(TableBuilder, PrintsWithoutHolesBendsOrLostChroma) {
  const TableBuilder builder(DefaultInkData());
  std::vector<IndexedTable> tables;
  for (const TableKey& key :
       {TableKey{2, 0, 0, 0, 0}, TableKey{2, 0, 0, 1, 0}, TableKey{2, 2, 0, 1, 1},
        TableKey{3, 5, 0, 2, 1}, TableKey{3, 4, 0, 3, 0}, TableKey{1, 2, 0, 1, 1}}) {
    tables.push_back(BuiltTable(builder, key));
  }
  for (const TableCheck& check : CheckTables(tables, DefaultInkData(), 2, [] {})) {
    SCOPED_TRACE(check.indices[0] * 10 + check.indices[1]);
    EXPECT_THAT(MissesOf(check), testing::IsEmpty());
    EXPECT_LT(check.mean, 0.5);
    EXPECT_LT(check.most95, 1.8);
    EXPECT_LT(check.neutral, 1.0);
  }
}

// Graphics on plain paper: text and lines have one ink, and colours made of two inks no third.
TEST(TableBuilder, KeepsGreysAndPureColoursOfGraphicsOnPlainPaperPure) {
  const std::vector<std::uint8_t> table =
      TableBuilder(DefaultInkData()).Build({.inkClass = 2, .quality = 1, .intent = 1});
  for (int grey = 0; grey < 256; ++grey) {
    const auto value = static_cast<std::uint8_t>(grey);
    Contone inks = LookUp(table, {value, value, value});
    inks[static_cast<int>(Ink::K)] = 0;
    EXPECT_EQ(inks, Contone{});
  }
  EXPECT_EQ(LookUp(table, {0, 0, 0})[static_cast<int>(Ink::K)], 255);
  const Contone cyan = LookUp(table, {0, 255, 255}), red = LookUp(table, {255, 0, 0});
  for (const Ink ink : {Ink::M, Ink::m, Ink::Y, Ink::y, Ink::K}) {
    EXPECT_EQ(cyan[static_cast<int>(ink)], 0);
  }
  for (const Ink ink : {Ink::C, Ink::c, Ink::K}) EXPECT_EQ(red[static_cast<int>(ink)], 0);
}

// An overprint lighter than its parts has ramps that no less ink can mend.
TEST(TableBuilder, LeavesRampsThatCannotRise) {
  InkData inks = DefaultInkData();
  inks.cyanMagenta = Triple{99, 0, 0};
  const std::vector<std::uint8_t> table = TableBuilder(inks).Build(kSevenGlossy);
  const Contone blue = LookUp(table, {0, 0, 255}), white = LookUp(table, {255, 255, 255});
  EXPECT_GT(std::accumulate(blue.begin(), blue.end(), 0), 100);
  EXPECT_EQ(std::accumulate(white.begin(), white.end(), 0), 0);
}

// Print modes without a black plane have tables without black ink.
TEST(TableBuilder, ComposesBlackWhereNoBlackInkIsPrinted) {
  const TableBuilder builder(DefaultInkData());
  for (const TableKey& key : {TableKey{.inkClass = 1, .media = 2, .quality = 1},
                              TableKey{.inkClass = 3, .media = 2, .quality = 3}}) {
    const std::vector<std::uint8_t> table = builder.Build(key);
    for (int node = 0; node < 4913; ++node) ASSERT_EQ(table[6 * 4913 + node], 0);
    EXPECT_GT(LookUp(table, {0, 0, 0})[static_cast<int>(Ink::C)], 200);
  }
}

TEST(TableBuilder, FollowsBlackStrengthAndCurves) {
  TableSettings weak, strong, curved;
  weak.blackStrength = 0.0;
  strong.blackStrength = 1.0;
  curved.curves.values[static_cast<int>(Ink::c)].fill(7);
  const Rgb8 grey = {90, 90, 90};
  const auto inks = [&](const TableSettings& settings) {
    return LookUp(TableBuilder(DefaultInkData(), settings).Build(kSevenGlossy), grey);
  };
  const int k = static_cast<int>(Ink::K);
  EXPECT_EQ(inks(weak)[k], 0);
  EXPECT_GT(inks(strong)[k], inks({})[k]);
  EXPECT_EQ(inks(curved)[static_cast<int>(Ink::c)], 7);

  TableSettings bad;
  bad.blackStrength = 1.5;
  EXPECT_THROW(TableBuilder(DefaultInkData(), bad), Failure);
  bad = {};
  bad.inkLimit = 0.2;
  EXPECT_THROW(TableBuilder(DefaultInkData(), bad), Failure);
}

}  // namespace
}  // namespace corvane
