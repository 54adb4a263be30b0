// SPDX-License-Identifier: MIT
#include "dotmanagement/raster_filter_better_glossy.h"

#include "dotmanagement/filter_table.h"
#include "dotmanagement/pattern_tables.h"
#include "dotmanagement/pixel_walk.h"

using corvane::FilterKind;
using corvane::FurtherPlanes;

namespace {

// The table entry where every plane prints on its default side.
constexpr unsigned kAllSet = 0x3F;

}  // namespace

RasterFilterBetterGlossy::RasterFilterBetterGlossy(corvane::CpuLevel level)
    : RasterFilterBase(level) {}
RasterFilterBetterGlossy::RasterFilterBetterGlossy(const RasterFilterBetterGlossy&) = default;
RasterFilterBetterGlossy& RasterFilterBetterGlossy::operator=(const RasterFilterBetterGlossy&) =
    default;
RasterFilterBetterGlossy::~RasterFilterBetterGlossy() = default;

void RasterFilterBetterGlossy::Initialize(unsigned long bufferSize) {
  const auto& [u0, u1, u2, u3] = corvane::kBetterGlossyTables;
  BufferSize = static_cast<std::uint32_t>(bufferSize);
  ringU1U0_.Build(std::array{u1.data(), u0.data()});
  ringU3U2_.Build(std::array{u3.data(), u2.data()});
  ringU0U1_.Build(std::array{u0.data(), u1.data()});
  ringU2U3_.Build(std::array{u2.data(), u3.data()});
  ready_ = Allocate(firstBuffer_, BufferSize);
}

void RasterFilterBetterGlossy::FilterCurrentRaster(unsigned char** data, unsigned long row,
                                                   unsigned long* startByte, unsigned long* endByte,
                                                   unsigned long* planeBytes, unsigned long* width,
                                                   tagBinaryCMYKDescriptor descriptor) {
  const std::array darkRings = {&ringU1U0_, &ringU0U1_, &ringU3U2_, &ringU2U3_};
  const std::array lightRings = {&ringU0U1_, &ringU1U0_, &ringU2U3_, &ringU3U2_};
  const Node* dark = darkRings[row & 3]->First();
  const Node* light = lightRings[row & 3]->First();

  const FurtherPlanes further = corvane::FurtherPlanesOf(FilterKind::BetterGlossy, descriptor);
  const RowPlanes planes = BeginRow(*data, *startByte, *endByte, *planeBytes);
  RunColorPass(planes, {0, 2, 4}, dark);
  if (further == FurtherPlanes::Black) RunBlackPass(planes, 6, dark);
  if (further == FurtherPlanes::CdMdBlack) RunColorPass(planes, {6, 7, 8}, dark);
  RunColorPass(planes, {1, 3, 5}, light);
  EndRow(data, startByte, endByte, planeBytes, width);
}

void RasterFilterBetterGlossy::FilterColorPlanes(unsigned short byteCount) {
  if (byteCount == 0) return;
  if (kernels_ != nullptr) {
    evenState_ = kernels_->placeBetterGlossy(TakeSidePass<3, 2>(byteCount, kAllSet));
    return;
  }
  corvane::WalkPixels(colorIn_, byteCount, [this](unsigned x, const auto& windows) {
    const unsigned met = x == 0 ? 0 : evenState_ >> 7;
    const unsigned index = met << 6 | windows[0].template Pair<1>() << 4 |
                           windows[1].template Pair<1>() << 2 | windows[2].template Pair<1>();
    StoreTwoBitsEachCMY(ringCursor_->table[index], &evenState_);
    ringCursor_ = ringCursor_->next;
  });
}

void RasterFilterBetterGlossy::FilterBlackPlane(unsigned short byteCount) {
  if (byteCount == 0) return;
  if (kernels_ != nullptr) {
    kernels_->placeFixed(TakeBlackPass<2>(byteCount, kAllSet));
    evenState_ = 0;
    return;
  }
  std::array<const std::uint8_t*, 1> in = {blackIn_};
  corvane::WalkPixels(in, byteCount, [this](unsigned, const auto& windows) {
    StoreTwoKBits(ringCursor_->table[windows[0].template Pair<1>() << 4], &evenState_);
    ringCursor_ = ringCursor_->next;
  });
  blackIn_ = in[0];
}
