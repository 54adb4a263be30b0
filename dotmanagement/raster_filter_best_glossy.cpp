// SPDX-License-Identifier: MIT
#include "dotmanagement/raster_filter_best_glossy.h"

#include <algorithm>

#include "dotmanagement/filter_table.h"
#include "dotmanagement/pattern_tables.h"
#include "dotmanagement/pixel_walk.h"

using corvane::FilterKind;
using corvane::FurtherPlanes;

namespace {

// Table entries where every plane prints on its default side.
constexpr unsigned kAllSet = 0x1FF;
constexpr unsigned kBothSet = 0x0F;

// The second expansion's result: six planes as they came, two doubled ones, the room of one more.
constexpr std::size_t kKeptPlanes = 6;

// The pixels `kDistance` columns to the right, in the last bits of three neighbourhoods.
template <unsigned kDistance>
unsigned IndexOfThree(const std::array<corvane::PixelWindow, 3>& windows) {
  return windows[0].Ahead<kDistance>() << 6 | windows[1].Ahead<kDistance>() << 3 |
         windows[2].Ahead<kDistance>();
}

}  // namespace

RasterFilterBestGlossy::RasterFilterBestGlossy(corvane::CpuLevel level) : RasterFilterBase(level) {}
RasterFilterBestGlossy::RasterFilterBestGlossy(const RasterFilterBestGlossy& other)
    : RasterFilterBase(other) {
  *this = other;
}
RasterFilterBestGlossy& RasterFilterBestGlossy::operator=(const RasterFilterBestGlossy& other) {
  RasterFilterBase::operator=(other);
  secondExpansionState_ = other.secondExpansionState_;
  secondExpansionBuffer_ = other.secondExpansionBuffer_;
  ringFromT2_ = other.ringFromT2_;
  ringFromT0_ = other.ringFromT0_;
  secondExpansionRing_ = other.secondExpansionRing_;
  ready_ = ready_ && secondExpansionBuffer_;
  return *this;
}
RasterFilterBestGlossy::~RasterFilterBestGlossy() = default;

void RasterFilterBestGlossy::Initialize(unsigned long bufferSize) {
  const auto& [t0, t1, t2, t3] = corvane::kBestGlossyTables;
  const auto* const sA = corvane::kSecondExpansionTables[0].data();
  const auto* const sB = corvane::kSecondExpansionTables[1].data();
  BufferSize = static_cast<std::uint32_t>(bufferSize);
  secondExpansionState_ = kStateBit;
  ringFromT2_.Build(std::array{t2.data(), t3.data(), t0.data(), t1.data()});
  ringFromT0_.Build(std::array{t0.data(), t1.data(), t2.data(), t3.data()});
  secondExpansionRing_.Build(std::array{sA, sA, sB, sB, sB, sB, sA, sA});
  ready_ = Allocate(firstBuffer_, BufferSize) &&
           Allocate(secondExpansionBuffer_, SecondExpansionBytes(BufferSize));
}

void RasterFilterBestGlossy::FilterCurrentRaster(unsigned char** data, unsigned long row,
                                                 unsigned long* startByte, unsigned long* endByte,
                                                 unsigned long* planeBytes, unsigned long* width,
                                                 tagBinaryCMYKDescriptor descriptor) {
  const bool oddRow = row & 1;
  const Node* dark = (oddRow ? ringFromT2_ : ringFromT0_).First();
  const Node* light = (oddRow ? ringFromT0_ : ringFromT2_).First();

  const FurtherPlanes further = corvane::FurtherPlanesOf(FilterKind::BestGlossy, descriptor);
  const RowPlanes planes = BeginRow(*data, *startByte, *endByte, *planeBytes);
  RunColorPass(planes, {0, 2, 4}, dark);
  if (further == FurtherPlanes::Black) RunBlackPass(planes, 6, dark);
  if (further == FurtherPlanes::CdMdBlack) RunColorPass(planes, {6, 7, 8}, light);
  RunColorPass(planes, {1, 3, 5}, light);
  EndRow(data, startByte, endByte, planeBytes, width);
}

void RasterFilterBestGlossy::FilterColorPlanes(unsigned short byteCount) {
  if (byteCount == 0) return;
  if (kernels_ != nullptr) {
    const auto states = kernels_->placeBestGlossy(TakeSidePass<3, 4>(byteCount, kAllSet));
    evenState_ = states.even;
    oddState_ = states.odd;
    return;
  }
  // The neighbourhoods of the three inks, as the tables are indexed. Two pixels on, what was the
  // pixel is the left one, so each parity's slide by one bit.
  constexpr unsigned kStaying = 0b011'011'011;
  unsigned neighbourhoods[2] = {};
  corvane::WalkPixels(colorIn_, byteCount, [&](unsigned x, const auto& windows) {
    unsigned& around = neighbourhoods[x & 1];
    unsigned char* const state = x & 1 ? &oddState_ : &evenState_;
    if (x < 2) around = IndexOfThree<0>(windows);
    around = (around & kStaying) << 1 | IndexOfThree<2>(windows);
    const unsigned met = x < 2 ? 0 : *state >> 7;
    StoreTwoBitsEachCMY(ringCursor_->table[met << 9 | around], state);
    ringCursor_ = ringCursor_->next;
  });
}

void RasterFilterBestGlossy::FilterBlackPlane(unsigned short byteCount) {
  if (byteCount == 0) return;
  if (kernels_ != nullptr) {
    kernels_->placeFixed(TakeBlackPass<4>(byteCount, kAllSet));
    evenState_ = 0;
    oddState_ = 0;
    return;
  }
  std::array<const std::uint8_t*, 1> in = {blackIn_};
  corvane::WalkPixels(in, byteCount, [this](unsigned x, const auto& windows) {
    const unsigned neighbourhood = windows[0].template Neighbourhood<2>();
    StoreTwoKBits(ringCursor_->table[neighbourhood << 6], x & 1 ? &oddState_ : &evenState_);
    ringCursor_ = ringCursor_->next;
  });
  blackIn_ = in[0];
}

void RasterFilterBestGlossy::RasterSecondExpansion(unsigned char** data, unsigned long,
                                                   unsigned long* startByte, unsigned long* endByte,
                                                   unsigned long* planeBytes, unsigned long*,
                                                   tagBinaryCMYKDescriptor) {
  const std::size_t start = std::min(*startByte, *endByte);
  const std::size_t plane = *planeBytes;
  std::uint8_t* const out = secondExpansionBuffer_.Data();
  std::copy_n(*data, kKeptPlanes * plane, out);
  std::fill_n(out + kKeptPlanes * plane, (corvane::kSecondExpansionPlanes - kKeptPlanes) * plane,
              0);

  colorIn_[0] = *data + start + 6 * plane;
  colorIn_[1] = *data + start + 7 * plane;
  firstRowOut_[0] = out + 2 * start + 6 * plane;
  firstRowOut_[1] = out + 2 * start + 8 * plane;
  EmptyAccumulators();
  ringCursor_ = secondExpansionRing_.First();
  FiltercmKPlanes(static_cast<unsigned short>(*endByte - start));
  *data = out;
}

void RasterFilterBestGlossy::FiltercmKPlanes(unsigned short byteCount) {
  if (kernels_ != nullptr) {
    secondExpansionState_ = kernels_->placeSecondExpansion(TakeSidePass<2, 8>(byteCount, kBothSet),
                                                           secondExpansionState_);
    return;
  }
  std::array<const std::uint8_t*, 2> in = {colorIn_[0], colorIn_[1]};
  corvane::WalkPixels(in, byteCount, [this](unsigned, const auto& windows) {
    const unsigned index = unsigned{secondExpansionState_} >> 7 << 4 |
                           windows[0].template Pair<4>() << 2 | windows[1].template Pair<4>();
    StoreTwoBits24to48(ringCursor_->table[index], &secondExpansionState_);
    ringCursor_ = ringCursor_->next;
  });
  colorIn_[0] = in[0];
  colorIn_[1] = in[1];
}
