// SPDX-License-Identifier: MIT
#pragma once

#include "dotmanagement/raster_filter_base.h"

// Turns every pixel of the better glossy modes into a cell of two by two sub-dots, so that a row
// gives two rows. Each ink has two input planes, which hold a drop count with the first as bit 0;
// counts of 2 and 3 put two dots into the cell.
class CORVANE_API RasterFilterBetterGlossy_1 : public RasterFilterBase {
 public:
  explicit RasterFilterBetterGlossy_1(corvane::CpuLevel level = corvane::SelectedCpuLevel());
  RasterFilterBetterGlossy_1(const RasterFilterBetterGlossy_1&);
  RasterFilterBetterGlossy_1& operator=(const RasterFilterBetterGlossy_1&);
  ~RasterFilterBetterGlossy_1() override;

  void Initialize(unsigned long bufferSize) override;
  void FilterCurrentRaster(unsigned char** data, unsigned long row, unsigned long* startByte,
                           unsigned long* endByte, unsigned long* planeBytes, unsigned long* width,
                           tagBinaryCMYKDescriptor descriptor) override;
  void RasterSecondExpansion(unsigned char**, unsigned long, unsigned long*, unsigned long*,
                             unsigned long*, unsigned long*, tagBinaryCMYKDescriptor) override {}
  void FilterColorPlanes(unsigned short byteCount) override;
  void FilterBlackPlane(unsigned short byteCount) override;
  unsigned char* GetSecondCurrentRaster() override { return secondBuffer_.Data(); }

 protected:
  // The first planes of three inks; the second plane of each follows its first.
  void RunCellPass(const RowPlanes& planes, const PlaneNumbers& firstPlanes,
                   const PlaneNumbers& outputs, const CellNode* ring);
  void RunBlackCellPass(const RowPlanes& planes, const CellNode* ring);
  corvane::CellPass TakeCellPass(unsigned short byteCount);

  // V0-V1-V2-V3, V1-V0-V3-V2, V4-V5-V6-V7, V5-V4-V7-V6,
  // V2-V3-V0-V1, V3-V2-V1-V0, V6-V7-V4-V5, V7-V6-V5-V4
  std::array<corvane::PatternRing<std::uint16_t>, 8> rings_;
};
