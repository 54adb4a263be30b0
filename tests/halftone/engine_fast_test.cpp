// SPDX-License-Identifier: MIT
//
// The fast engine, in segments too, against the plain one, bit for bit, at every instruction level
// that the processor has.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "halftone/engine.h"
#include "halftone/engine_choice.h"
#include "halftone/engine_fast.h"
#include "simd/level.h"
#include "tests/halftone/engine_page.h"

namespace corvane {
namespace {

using Random = std::mt19937;

int Below(Random& random, int limit) {
  return static_cast<int>(random() % static_cast<unsigned>(limit));
}

enum class Content {
  Noise,
  Text,
  Sparse,
  Light,
  Patches,
  White,
  Stripes,
  Screen,
  Lasting,
  Flat,
  kCount
};

int LevelAt(Content content, std::uint32_t x, int before, Random& random) {
  switch (content) {
    case Content::Noise:
    case Content::Text:
      return Below(random, 256);
    case Content::Sparse:
      return Below(random, 6) == 0 ? Below(random, 256) : 0;
    case Content::Light:
      return Below(random, 3) == 0 ? 0 : Below(random, 60);
    case Content::Patches:
      if (Below(random, 12) != 0) return before;
      return Below(random, 3) == 0 ? 0 : Below(random, 256);
    case Content::White:
      return 0;
    case Content::Stripes:
      return x / 5 % 3 == 0 && x / 60 % 2 == 0 ? 255 : 0;
    case Content::Screen:  // pixels that repeat in pairs
      return static_cast<int>(40 + x / 97 % 20 * 7 + x % 2 * 30);
    case Content::Lasting:  // what the shares keep of the error lasts longest here
      return 1 + static_cast<int>(x / 700 % 2);
    default:
      return before;
  }
}

// Clears all planes between runs of a few pixels.
void KeepWords(std::vector<std::uint8_t>& row, std::uint32_t stride, Random& random) {
  for (std::uint32_t x = 0; x < stride;) {
    const std::uint32_t white = std::min<std::uint32_t>(Below(random, 90), stride - x);
    for (std::size_t plane = 0; plane < row.size(); plane += stride) {
      std::fill_n(row.begin() + plane + x, white, std::uint8_t{0});
    }
    x += white + static_cast<std::uint32_t>(Below(random, 6));
  }
}

// A row of contone planes.
std::vector<std::uint8_t> MakeRow(Content content, int planes, std::uint32_t stride,
                                  Random& random) {
  std::vector<std::uint8_t> row;
  for (int plane = 0; plane < planes; ++plane) {
    int level = Below(random, 4) == 0 ? 0 : Below(random, 256);
    for (std::uint32_t x = 0; x < stride; ++x) {
      level = LevelAt(content, x, level, random);
      row.push_back(static_cast<std::uint8_t>(level));
    }
  }
  if (content == Content::Text) KeepWords(row, stride, random);
  return row;
}

struct FastPageDeleter {
  void operator()(FastPage* page) const { DeleteFastPage(page); }
};

// Runs the same rows on both engines.
class Comparison {
 public:
  Comparison(const Kernel& kernel, CpuLevel level, std::uint32_t numPix, std::uint32_t width,
             std::uint32_t stride, Random& random)
      : random_(random), plain_(kernel, numPix, width), fast_(kernel, numPix, width) {
    const bool both = Below(random, 3) == 0;
    const std::uint16_t shifts[3] = {Shift(), Shift(), Shift()};
    for (EnginePage* page : {&plain_, &fast_}) {
      page->state.ShiftCMY = shifts[0];
      page->state.Shiftcmy = shifts[1];
      page->state.ShiftK = shifts[2];
      page->state.BothDirections = both;
      page->state.stride = stride;
    }
    fastPage_.reset(NewFastPage(kernel, fast_.state, level));
    fast_.state.fastPage = fastPage_.get();
  }

  bool HasFastEngine() const { return fastPage_ != nullptr; }
  // Null without the group engine.
  const GroupRepairs* Repairs() const {
    return HasFastEngine() && fastPage_->grouped != nullptr ? &fastPage_->grouped->repairs
                                                            : nullptr;
  }
  int InputPlanes() const { return plain_.kernel().inkCount == 1 ? 1 : 9; }

  // Errors that wrap at once, and that no guess meets soon.
  void SetWildErrors() {
    SyncErrorRows(fast_.state);
    for (int ink = 0; ink < kInkCount; ++ink) {
      const auto error = static_cast<std::int16_t>(random_());
      plain_.carriedError[ink] = fast_.carriedError[ink] = error;
      for (std::uint32_t entry = 0; entry < plain_.lineEntries(); ++entry) {
        const auto value = static_cast<std::int16_t>(random_());
        plain_.Line(static_cast<Ink>(ink))[entry] = value;
        fast_.Line(static_cast<Ink>(ink))[entry] = value;
      }
    }
  }

  void RunRow(const std::vector<std::uint8_t>& row, std::uint32_t number, std::uint32_t first,
              std::uint32_t end) {
    const std::uint32_t phase = static_cast<std::uint32_t>(Below(random_, 1024));
    // In a block of its own, so that a byte read outside is seen by the sanitizers.
    const std::unique_ptr<std::uint8_t[]> data(new std::uint8_t[row.size()]);
    std::memcpy(data.get(), row.data(), row.size());
    for (EnginePage* page : {&plain_, &fast_}) {
      page->state.data = data.get();
      page->state.row = number;
      page->state.first = first;
      page->state.end = end;
      page->rowPhase = phase;
    }
    plainBytes_ = RunKernelPlain(plain_.kernel(), plain_.state);
    fastBytes_ = RunKernel(fast_.kernel(), fast_.state);
  }

  void ExpectSameRow() {
    ASSERT_EQ(fastBytes_, plainBytes_);
    ASSERT_EQ(fast_.output(), plain_.output());
    ASSERT_EQ(fast_.carriedError, plain_.carriedError);
    ASSERT_EQ(fast_.dotCount, plain_.dotCount);
    ASSERT_EQ(fast_.rowPhase, plain_.rowPhase);
  }
  void ExpectSameLines() {
    SyncErrorRows(fast_.state);
    ASSERT_EQ(fast_.lines(), plain_.lines());
  }

 private:
  std::uint16_t Shift() { return static_cast<std::uint16_t>(Below(random_, 6)); }

  Random& random_;
  EnginePage plain_;
  EnginePage fast_;
  std::unique_ptr<FastPage, FastPageDeleter> fastPage_;
  std::uint32_t plainBytes_ = 0;
  std::uint32_t fastBytes_ = 0;
};

// Rows in any order, some of them twice, whole or a little shorter, some clipped, some empty.
void RunRandomRows(Comparison& comparison, std::uint32_t width, std::uint32_t stride, int rows,
                   Random& random) {
  std::vector<std::uint8_t> row;
  std::uint32_t first = 0;
  std::uint32_t end = 0;
  for (int i = 0; i < rows; ++i) {
    if (i == 0 || Below(random, 3) != 0) {
      row = MakeRow(static_cast<Content>(Below(random, static_cast<int>(Content::kCount))),
                    comparison.InputPlanes(), stride, random);
      first = 0;
      end = width;
      if (Below(random, 3) == 0) first = static_cast<std::uint32_t>(Below(random, width + 1));
      if (Below(random, 3) == 0) end = static_cast<std::uint32_t>(Below(random, width + 1));
      if (Below(random, 8) == 0) end = first;
    } else if (Below(random, 2) == 0) {
      end -= std::min(end, static_cast<std::uint32_t>(Below(random, 16)));
    }
    comparison.RunRow(row, random(), first, end);
    SCOPED_TRACE(testing::Message() << "row " << i << ", pixels " << first << ".." << end);
    ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameRow());
    if (Below(random, 4) == 0) {
      ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameLines());
    }
  }
  ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameLines());
}

class FastEngine : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > DetectedCpuLevel()) GTEST_SKIP() << "the processor does not have it";
  }
};

TEST_P(FastEngine, EqualsThePlainOneOnRandomRows) {
  Random random(1);
  for (const Kernel& kernel : kKernels) {
    for (const std::uint32_t numPix : {1u, 2u, 4u, 3u, 8u}) {
      for (const std::uint32_t width : {1u, 2u, 7u, 33u, 203u}) {
        SCOPED_TRACE(testing::Message() << kernel.name << ", " << numPix
                                        << " binary per contone pixel, width " << width);
        const std::uint32_t stride = width + static_cast<std::uint32_t>(Below(random, 3));
        Comparison comparison(kernel, GetParam(), numPix, width, stride, random);
        ASSERT_TRUE(comparison.HasFastEngine());
        if (Below(random, 2) == 0) comparison.SetWildErrors();
        ASSERT_NO_FATAL_FAILURE(RunRandomRows(comparison, width, stride, 24, random));
      }
    }
  }
}

// White rows are left out as soon as the lines hold nothing, and taken up again.
TEST_P(FastEngine, EqualsThePlainOneAroundWhiteRows) {
  Random random(2);
  for (const Kernel& kernel : kKernels) {
    SCOPED_TRACE(kernel.name);
    Comparison comparison(kernel, GetParam(), 2, 70, 70, random);
    const std::vector<std::uint8_t> white = MakeRow(Content::White, 9, 70, random);
    std::uint32_t number = 0;
    for (int block = 0; block < 3; ++block) {
      for (int i = 0; i < 60; ++i, ++number) {
        comparison.RunRow(white, number, i % 7 == 3 ? 11 : 0, i % 5 == 3 ? 40 : 70);
        ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameRow()) << number;
      }
      ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameLines());
      for (int i = 0; i < 4; ++i, ++number) {
        comparison.RunRow(MakeRow(Content::Sparse, 9, 70, random), number, 0, 70);
        ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameRow()) << number;
      }
    }
    ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameLines());
  }
}

// A sheet's width, more drops than 16 bits can count.
TEST_P(FastEngine, EqualsThePlainOneOnWideRows) {
  Random random(3);
  for (const KernelName name :
       {KernelName::CcMmYyK22QDSD_25_50_25_Coupled, KernelName::CcMmYyKKccmm23QDSD_50_50_200}) {
    const std::uint32_t width = 34001;
    SCOPED_TRACE(KernelOf(name).name);
    Comparison comparison(KernelOf(name), GetParam(), 2, width, width, random);
    for (std::uint32_t number = 0; number < 2; ++number) {
      std::vector<std::uint8_t> row(std::size_t{9} * width, 255);
      comparison.RunRow(row, number, 0, width);
      ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameRow());
    }
    ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameLines());
  }
}

// Light magenta alone, with errors of the pair at the two ends of 16 bits: a drop wraps.
TEST_P(FastEngine, EqualsThePlainOneWhereADropWraps) {
  Random random(5);
  for (const Kernel& kernel : kKernels) {
    SCOPED_TRACE(kernel.name);
    for (int page = 0; page < 40; ++page) {
      Comparison comparison(kernel, GetParam(), 2, 40, 40, random);
      std::vector<std::uint8_t> row(std::size_t{9} * 40);
      for (const std::size_t plane : {3, 8}) {
        for (int x = 0; x < 40; ++x) row[plane * 40 + x] = static_cast<std::uint8_t>(x % 47 + 1);
      }
      comparison.SetWildErrors();
      for (std::uint32_t number = 0; number < 3; ++number) {
        comparison.RunRow(row, number, 0, 40);
        ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameRow());
      }
      ASSERT_NO_FATAL_FAILURE(comparison.ExpectSameLines());
    }
  }
}

void Add(const GroupRepairs* repairs, GroupRepairs& sum) {
  if (repairs == nullptr) return;
  sum.rows += repairs->rows;
  sum.apart += repairs->apart;
  sum.byParity += repairs->byParity;
  sum.byThirds += repairs->byThirds;
  sum.doubleRuns += repairs->doubleRuns;
  sum.seconds += repairs->seconds;
  sum.repeats += repairs->repeats;
  sum.repeatsToEnd += repairs->repeatsToEnd;
}

// All that can go wrong with a guess has gone wrong and been put right.
void ExpectEveryRepair(const GroupRepairs& repairs) {
  EXPECT_GT(repairs.rows, 0u);
  EXPECT_GT(repairs.apart, repairs.byParity + repairs.byThirds);
  EXPECT_GT(repairs.byParity, 0u);
  EXPECT_GT(repairs.byThirds, 0u);
  EXPECT_GT(repairs.doubleRuns, 0u);
  EXPECT_GT(repairs.seconds, 0u);
  EXPECT_GT(repairs.repeats, repairs.repeatsToEnd);
  EXPECT_GT(repairs.repeatsToEnd, 0u);
}

// From the narrowest rows that have segments on, and widths that do not divide into them.
TEST_P(FastEngine, EqualsThePlainOneInSegments) {
  Random random(6);
  std::map<KernelFamily, GroupRepairs> repairs;
  for (const Kernel& kernel : kKernels) {
    const bool alone = kernel.inkCount == 1;
    for (const std::uint32_t numPix : {1u, 2u, 4u, 8u}) {
      if (numPix == 8 && !alone) continue;
      const std::uint32_t narrowest = (alone ? 2048 : 1024) / numPix;
      for (const std::uint32_t width : {narrowest, 2447 / numPix, 4800 / numPix + 7}) {
        SCOPED_TRACE(testing::Message() << kernel.name << ", " << numPix
                                        << " binary per contone pixel, width " << width);
        for (int page = 0; page < (alone ? 3 : 1); ++page) {
          Comparison comparison(kernel, GetParam(), numPix, width, width, random);
          const bool grouped = EngineFor(GetParam(), FamilyOf(kernel)) == EngineKind::Groups;
          ASSERT_EQ(comparison.Repairs() != nullptr, grouped);
          if (Below(random, 2) == 0) comparison.SetWildErrors();
          ASSERT_NO_FATAL_FAILURE(RunRandomRows(comparison, width, width, 16, random));
          Add(comparison.Repairs(), repairs[FamilyOf(kernel)]);
        }
      }
    }
  }
  for (const auto& [family, counts] : repairs) {
    SCOPED_TRACE(testing::Message() << "family " << static_cast<int>(family));
    if (EngineFor(GetParam(), family) == EngineKind::Groups) ExpectEveryRepair(counts);
  }
}

// By hand, some minutes a level:
//   corvane_tests --gtest_also_run_disabled_tests --gtest_filter='*MillionRandomRows*'
TEST_P(FastEngine, DISABLED_EqualsThePlainOneOnAMillionRandomRows) {
  Random random(7);
  constexpr int kRowsOfAPage = 50;
  for (int rows = 0; rows < 1'000'000; rows += kRowsOfAPage) {
    const Kernel& kernel = kKernels[Below(random, kKernelCount)];
    const std::uint32_t numPix = 1u << Below(random, 3);
    const std::uint32_t width = static_cast<std::uint32_t>(1 + Below(random, 3000)) / numPix + 1;
    SCOPED_TRACE(testing::Message() << "page " << rows / kRowsOfAPage << ": " << kernel.name << ", "
                                    << numPix << " binary per contone pixel, width " << width);
    Comparison comparison(kernel, GetParam(), numPix, width, width, random);
    if (Below(random, 2) == 0) comparison.SetWildErrors();
    ASSERT_NO_FATAL_FAILURE(RunRandomRows(comparison, width, width, kRowsOfAPage, random));
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, FastEngine,
                         testing::Values(CpuLevel::Sse4, CpuLevel::Avx2, CpuLevel::Avx512,
                                         CpuLevel::Avx512Vbmi),
                         [](const auto& info) { return std::string(NameOf(info.param)); });

TEST(FastEnginePage, PlainLevelHasNone) {
  EnginePage page(KernelOf(KernelName::K2QDSD_25), 1, 8);
  EXPECT_EQ(NewFastPage(page.kernel(), page.state, CpuLevel::Plain), nullptr);
}

}  // namespace
}  // namespace corvane
