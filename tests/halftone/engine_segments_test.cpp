// SPDX-License-Identifier: MIT
//
// The segment engine against the plain one, bit for bit, at every instruction level that the
// processor has.
#include "halftone/engine_segments.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "halftone/engine.h"
#include "plugin/cpu.h"
#include "tests/halftone/engine_page.h"

namespace corvane {
namespace {

constexpr KernelName kBlackKernels[] = {KernelName::K2QDSD_100, KernelName::K2QDSD_25,
                                        KernelName::K2QDSD_6_25};

std::uint32_t Below(std::mt19937& random, std::uint32_t limit) { return random() % limit; }

std::vector<std::uint8_t> RandomLevels(std::uint32_t width, std::mt19937& random) {
  enum Content { Noise, Sparse, Text, Flat, Light, White, kContents };
  const std::uint32_t content = Below(random, kContents);
  const std::uint8_t flat = static_cast<std::uint8_t>(random());
  std::vector<std::uint8_t> levels(width);
  for (std::uint32_t x = 0; x < width; ++x) {
    const std::uint8_t any = static_cast<std::uint8_t>(random());
    switch (content) {
      case Noise:
        levels[x] = any;
        break;
      case Sparse:
        levels[x] = Below(random, 9) == 0 ? any : 0;
        break;
      case Text:
        levels[x] = x / 5 % 3 == 0 && x / 60 % 2 == 0 ? 255 : 0;
        break;
      case Flat:
        levels[x] = flat;
        break;
      case Light:  // what the shares keep of the error lasts longest here
        levels[x] = static_cast<std::uint8_t>(1 + x / 700 % 2);
        break;
      default:
        break;
    }
  }
  return levels;
}

struct FastPageDeleter {
  void operator()(FastPage* page) const { DeleteFastPage(page); }
};

class SegmentEngine : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > DetectedCpuLevel()) GTEST_SKIP() << "the processor does not have it";
  }

  // Runs random rows, some of them clipped, on both engines.
  void Compare(KernelName name, std::uint32_t numPix, std::uint32_t width, std::uint16_t shift) {
    const Kernel& kernel = KernelOf(name);
    SCOPED_TRACE(testing::Message()
                 << kernel.name << ", " << numPix << " binary per contone pixel, width " << width);
    EnginePage plain(kernel, numPix, width);
    EnginePage fast(kernel, numPix, width);
    for (EnginePage* page : {&plain, &fast}) {
      page->state.ShiftK = shift;
      page->state.BothDirections = width % 2 != 0;
    }
    const std::unique_ptr<FastPage, FastPageDeleter> fastPage(
        NewFastPage(kernel, fast.state, GetParam()));
    fast.state.fastPage = fastPage.get();
    ASSERT_NE(fastPage, nullptr);
    ASSERT_TRUE(fastPage->inSegments);

    for (std::uint32_t row = 0; row < 40; ++row) {
      const std::vector<std::uint8_t> levels = RandomLevels(width, random_);
      // In a block of its own, so that a byte read outside is seen by the sanitizers.
      const std::unique_ptr<std::uint8_t[]> data(new std::uint8_t[width]);
      std::memcpy(data.get(), levels.data(), width);
      if (row == 25) StartWildly(plain, fast);
      const std::uint32_t first = Below(random_, 4) == 0 ? Below(random_, width + 1) : 0;
      std::uint32_t end = Below(random_, 4) == 0 ? Below(random_, width + 1) : width;
      if (Below(random_, 10) == 0) end = first;
      const std::uint32_t phase = Below(random_, kModulationLength);
      for (EnginePage* page : {&plain, &fast}) {
        page->state.data = data.get();
        page->state.row = row;
        page->state.first = first;
        page->state.end = end;
        page->rowPhase = phase;
      }
      ASSERT_EQ(RunKernel(kernel, fast.state), RunKernelPlain(kernel, plain.state));
      SCOPED_TRACE(testing::Message() << "row " << row << ", pixels " << first << ".." << end);
      ASSERT_EQ(fast.output(), plain.output());
      ASSERT_EQ(fast.lines(), plain.lines());
      ASSERT_EQ(fast.carriedError, plain.carriedError);
      ASSERT_EQ(fast.dotCount, plain.dotCount);
      ASSERT_EQ(fast.rowPhase, plain.rowPhase);
    }
  }

 private:
  // Errors that wrap, and that no guess meets soon.
  void StartWildly(EnginePage& plain, EnginePage& fast) {
    SyncErrorRows(fast.state);
    plain.Error(Ink::K) = fast.Error(Ink::K) = static_cast<std::int16_t>(random_());
    for (std::uint32_t entry = 0; entry < plain.lineEntries(); ++entry) {
      plain.Line(Ink::K)[entry] = fast.Line(Ink::K)[entry] = static_cast<std::int16_t>(random_());
    }
  }

  std::mt19937 random_{1};
};

TEST_P(SegmentEngine, EqualsThePlainOneOnRandomRows) {
  for (const KernelName name : kBlackKernels) {
    for (const std::uint32_t numPix : {1u, 2u, 4u, 8u}) {
      // From the shortest row that has segments on, and widths that do not divide into them.
      for (const std::uint32_t width : {2048 / numPix, 2055 / numPix + 1, 2999u}) {
        for (const std::uint16_t shift : {0, 2, 4}) {
          ASSERT_NO_FATAL_FAILURE(Compare(name, numPix, width, shift));
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, SegmentEngine,
                         testing::Values(CpuLevel::Sse4, CpuLevel::Avx2, CpuLevel::Avx512),
                         [](const auto& info) { return std::string(NameOf(info.param)); });

TEST(SegmentEnginePage, IsForWideRowsOfOneInk) {
  struct Case {
    KernelName kernel;
    std::uint32_t numPix, width;
    bool fits;
  };
  const Case cases[] = {{KernelName::K2QDSD_25, 2, 1024, true},
                        {KernelName::K2QDSD_25, 2, 1023, false},
                        {KernelName::K2QDSD_25, 3, 5000, false},
                        {KernelName::CMY22QDSD_100, 2, 5000, false}};
  for (const Case& c : cases) {
    const EnginePage page(KernelOf(c.kernel), c.numPix, c.width);
    EXPECT_EQ(SegmentsFit(page.kernel(), page.state), c.fits) << c.numPix << " x " << c.width;
  }
}

}  // namespace
}  // namespace corvane
