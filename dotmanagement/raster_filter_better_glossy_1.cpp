// SPDX-License-Identifier: MIT
#include "dotmanagement/raster_filter_better_glossy_1.h"

#include "dotmanagement/filter_table.h"
#include "dotmanagement/pattern_tables.h"
#include "dotmanagement/pixel_walk.h"

using corvane::FilterKind;
using corvane::FurtherPlanes;

namespace {

using corvane::CellDots;
using corvane::CellMasks;

constexpr std::array<std::array<std::uint8_t, 4>, 8> kRingTables = {{{0, 1, 2, 3},
                                                                     {1, 0, 3, 2},
                                                                     {4, 5, 6, 7},
                                                                     {5, 4, 7, 6},
                                                                     {2, 3, 0, 1},
                                                                     {3, 2, 1, 0},
                                                                     {6, 7, 4, 5},
                                                                     {7, 6, 5, 4}}};

// An ink's planes at a pixel, as the tables are indexed.
constexpr unsigned InkCode(unsigned firstPlane, unsigned secondPlane, unsigned hasNeighbour) {
  return firstPlane << 2 | secondPlane << 1 | hasNeighbour;
}

constexpr unsigned CodeOfDots(unsigned dots) { return InkCode(dots == 1, dots == 2, 0); }

constexpr unsigned IndexOfDots(const CellDots& dots) {
  return CodeOfDots(dots.cyan) << 6 | CodeOfDots(dots.magenta) << 3 | CodeOfDots(dots.yellow);
}

// A yellow neighbour in the index keeps yellow in its usual cell.
constexpr unsigned kYellowNeighbour = 1;

// The sub-dots of one ink (0 cyan to 2 yellow) that the tables of the ring hold at `index`.
CellMasks CellMasksAt(const corvane::PatternNode<std::uint16_t>* ring, unsigned index,
                      unsigned ink) {
  const unsigned left = 5 - 2 * ink;
  const unsigned right = left - 1;
  return {{corvane::RingMask<4>(ring, index, 8 + left),
           corvane::RingMask<4>(ring, index, 8 + right), corvane::RingMask<4>(ring, index, left),
           corvane::RingMask<4>(ring, index, right)}};
}

}  // namespace

RasterFilterBetterGlossy_1::RasterFilterBetterGlossy_1(corvane::CpuLevel level)
    : RasterFilterBase(level) {}
RasterFilterBetterGlossy_1::RasterFilterBetterGlossy_1(const RasterFilterBetterGlossy_1&) = default;
RasterFilterBetterGlossy_1& RasterFilterBetterGlossy_1::operator=(
    const RasterFilterBetterGlossy_1&) = default;
RasterFilterBetterGlossy_1::~RasterFilterBetterGlossy_1() = default;

void RasterFilterBetterGlossy_1::Initialize(unsigned long bufferSize) {
  BufferSize = static_cast<std::uint32_t>(bufferSize);
  for (std::size_t ring = 0; ring < rings_.size(); ++ring) {
    std::array<const std::uint16_t*, 4> tables;
    for (std::size_t node = 0; node < tables.size(); ++node) {
      tables[node] = corvane::kCellTables[kRingTables[ring][node]].data();
    }
    rings_[ring].Build(tables);
  }
  ready_ = Allocate(firstBuffer_, BufferSize) && Allocate(secondBuffer_, BufferSize);
}

void RasterFilterBetterGlossy_1::FilterCurrentRaster(
    unsigned char** data, unsigned long row, unsigned long* startByte, unsigned long* endByte,
    unsigned long* planeBytes, unsigned long* width, tagBinaryCMYKDescriptor descriptor) {
  const CellNode* final = rings_[2 * (row & 3)].First();
  const CellNode* first = rings_[2 * (row & 3) + 1].First();

  const FurtherPlanes further = corvane::FurtherPlanesOf(FilterKind::BetterGlossyCells, descriptor);
  const RowPlanes planes = BeginRow(*data, *startByte, *endByte, *planeBytes);
  RunCellPass(planes, {0, 4, 8}, {0, 2, 4}, first);
  if (further == FurtherPlanes::Black) RunBlackCellPass(planes, first);
  if (further == FurtherPlanes::CdMdBlack) {
    RunCellPass(planes, {12, 14, 16}, {6, 7, 8}, first);
  }
  RunCellPass(planes, {2, 6, 10}, {1, 3, 5}, final);
  EndRow(data, startByte, endByte, planeBytes, width);
}

void RasterFilterBetterGlossy_1::RunCellPass(const RowPlanes& planes,
                                             const PlaneNumbers& firstPlanes,
                                             const PlaneNumbers& outputs, const CellNode* ring) {
  for (std::size_t ink = 0; ink < 3; ++ink) {
    furtherIn_[ink] = planes.In(firstPlanes[ink]);
    furtherIn_[ink + 3] = planes.In(firstPlanes[ink] + 1u);
  }
  AimColorOutputs(planes, outputs);
  cellRingCursor_ = ring;
  FilterColorPlanes(planes.byteCount);
}

void RasterFilterBetterGlossy_1::RunBlackCellPass(const RowPlanes& planes, const CellNode* ring) {
  blackIn_ = planes.In(12);
  AimBlackOutput(planes, 6);
  cellRingCursor_ = ring;
  FilterBlackPlane(planes.byteCount);
}

corvane::CellPass RasterFilterBetterGlossy_1::TakeCellPass(unsigned short byteCount) {
  corvane::CellPass pass;
  pass.byteCount = byteCount;
  for (std::size_t plane = 0; plane < furtherIn_.size(); ++plane) {
    pass.in[plane] = furtherIn_[plane];
    furtherIn_[plane] += byteCount;
  }
  for (unsigned ink = 0; ink < 3; ++ink) {
    pass.firstRow[ink] = firstRowOut_[ink];
    pass.secondRow[ink] = secondRowOut_[ink];
    firstRowOut_[ink] += 2 * byteCount;
    secondRowOut_[ink] += 2 * byteCount;
    pass.oneDot[ink] = CellMasksAt(cellRingCursor_, IndexOfDots({1, 1, 1}) | kYellowNeighbour, ink);
    pass.twoDots[ink] =
        CellMasksAt(cellRingCursor_, IndexOfDots({2, 2, 2}) | kYellowNeighbour, ink);
  }
  for (int e = 0; e < corvane::kYellowExceptionCount; ++e) {
    const unsigned index = IndexOfDots(corvane::kYellowExceptions[e]);
    const CellMasks usual = CellMasksAt(cellRingCursor_, index | kYellowNeighbour, 2);
    const CellMasks moved = CellMasksAt(cellRingCursor_, index, 2);
    for (int i = 0; i < 4; ++i) {
      pass.yellowChange[e].subDot[i] = usual.subDot[i] ^ moved.subDot[i];
    }
  }
  return pass;
}

void RasterFilterBetterGlossy_1::FilterColorPlanes(unsigned short byteCount) {
  if (byteCount == 0) return;
  if (kernels_ != nullptr) {
    kernels_->placeCells(TakeCellPass(byteCount));
    evenState_ = 0;
    return;
  }
  corvane::WalkPixels(furtherIn_, byteCount, [this](unsigned, const auto& windows) {
    unsigned index = 0;
    for (std::size_t ink = 0; ink < 3; ++ink) {
      const auto& first = windows[ink];
      const auto& second = windows[ink + 3];
      index = index << 3 |
              InkCode(first.Pixel(), second.Pixel(),
                      first.template HasNeighbour<1>() | second.template HasNeighbour<1>());
    }
    const unsigned cells = cellRingCursor_->table[index];
    StoreTwoBitsEachCMY(static_cast<unsigned char>(cells >> 8), &evenState_);
    StoreTwoBitsEachCMY(static_cast<unsigned char>(cells), nullptr);
    cellRingCursor_ = cellRingCursor_->next;
  });
}

void RasterFilterBetterGlossy_1::FilterBlackPlane(unsigned short byteCount) {
  if (byteCount == 0) return;
  if (kernels_ != nullptr) {
    const CellMasks masks = CellMasksAt(cellRingCursor_, IndexOfDots({1, 0, 0}), 0);
    kernels_->placeFixed({blackIn_, firstRowOut_[3], byteCount, masks.subDot[0], masks.subDot[1]});
    kernels_->placeFixed({blackIn_, secondRowOut_[3], byteCount, masks.subDot[2], masks.subDot[3]});
    blackIn_ += byteCount;
    firstRowOut_[3] += 2 * byteCount;
    secondRowOut_[3] += 2 * byteCount;
    evenState_ = 0;
    return;
  }
  std::array<const std::uint8_t*, 1> in = {blackIn_};
  corvane::WalkPixels(in, byteCount, [this](unsigned, const auto& windows) {
    const unsigned index = InkCode(windows[0].Pixel(), 0, windows[0].template HasNeighbour<1>())
                           << 6;
    const unsigned cells = cellRingCursor_->table[index];
    StoreTwoKBits(static_cast<unsigned char>(cells >> 8), &evenState_);
    StoreTwoKBits(static_cast<unsigned char>(cells), nullptr);
    cellRingCursor_ = cellRingCursor_->next;
  });
  blackIn_ = in[0];
}
