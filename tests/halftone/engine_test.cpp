// SPDX-License-Identifier: MIT
//
// The plain engine against cases worked out by hand.
#include "halftone/engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "halftone/threshold_tables.h"
#include "tests/halftone/engine_page.h"

namespace corvane {
namespace {

using testing::Each;

constexpr Ink kC = Ink::C;
constexpr Ink kc = Ink::c;
constexpr Ink km = Ink::m;
constexpr Ink kK = Ink::K;

// A row of `planes` contone planes in which every pixel has the same levels.
std::vector<std::uint8_t> FlatRow(const std::vector<int>& levels, std::uint32_t width) {
  std::vector<std::uint8_t> row;
  for (const int level : levels) row.insert(row.end(), width, static_cast<std::uint8_t>(level));
  return row;
}

// Forward over a flat row, from phase 0.
void RunForward(EnginePage& page, const std::vector<int>& levels) {
  const std::vector<std::uint8_t> row = FlatRow(levels, page.state.stride);
  page.state.data = row.data();
  page.state.row = 1;
  page.rowPhase = 0;
  RunKernelPlain(page.kernel(), page.state);
}

TEST(PlainEngine, OnePixelAsWorkedOutByHand) {
  const struct {
    const char* what;
    KernelName kernel;
    int shift;
    int level;
    int error;
    int entry;
    bool drop;
    int errorAfter;
    int below;  // entry of the pixel, after the fold of the guard
  } cases[] = {
      // 3400 > 729 + 178; -680 is left, shares -170 and -170.
      {"a drop", KernelName::K2QDSD_25, 2, 100, 3000, 0, true, -340, -340},
      // 350, shares 87 and 87.
      {"no drop", KernelName::K2QDSD_25, 2, 100, -50, 0, false, 176, 174},
      // Shares 0 and 0 of -1: e4 = -1 each, 2 * e4 = -2.
      {"halved toward zero", KernelName::K2QDSD_25, 2, 0, -3, 0, false, 2, -3},
      // 31 * -33 / 32 = -31, e3 = -4 twice.
      {"31/32 toward zero", KernelName::K2QDSD_100, 4, 0, -30, -3, false, -23, -8},
      {"no drop at level 0", KernelName::K2QDSD_25, 2, 0, 30000, 0, false, 15000 - 937 - 1874,
       937 + 1874},
      // 30000 + 4080 wraps to -31456; level 255 has e3 and e3.
      {"wraps at 16 bits", KernelName::K2QDSD_100, 4, 255, 30000, 0, false, -31456 + 2 * 3932,
       -2 * 3932},
      // Each term is rounded on its own: 335 = E, e4 = 20, twice 20; E >> 3 would be 41.
      {"terms shifted separately", KernelName::K2QDSD_25, 2, 2, -300, 627, true,
       335 - 4080 - (-235) - 2 * (-235), 3 * -235},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EnginePage page(KernelOf(c.kernel), 1, 1);
    page.state.ShiftK = static_cast<std::uint16_t>(c.shift);
    page.Error(kK) = static_cast<std::int16_t>(c.error);
    page.Line(kK)[1] = static_cast<std::int16_t>(c.entry);
    RunForward(page, {c.level});
    EXPECT_EQ(page.Bit(0, 0), c.drop);
    EXPECT_EQ(page.Dots(kK), c.drop ? 1u : 0u);
    EXPECT_EQ(page.Error(kK), c.errorAfter);
    EXPECT_EQ(page.Line(kK)[0], 0);
    EXPECT_EQ(page.Line(kK)[1], c.below);
    EXPECT_EQ(page.rowPhase, 1u);
  }
}

TEST(PlainEngine, SharesGoToTheSideAlreadyVisited) {
  for (const bool forward : {true, false}) {
    SCOPED_TRACE(forward ? "forward" : "backward");
    EnginePage page(KernelOf(KernelName::K2QDSD_25), 1, 3);
    const std::vector<std::uint8_t> row(3, 58);  // shares e2 and e2
    page.state.data = row.data();
    page.state.row = forward ? 1 : 2;
    page.Error(kK) = -2000;
    std::fill_n(page.Line(kK), page.lineEntries(), std::int16_t{-64});
    RunKernelPlain(page.kernel(), page.state);
    // The errors before the shares: -2000 - 64 + 232 = -1832 (b = h = -458), then -916 + 168 =
    // -748 (-187), then -374 + 168 = -206 (-52).
    const std::int16_t visited[] = {-458 - 458 - 187, -187 - 52, -52};
    EXPECT_EQ(page.Error(kK), -206 + 104);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(page.Line(kK)[forward ? 1 + i : 3 - i], visited[i]) << i;
    // The guard before the first pixel is folded; the one behind the last is left as it was.
    EXPECT_EQ(page.Line(kK)[forward ? 0 : 4], 0);
    EXPECT_EQ(page.Line(kK)[forward ? 4 : 0], -64);
    EXPECT_EQ(page.rowPhase, 3u);
  }
}

TEST(PlainEngine, ClearsTheLineBeforeAClippedRowAndKeepsWhatLiesBehindIt) {
  const struct {
    bool forward;
    std::uint32_t first, end;
    std::uint32_t clearedFrom, clearedTo;  // entries that are zero afterwards
    std::uint32_t keptFrom, keptTo;        // entries that are as they were
  } cases[] = {
      {true, 2, 4, 0, 4, 9, 13},  {false, 2, 4, 9, 13, 0, 4},  {true, 3, 3, 0, 6, 7, 13},
      {false, 3, 3, 7, 13, 0, 6}, {true, 6, 6, 0, 12, 13, 13}, {false, 0, 0, 1, 13, 0, 0},
      {true, 4, 2, 0, 8, 9, 13},
  };
  const std::vector<std::uint8_t> row(6, 0);
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << (c.forward ? "forward " : "backward ") << c.first << ".." << c.end);
    EnginePage page(KernelOf(KernelName::K2QDSD_25), 2, 6);
    std::fill_n(page.Line(kK), page.lineEntries(), std::int16_t{1000});
    page.state.output[0] = 0xFF;
    page.Error(kK) = 77;
    page.rowPhase = 5;
    page.state.data = row.data();
    page.state.row = c.forward ? 1 : 0;
    page.state.first = c.first;
    page.state.end = c.end;
    EXPECT_EQ(RunKernelPlain(page.kernel(), page.state), 2u);
    EXPECT_EQ(page.state.output[0], 0);
    for (std::uint32_t i = c.clearedFrom; i <= c.clearedTo; ++i) EXPECT_EQ(page.Line(kK)[i], 0);
    for (std::uint32_t i = c.keptFrom; i <= c.keptTo; ++i) EXPECT_EQ(page.Line(kK)[i], 1000) << i;
    if (c.first >= c.end) {
      EXPECT_EQ(page.Error(kK), 77);
      EXPECT_EQ(page.rowPhase, 5u);
    }
  }
}

TEST(PlainEngine, FullBlackFillsEveryPixelAndLeavesNoError) {
  EnginePage page(KernelOf(KernelName::K2QDSD_100), 1, 2003);
  page.state.ShiftK = 4;
  for (int row = 0; row < 3; ++row) {
    const std::vector<std::uint8_t> black(2003, 255);
    page.state.data = black.data();
    page.state.row = row;
    page.rowPhase = 1000;
    RunKernelPlain(page.kernel(), page.state);
    EXPECT_EQ(page.rowPhase, (1000u + 2003u) % 1024u);
    EXPECT_THAT(std::vector(page.Plane(0), page.Plane(0) + 250), Each(0xFF));
    EXPECT_EQ(page.Plane(0)[250], 0xE0);
  }
  EXPECT_EQ(page.Dots(kK), 3u * 2003u);
  EXPECT_EQ(page.Error(kK), 0);
}

TEST(PlainEngine, BothDirectionsCountADropTwiceThatTheyBothPlace) {
  EnginePage page(KernelOf(KernelName::K2QDSD_6_25), 4, 1);
  page.state.ShiftK = 0;
  page.state.BothDirections = true;
  page.Error(kK) = 32000;
  RunForward(page, {255});
  EXPECT_EQ(page.Plane(0)[0], 0xF0);
  EXPECT_GT(page.Dots(kK), 4u);
  EXPECT_EQ(page.rowPhase, 8u);
  // A kernel of fixed direction goes one way whatever is asked for.
  EnginePage fixed(KernelOf(KernelName::CMY22QDSD_100), 1, 8);
  fixed.state.BothDirections = true;
  RunForward(fixed, {9, 9, 9, 9, 9, 9, 9});
  EXPECT_EQ(fixed.rowPhase, 8u);
}

TEST(PlainEngine, FoldedInkIsThreePartsDarkAndOneLight) {
  struct Case {
    int dark, light, level;
  };
  for (const Case& c : {Case{200, 40, 160}, Case{255, 255, 255}, Case{0, 3, 0}, Case{1, 2, 1}}) {
    EnginePage page(KernelOf(KernelName::CMY22QDSD_100), 1, 1);
    page.state.ShiftCMY = 4;
    page.Error(kC) = -20000;
    RunForward(page, {c.dark, c.light, 0, 0, 0, 0, 0});
    EnginePage same(KernelOf(KernelName::CcMmYyK32QDSD_100_100_100), 1, 1);
    same.state.ShiftCMY = 4;
    same.Error(kC) = -20000;
    RunForward(same, {c.level, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(page.Error(kC), same.Error(kC)) << c.dark << " " << c.light;
    EXPECT_EQ(page.Error(kc), 0);
  }
}

TEST(PlainEngine, CoupledInksShareOneDropInTheLight) {
  // Levels below 41 have thresholds up to 30 * 16 + 256 in set 50.
  const struct {
    const char* what;
    int c, m;
    int errorC, errorM;  // with the input
    bool dropC, dropM;
  } cases[] = {
      {"more error in c", 20, 20, 2001, 2000, true, false},
      {"more error in m", 20, 20, 2000, 2001, false, true},
      {"a tie goes to m", 20, 20, 2000, 2000, false, true},
      {"their sum decides", 20, 20, 450, 440, true, false},
      {"sum of 32 bits", 20, 20, 32000, 32001, false, true},
      {"sum of 32 bits, negative", 20, 20, -32000, -32000, false, false},
      {"c without ink leaves it to m", 0, 20, 2001, 2000, false, true},
      {"m without ink that wins", 20, 0, 2000, 2000, false, false},
      {"c without ink, m without ink", 0, 0, 2001, 2000, false, false},
      {"c wins over m without ink", 20, 0, 2001, 2000, true, false},
      {"47 is joint", 47, 47, 2001, 2000, true, false},
      {"48 is independent", 48, 20, 2001, 2000, true, true},
      {"48 of m is independent", 20, 48, 2001, 2000, true, true},
      {"independent, m without ink", 60, 0, 2000, 2000, true, false},
      {"independent, c without ink", 0, 60, 2000, 2000, false, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EnginePage page(KernelOf(KernelName::CcMmYyK22QDSD_25_50_25_Coupled), 1, 1);
    page.state.Shiftcmy = 3;
    page.Error(kc) = static_cast<std::int16_t>(c.errorC - (c.c << 3));
    page.Error(km) = static_cast<std::int16_t>(c.errorM - (c.m << 3));
    RunForward(page, {0, c.c, 0, c.m, 0, 0, 0});
    EXPECT_EQ(page.Bit(1, 0), c.dropC);
    EXPECT_EQ(page.Bit(3, 0), c.dropM);
    EXPECT_EQ(page.Dots(kc), c.dropC ? 1u : 0u);
    EXPECT_EQ(page.Dots(km), c.dropM ? 1u : 0u);
  }
}

TEST(PlainEngine, CoupledInksTakeTheirSharesAtTheSumOfTheLevels) {
  // Set 50: level 20 has e3 and e2 + e4, level 40 e2 and e2. No drop, from negative errors.
  EnginePage page(KernelOf(KernelName::CcMmYyK22QDSD_25_50_25_Coupled), 1, 1);
  page.state.Shiftcmy = 3;
  page.Error(kc) = -1600 - 160;
  page.Error(km) = -3200 - 160;
  RunForward(page, {0, 20, 0, 20, 0, 0, 0});
  EXPECT_EQ(page.Line(kc)[1], -400 - 400);
  EXPECT_EQ(page.Line(km)[1], -800 - 800);
  // An ink of level 0 is halved first and takes the pair's shares all the same.
  EnginePage half(KernelOf(KernelName::CcMmYyK22QDSD_25_50_25_Coupled), 1, 1);
  half.state.Shiftcmy = 3;
  half.Error(kc) = -1600;
  half.Error(km) = -3200 - 320;
  RunForward(half, {0, 0, 0, 40, 0, 0, 0});
  EXPECT_EQ(half.Line(kc)[1], -200 - 200);
  EXPECT_EQ(half.Error(kc), -800 + 400);
}

TEST(PlainEngine, CoupledInksWrapWhereADropGoesToTheSecondOneFarBelowZero) {
  EnginePage page(KernelOf(KernelName::CcMmYyK22QDSD_25_50_25_Coupled), 1, 1);
  page.state.Shiftcmy = 3;
  page.Error(kc) = 32000;
  page.Error(km) = -30000 - 80;
  RunForward(page, {0, 0, 0, 10, 0, 0, 0});
  EXPECT_TRUE(page.Bit(3, 0));
  // -34080 is 31456 in 16 bits; set 50 has e3 and e2 at level 10.
  EXPECT_EQ(page.Line(km)[1], 3932 + 7864);
  EXPECT_EQ(page.Error(km), 31456 - 3932 - 7864);
}

TEST(PlainEngine, TwoDropInksCountInBinary) {
  const struct {
    int level;
    int error;  // with the input
    bool first, second;
    std::uint32_t dots;
    int errorBeforeShares;
  } cases[] = {
      {0, 3200, false, false, 0, 3100},  {1, 3200, true, false, 1, 3200 - 4064},
      {127, 320, false, false, 0, 320},  {128, -3200, true, false, 1, -3200},
      {128, 0, true, false, 1, 0},       {255, 30000, false, true, 2, 30000 - 4064},
      {200, -320, true, false, 1, -320},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.level << " with error " << c.error);
    EnginePage page(KernelOf(KernelName::CcMmYyKKccmm23QDSD_50_50_200), 1, 1);
    page.state.ShiftK = 5;
    page.Error(kK) = static_cast<std::int16_t>(c.error - (c.level % 128) * 32);
    RunForward(page, {0, 0, 0, 0, 0, 0, c.level, 0, 0});
    EXPECT_EQ(page.Bit(10, 0), c.first);
    EXPECT_EQ(page.Bit(11, 0), c.second);
    EXPECT_EQ(page.Dots(kK), c.dots);
    // Nothing gets lost between the pixel, the line and the carried error.
    EXPECT_EQ(page.Error(kK) + page.Line(kK)[1], c.errorBeforeShares);
  }
}

// Which planes each ink prints in, and how many are sent.
TEST(Kernels, PrintEveryInkInItsPlanes) {
  struct Case {
    KernelName kernel;
    std::vector<Ink> planes;
  };
  using enum Ink;
  constexpr Ink kEmpty = static_cast<Ink>(kInkCount);
  const Case cases[] = {
      {KernelName::CMYK22QDSD_100_100, {C, M, Y, K}},
      {KernelName::CMYKcm22QDSD_100_100, {C, M, Y, cd, md, K}},
      {KernelName::CcMmYy22QDSD_25_50_Coupled, {C, c, M, m, Y, y}},
      {KernelName::CcMmYyK32QDSD_100_100_100,
       {C, kEmpty, c, kEmpty, M, kEmpty, m, kEmpty, Y, kEmpty, y, kEmpty, K}},
      {KernelName::CcMmYyKcm22QDSD_25_25_50, {C, c, M, m, Y, y, cd, md, K}},
      {KernelName::CCccMMmmYYyyKKccmm33QDSD_100_100_200,
       {C, kEmpty, c, kEmpty, M, kEmpty, m, kEmpty, Y, kEmpty, y, kEmpty, cd, cd, md, md, K, K}},
      {KernelName::CcMmYyKKccmm23QDSD_50_50_200, {C, c, M, m, Y, y, cd, cd, md, md, K, K}},
  };
  for (const auto& c : cases) {
    const Kernel& kernel = KernelOf(c.kernel);
    EXPECT_EQ(kernel.planeCount, c.planes.size());
    for (int ink = 0; ink < kInkCount; ++ink) {
      SCOPED_TRACE(testing::Message() << kernel.name << " ink " << ink);
      if (kernel.inks[0].foldedPlane != kNoPlane && ink < 6 && ink % 2 != 0) continue;
      EnginePage page(kernel, 1, 99);
      page.state.ShiftK = 3;
      std::vector<int> levels(kInkCount, 0);
      levels[ink] = 200;
      page.carriedError.fill(20000);
      RunForward(page, levels);
      for (std::size_t plane = 0; plane < c.planes.size(); ++plane) {
        const std::uint8_t* const bytes = page.Plane(static_cast<int>(plane));
        const bool printed = std::any_of(bytes, bytes + page.planeBytes(),
                                         [](std::uint8_t byte) { return byte != 0; });
        EXPECT_EQ(printed, c.planes[plane] == static_cast<Ink>(ink)) << plane;
      }
    }
  }
}

TEST(Kernels, UnsentBlackIsCountedBehindTheRowThatIsSent) {
  EnginePage page(KernelOf(KernelName::CcMmYy22QDSD_25_50_Coupled), 1, 8);
  page.Error(kK) = 20000;
  std::vector<std::uint8_t> row = FlatRow({0, 0, 0, 0, 0, 0, 255}, 8);
  page.state.data = row.data();
  EXPECT_EQ(RunKernelPlain(page.kernel(), page.state), 6u);
  EXPECT_NE(page.Plane(6)[0], 0);
  EXPECT_GT(page.Dots(kK), 0u);
}

TEST(Kernels, BorrowedLinesOfTheLightInksServeTheFurtherInks) {
  EnginePage page(KernelOf(KernelName::CMYKcm22QDSD_100_100), 1, 2);
  page.state.ShiftK = 4;
  RunForward(page, {0, 0, 0, 0, 0, 0, 0, 60, 100});
  EXPECT_NE(page.Error(Ink::c), 0);
  EXPECT_NE(page.Error(Ink::m), 0);
  EXPECT_NE(page.Line(Ink::c)[1], 0);
  EXPECT_EQ(page.Error(Ink::cd), 0);
  EXPECT_EQ(page.Line(Ink::cd)[1], 0);
  page.Error(Ink::c) = 20000;
  RunForward(page, {0, 0, 0, 0, 0, 0, 0, 60, 0});
  EXPECT_GT(page.Dots(Ink::cd), 0u);
  EXPECT_EQ(page.Dots(Ink::c), 0u);
}

}  // namespace
}  // namespace corvane
