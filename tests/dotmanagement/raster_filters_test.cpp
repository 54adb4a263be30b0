// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <memory>

#include "dotmanagement/raster_filter_best_glossy.h"
#include "dotmanagement/raster_filter_better_glossy.h"
#include "dotmanagement/raster_filter_better_glossy_1.h"
#include "tests/dotmanagement/glossy_row.h"

namespace corvane {
namespace {

using harness::GlossyRow;
using harness::SideAt;

// Where a filter stands after a pass.
struct PassState {
  unsigned oddState, evenState, pixels;  // pixels: of both rows
  unsigned bytes;                        // sum of the accumulators
  const void* table;                     // of the ring cursor's node
  std::vector<std::ptrdiff_t> cursors;   // in the input and output rows
  bool operator==(const PassState&) const = default;
};

// A filter that notes its state after every pass.
template <class Filter>
class Opened : public Filter {
 public:
  using Filter::Filter;

  void FilterColorPlanes(unsigned short byteCount) override {
    Filter::FilterColorPlanes(byteCount);
    Note();
  }
  void FilterBlackPlane(unsigned short byteCount) override {
    Filter::FilterBlackPlane(byteCount);
    Note();
  }
  bool RunsFast() const { return this->kernels_ != nullptr; }

  const std::uint8_t* input = nullptr;
  std::vector<PassState> passes;

 private:
  void Note() {
    PassState now = {this->oddState_,
                     this->evenState_,
                     static_cast<unsigned>(this->firstRowPixels_ + this->secondRowPixels_),
                     0,
                     this->cellRingCursor_ != nullptr
                         ? static_cast<const void*>(this->cellRingCursor_->table)
                         : this->ringCursor_->table,
                     {}};
    for (const auto& cursors : {this->colorIn_[0], this->colorIn_[2], this->furtherIn_[0],
                                this->furtherIn_[5], this->blackIn_}) {
      now.cursors.push_back(cursors == nullptr ? -1 : cursors - input);
    }
    for (int i = 0; i < 4; ++i) {
      now.bytes += this->firstRowBytes_[i] + this->secondRowBytes_[i];
      if (const auto* out = this->firstRowOut_[i]) {
        now.cursors.push_back(out - this->firstBuffer_.Data());
      }
      if (const auto* out = this->secondRowOut_[i]) {
        now.cursors.push_back(out - this->secondBuffer_.Data());
      }
    }
    passes.push_back(now);
  }
};

// What one row leaves behind.
struct Filtered {
  std::vector<std::uint8_t> first, second;
  unsigned long start, end, planeBytes, width;
};

template <class Filter>
Filtered FilterRow(Filter& filter, GlossyRow& row, unsigned long rowNumber,
                   tagBinaryCMYKDescriptor descriptor, unsigned long start, unsigned long end) {
  unsigned char* data = row.bytes.data();
  Filtered result = {{}, {}, start, end, row.planeBytes, 8ul * row.planeBytes};
  filter.FilterCurrentRaster(&data, rowNumber, &result.start, &result.end, &result.planeBytes,
                             &result.width, descriptor);
  result.first.assign(data, data + filter.BufferSize);
  if (const unsigned char* second = filter.GetSecondCurrentRaster()) {
    result.second.assign(second, second + filter.BufferSize);
  }
  return result;
}

std::vector<CpuLevel> Levels() {
  std::vector<CpuLevel> levels;
  for (const CpuLevel level : kCpuLevels) {
    if (level <= DetectedCpuLevel()) levels.push_back(level);
  }
  return levels;
}

// ---- Packers -----------------------------------------------------------------------------------

class Packers : public Opened<RasterFilterBestGlossy> {
 public:
  Packers() {
    for (int i = 0; i < 4; ++i) firstRowOut_[i] = bytes[i], secondRowOut_[i] = bytes[i + 4];
  }
  bool IsEmpty() const { return firstRowPixels_ == 0 && secondRowPixels_ == 0; }

  std::uint8_t bytes[8][2] = {};
};

TEST(Packers, FillBytesFromTheLeftInTheChosenRow) {
  Packers packers;
  unsigned char state = 1;
  for (const unsigned char code : {0x30, 0x0C, 0x03, 0xFF}) {
    packers.StoreTwoBitsEachCMY(code, &state);
    packers.StoreTwoBitsEachCMY(static_cast<unsigned char>(code ^ 0x3F), nullptr);
  }
  EXPECT_EQ(state, 0x80);
  for (const unsigned char code : {0x90, 0x2F, 0xB0, 0x8F}) {
    packers.StoreTwoKBits(code, &state);
    EXPECT_EQ(state, 0);
  }
  for (const unsigned char code : {0x09, 0x86, 0x00, 0x8F}) {
    packers.StoreTwoBits24to48(code, &state);
    EXPECT_EQ(state, code & 0x80);
  }
  EXPECT_TRUE(packers.IsEmpty());
  const std::uint8_t expected[8][2] = {{0xC3, 0x93}, {0x33, 0x63}, {0x0F, 0}, {0x6C, 0},
                                       {0x3C, 0},    {0xCC, 0},    {0xF0, 0}, {0, 0}};
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(packers.bytes[i][0], expected[i][0]) << i;
    EXPECT_EQ(packers.bytes[i][1], expected[i][1]) << i;
  }
}

// ---- Placement ---------------------------------------------------------------------------------

struct PlacementCase {
  const char* what;
  tagBinaryCMYKDescriptor descriptor;
  unsigned row;
  struct {
    unsigned plane, column;
  } dots[6];
  unsigned dotCount;
  const char* sides;  // of the dots, in their order
};

template <class Filter>
void ExpectPlacement(const std::vector<PlacementCase>& cases) {
  for (const CpuLevel level : Levels()) {
    for (const PlacementCase& c : cases) {
      GlossyRow row(9, 6);
      for (unsigned i = 0; i < c.dotCount; ++i) row.Set(c.dots[i].plane, c.dots[i].column);
      Filter filter(level);
      filter.Initialize(2 * 9 * 6);
      // Byte 0 is outside of what is filtered.
      const Filtered out = FilterRow(filter, row, c.row, c.descriptor, 1, 6);
      std::string sides;
      for (unsigned i = 0; i < c.dotCount; ++i) {
        sides += SideAt(out.first.data(), 12, c.dots[i].plane, c.dots[i].column);
      }
      EXPECT_EQ(sides, c.sides) << c.what << " at level " << NameOf(level);
    }
  }
}

TEST(RasterFilterBestGlossy, PlacesDotsByColumnRowInkAndState) {
  const auto k82 = CcMmYy_4800x1200_16Pass, k83 = CcMmYyK_4800x1200_16Pass,
             k109 = CcMmYycmK_4800x1200_16Pass;
  ExpectPlacement<RasterFilterBestGlossy>({
      {"isolated dots alternate", k82, 0, {{0, 8}, {0, 12}, {0, 16}, {0, 20}}, 4, "LRLR"},
      {"odd rows start with T2", k82, 1, {{0, 8}}, 1, "R"},
      {"light planes swap the rows", k82, 2, {{0, 8}, {1, 8}}, 2, "LR"},
      {"one state for each parity", k82, 0, {{0, 8}, {0, 9}, {0, 12}, {0, 13}}, 4, "LLRR"},
      {"columns 0 and 1 meet state 0", k82, 0, {{0, 40}, {1, 8}, {1, 9}}, 3, "LRR"},
      {"neighbours two columns away", k82, 0, {{0, 12}, {0, 14}, {0, 20}}, 3, "LRL"},
      {"not one column away", k82, 0, {{0, 12}, {0, 13}, {0, 20}, {0, 21}}, 4, "LLRR"},
      {"another ink two columns away", k82, 0, {{0, 12}, {2, 10}, {0, 20}}, 3, "LLL"},
      {"outside the filtered bytes", k82, 0, {{0, 6}, {0, 8}, {0, 16}}, 3, ".LR"},
      {"one state for the inks", k82, 0, {{0, 12}, {2, 20}, {4, 28}}, 3, "LLL"},
      {"black", k83, 0, {{6, 8}, {6, 9}, {6, 10}, {6, 11}, {6, 20}, {6, 28}}, 6, "LLRRLL"},
      {"black in odd rows", k83, 3, {{6, 8}, {6, 9}, {6, 10}, {6, 11}}, 4, "RRLL"},
      {"no black pass", k82, 0, {{6, 8}}, 1, "."},
      {"cd md K in the light order", k109, 0, {{6, 8}, {7, 17}, {8, 24}, {0, 8}}, 4, "RLLL"},
      {"cd md K in odd rows", k109, 1, {{6, 8}}, 1, "L"},
  });
}

TEST(RasterFilterBetterGlossy, PlacesDotsByColumnRowInkAndState) {
  const auto k52 = CcMmYy_1200x1200_8Pass, k54 = CcMmYyK_1200x1200_8Pass,
             k108 = CcMmYycmK_1200x1200_8Pass;
  ExpectPlacement<RasterFilterBetterGlossy>({
      {"isolated dots alternate", k52, 0, {{0, 8}, {0, 10}, {0, 12}}, 3, "RLR"},
      {"one state for all columns", k52, 0, {{0, 8}, {0, 11}, {0, 13}}, 3, "RRL"},
      {"column 0 meets state 0", k52, 0, {{0, 40}, {1, 8}}, 2, "RL"},
      {"neighbours one column away", k52, 0, {{0, 8}, {0, 9}, {0, 12}}, 3, "RLR"},
      {"another ink one column away", k52, 0, {{0, 8}, {2, 9}, {0, 12}}, 3, "RLR"},
      {"row 1", k52, 1, {{0, 8}, {1, 8}}, 2, "LR"},
      {"row 2", k52, 2, {{0, 8}, {1, 8}}, 2, "LR"},
      {"row 7", k52, 7, {{0, 8}, {1, 8}}, 2, "RL"},
      {"black", k54, 0, {{6, 8}, {6, 9}, {6, 14}, {6, 16}}, 4, "RLRR"},
      {"no black pass", k52, 0, {{6, 8}}, 1, "."},
      {"cd md K in the dark order", k108, 0, {{6, 8}, {7, 16}, {8, 24}}, 3, "RRR"},
      {"cd md K in row 1", k108, 1, {{6, 8}}, 1, "L"},
  });
}

TEST(RasterFilterBetterGlossy_1, FillsCells) {
  struct {
    tagBinaryCMYKDescriptor descriptor;
    unsigned row, first, second, outPlane;  // planes set at column 8; `first` may be none
    const char* cell;
  } const cases[] = {
      {CcMmYy_1200x1200_8Pass, 0, 0, 99, 0, ".L"},  // V1, cyan, one dot
      {CcMmYy_1200x1200_8Pass, 0, 99, 1, 0, "RL"},  // two dots
      {CcMmYy_1200x1200_8Pass, 0, 0, 1, 0, "RL"},   // three are placed as two
      {CcMmYy_1200x1200_8Pass, 0, 99, 3, 1, "LR"},  // V0 for light cyan
      {CcMmYy_1200x1200_8Pass, 1, 0, 99, 0, ".R"},  // V5
      {CcMmYy_1200x1200_8Pass, 2, 2, 99, 1, ".R"},  // V2 for light cyan
      {CcMmYy_1200x1200_8Pass, 3, 8, 99, 4, "R."},  // V7, yellow
      {CcMmYyK_1200x1200_8Pass, 0, 12, 99, 6, ".L"},
      {CcMmYyK_1200x1200_8Pass, 3, 12, 99, 6, "L."},
      {CcMmYycmK_1200x1200_8Pass, 0, 99, 15, 7, "LR"},  // md
      {CcMmYycmK_1200x1200_8Pass, 0, 99, 17, 8, "RL"},  // K in the yellow position
  };
  for (const CpuLevel level : Levels()) {
    for (const auto& c : cases) {
      GlossyRow row(18, 3);
      for (const unsigned plane : {c.first, c.second}) {
        if (plane != 99) row.Set(plane, 8);
      }
      RasterFilterBetterGlossy_1 filter(level);
      filter.Initialize(2 * 9 * 3);
      const Filtered out = FilterRow(filter, row, c.row, c.descriptor, 1, 3);
      const std::string cell = {SideAt(out.first.data(), 6, c.outPlane, 8),
                                SideAt(out.second.data(), 6, c.outPlane, 8)};
      EXPECT_EQ(cell, c.cell) << c.row << " " << c.first << " " << c.second << NameOf(level);
    }
  }
}

TEST(RasterFilterBestGlossy, SecondExpansionDoublesTwoPlanesAndKeepsItsStateForThePage) {
  for (const CpuLevel level : Levels()) {
    RasterFilterBestGlossy filter(level);
    filter.Initialize(9 * 3);  // 36 bytes for the result
    const char* const sides[] = {"L.", "R.", "RR", "L."};
    for (unsigned row = 0; row < 4; ++row) {
      GlossyRow planes(9, 3);
      for (unsigned byte = 0; byte < 18; ++byte) planes.bytes[byte] = std::uint8_t(byte + 1);
      planes.Set(6, 8);                 // isolated, but for row 2; the state is 1 at first
      if (row == 2) planes.Set(7, 12);  // four columns away: neither is isolated
      planes.Set(8, 9);                 // not carried over
      unsigned char* data = planes.bytes.data();
      unsigned long start = 1, end = 3, planeBytes = 3, width = 24;
      filter.RasterSecondExpansion(&data, row, &start, &end, &planeBytes, &width,
                                   CcMmYycmK_4800x1200_16Pass);
      EXPECT_TRUE(std::equal(data, data + 18, planes.bytes.begin()));
      EXPECT_EQ(SideAt(data + 18, 6, 0, 8), sides[row][0]) << row << NameOf(level);
      EXPECT_EQ(SideAt(data + 18, 6, 1, 12), sides[row][1]) << row << NameOf(level);
      EXPECT_EQ(harness::CountDots(data + 18, 18), row == 2 ? 2u : 1u);
      EXPECT_EQ(planeBytes, 3u);
      EXPECT_EQ(end, 3u);
    }
  }
}

TEST(RasterFilters, StepOverThePlanesThatTheStrideFactorPutsBetween) {
  constexpr unsigned kPlanes = 9, kBytes = 5, kFactor = 3;
  std::mt19937 random(7);
  for (const CpuLevel level : Levels()) {
    GlossyRow dense(kPlanes, kBytes), sparse(kPlanes * kFactor, kBytes);
    dense.Scatter(random, 30);
    sparse.Scatter(random, 30);
    for (unsigned plane = 0; plane < kPlanes; ++plane) {
      std::copy_n(dense.bytes.begin() + plane * kBytes, kBytes,
                  sparse.bytes.begin() + plane * kFactor * kBytes);
    }
    RasterFilterBestGlossy one(level), three(level);
    one.Initialize(2 * kPlanes * kBytes);
    three.Initialize(2 * kPlanes * kFactor * kBytes);
    three.StrideFactor = kFactor;
    const Filtered expected = FilterRow(one, dense, 1, CcMmYycmK_4800x1200_16Pass, 1, kBytes);
    const Filtered actual = FilterRow(three, sparse, 1, CcMmYycmK_4800x1200_16Pass, 1, kBytes);
    EXPECT_EQ(actual.planeBytes, expected.planeBytes);
    for (unsigned plane = 0; plane < kPlanes; ++plane) {
      const auto placed = [&](const Filtered& out, unsigned factor) {
        const auto* const first = out.first.data() + plane * factor * 2 * kBytes;
        return std::vector<std::uint8_t>(first, first + 2 * kBytes);
      };
      EXPECT_EQ(placed(actual, kFactor), placed(expected, 1)) << plane << NameOf(level);
    }
  }
}

// ---- Fast against plain ------------------------------------------------------------------------

template <class Filter>
void ExpectFastEqualsPlain(unsigned planes, std::vector<tagBinaryCMYKDescriptor> descriptors) {
  std::mt19937 random(5);
  constexpr unsigned kPercent[] = {1, 15, 50, 95};
  for (const CpuLevel level : Levels()) {
    if (level == CpuLevel::Plain) continue;
    for (unsigned byteCount = 0; byteCount <= 200; ++byteCount) {
      Opened<Filter> plain(CpuLevel::Plain), fast(level);
      ASSERT_FALSE(plain.RunsFast());
      ASSERT_TRUE(fast.RunsFast());
      const unsigned start = random() % 3, planeBytes = start + byteCount + random() % 3;
      plain.Initialize(2 * planes * planeBytes);
      fast.Initialize(2 * planes * planeBytes);
      for (unsigned row = 0; row < 4; ++row) {
        GlossyRow input(planes, planeBytes);
        input.Scatter(random, kPercent[random() % 4]);
        const auto descriptor = descriptors[random() % descriptors.size()];
        plain.input = fast.input = input.bytes.data();
        const Filtered expected =
            FilterRow(plain, input, row, descriptor, start, start + byteCount);
        const Filtered actual = FilterRow(fast, input, row, descriptor, start, start + byteCount);
        ASSERT_EQ(actual.first, expected.first) << NameOf(level) << byteCount << " " << row;
        ASSERT_EQ(actual.second, expected.second) << NameOf(level) << byteCount << " " << row;
        ASSERT_EQ(fast.passes, plain.passes) << NameOf(level) << byteCount << " " << row;
      }
    }
  }
}

TEST(RasterFilters, FastPassesGiveThePlainRows) {
  ExpectFastEqualsPlain<RasterFilterBestGlossy>(
      9, {CcMmYy_4800x1200_16Pass, CcMmYyK_4800x1200_16Pass, CcMmYycmK_4800x1200_16Pass});
  const std::vector better = {CcMmYy_1200x1200_8Pass, CcMmYyK_1200x1200_8Pass,
                              CcMmYycmK_1200x1200_8Pass};
  ExpectFastEqualsPlain<RasterFilterBetterGlossy>(9, better);
  ExpectFastEqualsPlain<RasterFilterBetterGlossy_1>(18, better);
}

TEST(RasterFilters, FastSecondExpansionGivesThePlainPage) {
  std::mt19937 random(6);
  for (const CpuLevel level : Levels()) {
    RasterFilterBestGlossy plain(CpuLevel::Plain), fast(level);
    plain.Initialize(9 * 200);
    fast.Initialize(9 * 200);
    for (unsigned byteCount = 0; byteCount <= 200; ++byteCount) {
      GlossyRow input(9, byteCount);
      input.Scatter(random, byteCount % 3 == 0 ? 30 : 2);
      std::vector<std::uint8_t> results[2];
      RasterFilterBestGlossy* const filters[2] = {&plain, &fast};
      for (int i = 0; i < 2; ++i) {
        unsigned char* data = input.bytes.data();
        unsigned long start = 0, end = byteCount, planeBytes = byteCount, width = 8 * byteCount;
        filters[i]->RasterSecondExpansion(&data, 0, &start, &end, &planeBytes, &width,
                                          CcMmYycmK_4800x1200_16Pass);
        results[i].assign(data, data + 12 * byteCount);
      }
      ASSERT_EQ(results[0], results[1]) << NameOf(level) << byteCount;
    }
  }
}

TEST(RasterFilters, ACopyOutlivesItsOriginal) {
  auto original = std::make_unique<RasterFilterBetterGlossy_1>();
  original->Initialize(2 * 6 * 4);
  RasterFilterBetterGlossy_1 copy(*original), assigned;
  assigned = copy;
  original.reset();
  GlossyRow row(12, 4);
  row.Set(0, 0);
  for (RasterFilterBetterGlossy_1* filter : {&copy, &assigned}) {
    const Filtered out = FilterRow(*filter, row, 0, CcMmYy_1200x1200_8Pass, 0, 4);
    EXPECT_EQ(SideAt(out.second.data(), 8, 0, 0), 'L');
  }
}

}  // namespace
}  // namespace corvane
