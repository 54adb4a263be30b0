// SPDX-License-Identifier: MIT
#include "movement/corvane_movement.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace {

constexpr auto kLeft = ZRXCartridgeLocationLeft;
constexpr auto kRight = ZRXCartridgeLocationRight;

void Initialize(Movement& movement, std::vector<unsigned long> pattern, unsigned short modeFactor) {
  unsigned short minNozzle[] = {1, 2};
  unsigned short maxNozzle[] = {600, 601};
  movement.InitializeMovement(pattern.data(), static_cast<unsigned char>(pattern.size()),
                              modeFactor, minNozzle, maxNozzle);
}

void InitializeBop(Movement& movement, unsigned short bopMove, unsigned long start,
                   unsigned long zone) {
  unsigned short bopMoves[] = {bopMove, 999};
  movement.InitializeBOPMovement(bopMoves, 2, 7, 7, start, zone);
}

void InitializeE2E(Movement& movement, std::vector<unsigned short> moves,
                   std::vector<unsigned long> limits) {
  unsigned short minNozzle[] = {3, 4};
  unsigned short maxNozzle[] = {520, 521};
  movement.InitializeE2EMovement(limits[0], limits[1], limits[2], 7, minNozzle, maxNozzle,
                                 static_cast<unsigned char>(moves.size()), moves.data());
}

TEST(CorvaneMovement, StartsWithAllLimitsZero) {
  CorvaneMovement movement;
  EXPECT_EQ(movement.GetMaxNozzle(kLeft), 0);
  EXPECT_EQ(movement.GetMaxNozzle(kRight), 0);
  EXPECT_EQ(movement.GetMinNozzle(kRight), 0);
  EXPECT_EQ(movement.GetMovesThisPage(), 0);
  EXPECT_EQ(movement.GetVerticalMovement(100), 0);
  EXPECT_EQ(movement.GetVerticalMovementE2E(100), 0);
}

TEST(CorvaneMovement, PatternRepeatsAndCountersRestart) {
  CorvaneMovement movement;
  Initialize(movement, {11, 0x1000C, 13}, 0);  // the high 16 bits do not count
  EXPECT_EQ(movement.GetMovesThisPage(), 0xFFFF);
  EXPECT_EQ(movement.GetMovesSinceLastSkip(), 0xFFFF);
  for (int expected : {11, 12, 13, 11, 12}) EXPECT_EQ(movement.GetVerticalMovement(5), expected);
  EXPECT_EQ(movement.GetMovesThisPage(), 4);

  movement.ResetPrinter();
  EXPECT_EQ(movement.GetMovesThisPage(), 0xFFFF);
  EXPECT_EQ(movement.GetMovesSinceLastSkip(), 4);
  EXPECT_EQ(movement.GetVerticalMovement(5), 11);
  EXPECT_EQ(movement.GetMovesThisPage(), 0);
  EXPECT_EQ(movement.GetMovesSinceLastSkip(), 5);

  movement.GetVerticalMovementE2E(5);
  EXPECT_EQ(movement.GetMovesThisPage(), 1);
  EXPECT_EQ(movement.GetMovesSinceLastSkip(), 5);
}

TEST(CorvaneMovement, LengthsBeyondTheArraysAreClamped) {
  std::vector<unsigned long> pattern(255);
  std::iota(pattern.begin(), pattern.end(), 1000ul);
  CorvaneMovement movement;
  Initialize(movement, pattern, 1);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(movement.GetVerticalMovement(0), 1000 + i);
  EXPECT_EQ(movement.GetVerticalMovement(0), 1000);

  Initialize(movement, {500}, 1);
  InitializeBop(movement, 8, 0, 1);
  std::vector<unsigned short> e2eMoves(17);
  std::iota(e2eMoves.begin(), e2eMoves.end(), static_cast<unsigned short>(10));
  InitializeE2E(movement, e2eMoves, {10000, 10000, 10000});
  EXPECT_EQ(movement.GetVerticalMovementE2E(0), 80 + 10);
  for (int i = 1; i < 16; ++i) EXPECT_EQ(movement.GetVerticalMovementE2E(0), 10 + i);
  EXPECT_EQ(movement.GetVerticalMovementE2E(0), 10);
}

// Each case makes one move of `last` at position 0, which no zone touches, and then the move asked
// for.
struct MoveCase {
  const char* what;
  unsigned short modeFactor, last, move, bopMove;
  unsigned long start, zone;
  long position;
  unsigned short expected;
};

constexpr MoveCase kMoveCases[] = {
    // clang-format off
    {"far from the zone",                   0, 20, 20,  8, 1000, 1100,  959, 20},
    {"exactly two moves away",              0, 20, 20,  8, 1000, 1100,  960, 20},
    {"two moves, odd proposal",             0, 20, 20,  8, 1000, 1100,  970, 16},
    {"two moves, raised by 2",              1, 20, 20,  8, 1000, 1100,  970, 18},
    {"two moves, step already odd",         1, 18, 20,  8, 1000, 1100,  970, 16},
    {"two moves, odd last move truncates",  1, 19, 20,  8, 1000, 1100,  970, 16},
    {"two moves, raised to exactly move",   1, 18, 20,  8, 1000, 1100,  963, 20},
    {"two moves, never below BOP move",     0, 20, 20, 18, 1000, 1100,  970, 18},
    {"exactly one move away",               0, 20, 20,  8, 1000, 1100,  980, 20},
    {"one move, never below BOP move",      0, 20, 20,  8, 1000, 1100,  995,  8},
    {"one move, odd pattern",               0, 20, 21,  8, 1000, 1100,  995,  9},
    {"one move, lowered below 0 wraps",     1,  3,  1,  0, 1000, 1100,  999, 0xFFFF},
    {"one move, parity step wraps",         0, 20, 20, 0xFFFF, 1000, 1100, 995, 0},
    {"one move, compared without wrapping", 1,  2, 20, 0xFFFE, 1000, 1100, 995, 0xFFFC},
    {"at the zone's start",                 0, 20, 20,  8, 1000, 1100, 1000,  8},
    {"last place in the zone",              0, 20, 20,  8, 1000, 1100, 1098,  8},
    {"past the zone",                       0, 20, 20,  8, 1000, 1100, 1099,  1},
    {"in the zone, factor 2, even step",    2,  8, 20,  8, 1000, 1100, 1000,  6},
    {"in the zone, factor 2, odd step",     2,  6, 20,  8, 1000, 1100, 1000,  8},
    {"in the zone, below 0 wraps",          2,  0, 20,  1, 1000, 1100, 1000, 0xFFFF},
    {"zone's end wraps",                    0, 20, 20,  8, 1000, 0xFFFFFFFF, 1000, 1},
    {"no zone",                             2, 20, 20,  8, 1000,    0, 1050, 20},
    {"negative position in the distance",   1, 20, 20,  8,   10, 1100,   -5, 20},
    {"signed position, unsigned start",     0, 20, 20,  8, 0x80000010, 0xF0000000, 1000, 20},
    {"start at the top of 32 bits",         0, 20, 20,  8, 0x80000001, 0xF0000000, 0x7FFFFFFF, 8},
    // clang-format on
};

TEST(CorvaneMovement, VerticalMovement) {
  for (const MoveCase& c : kMoveCases) {
    SCOPED_TRACE(c.what);
    CorvaneMovement movement;
    Initialize(movement, {c.last, c.move}, c.modeFactor);
    InitializeBop(movement, c.bopMove, c.start, c.zone);
    ASSERT_EQ(movement.GetVerticalMovement(0), c.last);
    EXPECT_EQ(movement.GetVerticalMovement(c.position), c.expected);
    EXPECT_EQ(movement.GetMaxNozzle(kRight), 601);
  }
}

#if LONG_MAX > INT_MAX
TEST(CorvaneMovement, PositionsHave32Bits) {
  CorvaneMovement movement;
  Initialize(movement, {20}, 0);
  InitializeBop(movement, 8, (1ul << 32) + 1000, (1ul << 32) + 1100);
  EXPECT_EQ(movement.GetVerticalMovement((1l << 32) + 970), 16);
  EXPECT_EQ(movement.GetVerticalMovement((1l << 32)), 20);
  EXPECT_EQ(movement.GetVerticalMovement((1l << 31) + 1050), 20);  // negative in 32 bits
}
#endif

struct E2EStep {
  long position;
  int times;  // how often the call is made; the last one is looked at
  unsigned short move, minNozzle, maxNozzle;  // nozzles: right; left, with the offset
};

struct E2ECase {
  const char* what;
  unsigned short modeFactor, move, e2eMove;
  std::vector<unsigned long> limits;
  unsigned long zone;
  std::vector<E2EStep> steps;
};

const E2ECase kE2ECases[] = {
    // clang-format off
    {"a whole page", 2, 20, 10, {400, 600, 1000}, 1,
     {{0, 1, 170, 4, 520}, {170, 1, 10, 4, 520}, {389, 1, 10, 4, 520},
      {390, 1, 10, 4, 525}, {400, 14, 10, 4, 595}, {589, 1, 10, 4, 600},  // transition
      {589, 3, 10, 4, 600},                                               // held at 80
      {590, 1, 20, 2, 600}, {979, 1, 20, 2, 600},                         // middle
      {980, 1, 20, 2, 595}, {1000, 15, 20, 2, 520},                       // last
      {1300, 1, 10, 2, 520}, {1310, 4, 10, 2, 520}}},                     // held at -80
    {"nozzles of a move are rounded up", 3, 20, 10, {0, 600, 1000}, 1, {{0, 1, 10, 4, 524}}},
    {"the offset is held at 80 from above", 1, 20, 100, {0, 600, 1000}, 1, {{0, 1, 100, 4, 600}}},
    {"a long advance in the gap before the middle takes the last rule, without a hold",
     1, 10, 50, {100, 200, 300}, 1, {{149, 1, 50, 4, 570}, {150, 2, 10, 2, 730}}},
    {"without a zone every call takes the last rule",
     1, 20, 10, {400, 600, 1000}, 0, {{0, 1, 20, 2, 590}, {700, 1, 20, 2, 580}}},
    {"the first-move bonus waits for the first region", 2, 20, 10, {400, 600, 1000}, 1,
     {{700, 1, 20, 2, 600}, {0, 1, 170, 4, 520}, {0, 1, 10, 4, 520}}},
    {"the bonus has 16 bits", 1000, 20, 10, {400, 600, 1000}, 1, {{0, 1, 14474, 4, 520}}},
    {"factor 0 gives no bonus and divides as 1",
     0, 20, 10, {400, 600, 1000}, 1, {{0, 1, 10, 4, 520}, {390, 1, 10, 4, 530}}},
    {"a negative position is far away until the advance reaches the page",
     2, 20, 10, {400, 600, 1000}, 1, {{-20, 1, 20, 2, 595}, {-5, 1, 170, 4, 520}}},
    {"limits are unsigned", 1, 20, 10, {0x80000000, 0x80000100, 0xF0000000}, 1,
     {{0x7FFFFFF0, 1, 90, 4, 520}, {0x7FFFFFFF, 1, 10, 4, 530}}},
    // clang-format on
};

TEST(CorvaneMovement, VerticalMovementE2E) {
  for (const E2ECase& c : kE2ECases) {
    CorvaneMovement movement;
    Initialize(movement, {c.move}, c.modeFactor);
    InitializeBop(movement, 8, 0, c.zone);
    InitializeE2E(movement, {c.e2eMove}, c.limits);
    for (const E2EStep& step : c.steps) {
      SCOPED_TRACE(std::string(c.what) + " at " + std::to_string(step.position));
      unsigned short move = 0;
      for (int i = 0; i < step.times; ++i) move = movement.GetVerticalMovementE2E(step.position);
      EXPECT_EQ(move, step.move);
      EXPECT_EQ(movement.GetMinNozzle(kRight), step.minNozzle);
      EXPECT_EQ(movement.GetMinNozzle(), step.minNozzle - 1);
      EXPECT_EQ(movement.GetMaxNozzle(kLeft), step.maxNozzle);
      EXPECT_EQ(movement.GetMaxNozzle(kRight), step.maxNozzle + 1);
      EXPECT_EQ(movement.GetMaxNozzle(), step.minNozzle == 4 ? 520 : 600);  // never the offset
    }
  }
}

TEST(CorvaneMovement, OffsetOfALongSequenceWraps) {
  CorvaneMovement movement;
  Initialize(movement, {0}, 1);
  InitializeE2E(movement, {0xFFFF}, {0, 0, 0});
  for (int i = 0; i < 40000; ++i) movement.GetVerticalMovementE2E(0);
  // 32768 steps of 65535 lie below 2^31; the next one wraps below -80 and is held there.
  EXPECT_EQ(movement.GetMaxNozzle(kLeft), static_cast<unsigned short>(600 - 80 - (40000 - 32769)));
}

// Starting a new sequence must keep what belongs to the page: the last move, the offset, the zones
// and which limits are in force.
TEST(CorvaneMovement, InitializeMovementKeepsThePagesState) {
  CorvaneMovement movement;
  Initialize(movement, {20}, 2);
  InitializeBop(movement, 8, 1000, 1100);
  InitializeE2E(movement, {10}, {400, 600, 1000});
  movement.GetVerticalMovementE2E(390);  // end-to-end limits, offset 5, last move 10
  InitializeE2E(movement, {10}, {400, 600, 1000});

  Initialize(movement, {30}, 2);
  EXPECT_EQ(movement.GetMaxNozzle(kLeft), 525);
  EXPECT_EQ(movement.GetVerticalMovement(1000), 8);  // (10 + 8) / 2 is odd
  EXPECT_EQ(movement.GetMaxNozzle(kLeft), 525);
  EXPECT_EQ(movement.GetVerticalMovementE2E(0), 10);  // the pending bonus is taken back
}

TEST(CorvaneMovement, CopiesUseTheirOwnLimits) {
  auto original = std::make_unique<CorvaneMovement>();
  Initialize(*original, {20}, 2);
  InitializeBop(*original, 8, 1000, 1100);
  InitializeE2E(*original, {10, 12}, {400, 600, 1000});
  original->GetVerticalMovementE2E(0);
  original->GetVerticalMovementE2E(400);

  CorvaneMovement constructed(*original);
  CorvaneMovement assigned;
  assigned = *original;
  for (int i = 0; i < 3; ++i) original->GetVerticalMovementE2E(700);  // normal limits, last move 20
  CorvaneMovement normal(*original);
  InitializeE2E(*original, {1}, {1, 1, 1});
  std::memset(static_cast<void*>(original.get()), 0xA5, sizeof(CorvaneMovement));
  ::operator delete(original.release());

  for (CorvaneMovement* copy : {&constructed, &assigned}) {
    EXPECT_EQ(copy->GetMaxNozzle(kLeft), 526);
    EXPECT_EQ(copy->GetMaxNozzle(), 520);
    EXPECT_EQ(copy->GetMinNozzle(kRight), 4);
    EXPECT_EQ(copy->GetMovesThisPage(), 1);
    EXPECT_EQ(copy->GetVerticalMovement(1000), 6);  // (12 + 8) / 2 is even
    EXPECT_EQ(copy->GetVerticalMovementE2E(0), 10 + 2);
    EXPECT_EQ(copy->GetVerticalMovementE2E(980), 20);
    EXPECT_EQ(copy->GetMaxNozzle(kRight), 601 - 5);
  }
  EXPECT_EQ(normal.GetMaxNozzle(kLeft), 600);
  EXPECT_EQ(normal.GetMinNozzle(kLeft), 1);
}

}  // namespace
