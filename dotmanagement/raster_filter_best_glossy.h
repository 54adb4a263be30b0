// SPDX-License-Identifier: MIT
#pragma once

#include "dotmanagement/raster_filter_base.h"

// Doubles the horizontal resolution of the best glossy modes: every dot goes to the left or right
// half of its pixel, by its column, row and ink, by the dots two columns away and by a state that
// sends isolated dots to alternating sides. Under 109 a second expansion doubles the planes of cd
// and md once more.
class CORVANE_API RasterFilterBestGlossy : public RasterFilterBase {
 public:
  explicit RasterFilterBestGlossy(corvane::CpuLevel level = corvane::SelectedCpuLevel());
  RasterFilterBestGlossy(const RasterFilterBestGlossy&);
  RasterFilterBestGlossy& operator=(const RasterFilterBestGlossy&);
  ~RasterFilterBestGlossy() override;

  void Initialize(unsigned long bufferSize) override;
  void FilterCurrentRaster(unsigned char** data, unsigned long row, unsigned long* startByte,
                           unsigned long* endByte, unsigned long* planeBytes, unsigned long* width,
                           tagBinaryCMYKDescriptor descriptor) override;
  void RasterSecondExpansion(unsigned char** data, unsigned long row, unsigned long* startByte,
                             unsigned long* endByte, unsigned long* planeBytes,
                             unsigned long* width, tagBinaryCMYKDescriptor descriptor) override;
  void FilterColorPlanes(unsigned short byteCount) override;
  void FilterBlackPlane(unsigned short byteCount) override;
  unsigned char* GetSecondCurrentRaster() override { return nullptr; }

  // The pass of the second expansion over two planes, at the cyan and magenta cursors.
  void FiltercmKPlanes(unsigned short byteCount);

  // What the second expansion carries from row to row.
  std::uint8_t SecondExpansionState() const { return secondExpansionState_; }
  void SetSecondExpansionState(std::uint8_t state) { secondExpansionState_ = state; }

  // Packs the codes of two planes (bits 3-2 and 1-0) into the first row and stores bit 7 as the
  // new state.
  void StoreTwoBits24to48(unsigned char code, unsigned char* state) {
    *state = code & kStateBit;
    StoreCodes<0, 2, 2>(code, true);
  }

  // Bytes that the second expansion's result may have.
  static constexpr std::uint64_t SecondExpansionBytes(std::uint32_t bufferSize) {
    return std::uint64_t{bufferSize / 3} * 4;
  }

 protected:
  std::uint8_t secondExpansionState_ = 0;  // 0 or 0x80, carried through the page
  corvane::Buffer<std::uint8_t> secondExpansionBuffer_;
  corvane::PatternRing<std::uint8_t> ringFromT2_;
  corvane::PatternRing<std::uint8_t> ringFromT0_;
  corvane::PatternRing<std::uint8_t> secondExpansionRing_;
};
