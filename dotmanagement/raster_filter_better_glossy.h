// SPDX-License-Identifier: MIT
#pragma once

#include "dotmanagement/raster_filter_base.h"

// Doubles the horizontal resolution of the better glossy modes: as the best glossy filter, with
// neighbours one column away, one state for all columns and rings that change every row of four.
class CORVANE_API RasterFilterBetterGlossy : public RasterFilterBase {
 public:
  explicit RasterFilterBetterGlossy(corvane::CpuLevel level = corvane::SelectedCpuLevel());
  RasterFilterBetterGlossy(const RasterFilterBetterGlossy&);
  RasterFilterBetterGlossy& operator=(const RasterFilterBetterGlossy&);
  ~RasterFilterBetterGlossy() override;

  void Initialize(unsigned long bufferSize) override;
  void FilterCurrentRaster(unsigned char** data, unsigned long row, unsigned long* startByte,
                           unsigned long* endByte, unsigned long* planeBytes, unsigned long* width,
                           tagBinaryCMYKDescriptor descriptor) override;
  void RasterSecondExpansion(unsigned char**, unsigned long, unsigned long*, unsigned long*,
                             unsigned long*, unsigned long*, tagBinaryCMYKDescriptor) override {}
  void FilterColorPlanes(unsigned short byteCount) override;
  void FilterBlackPlane(unsigned short byteCount) override;
  unsigned char* GetSecondCurrentRaster() override { return nullptr; }

 protected:
  corvane::PatternRing<std::uint8_t> ringU1U0_;
  corvane::PatternRing<std::uint8_t> ringU3U2_;
  corvane::PatternRing<std::uint8_t> ringU0U1_;
  corvane::PatternRing<std::uint8_t> ringU2U3_;
};
