// SPDX-License-Identifier: MIT
//
// The last element of the chain: places the dots of the glossy print modes. For a page of these it
// holds a raster filter that doubles the horizontal resolution of every binary row, in some modes
// also the vertical one, and sends one row or two for each; every other page passes unchanged.
// It raises no errors: a row that the page's filter could not take within its memory passes
// unchanged as well.
#pragma once

#include <cstdint>
#include <memory>

#include "dotmanagement/raster_filter_base.h"
#include "host/framework.h"
#include "host/raster.h"
#include "plugin/export.h"

namespace corvane {
struct FilterMode;
}

class CORVANE_API ECorvaneDotManagement final : public ZCOM::EObject {
 public:
  ECorvaneDotManagement();
  ECorvaneDotManagement(const ECorvaneDotManagement&);
  ECorvaneDotManagement& operator=(const ECorvaneDotManagement&);
  ~ECorvaneDotManagement() override;

  unsigned long Initialize() override;
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short sinkPad) override;

 private:
  void SetUpPage(const QStartPage& page);
  void ReleaseFilter();
  bool CanFilter(const QCMYKBinaryRaster& raster) const;
  unsigned long FilterRaster(const QCMYKBinaryRaster& raster);

  QError ErrorObject;  // never sent
  QCMYKBinaryRaster outputRaster_;
  std::shared_ptr<RasterFilterBase> filter_;  // of the page, or null
  tagBinaryCMYKDescriptor descriptor_{};
  std::uint8_t PlaneDivisor = 0;           // planes that the incoming `RowBytes` holds
  std::uint32_t FilterActive = 0;          // rows go through the filter
  std::uint32_t TwoRastersOut = 0;         // each row gives two
  std::uint32_t ApplySecondExpansion = 0;  // the filter's second expansion runs
  std::uint32_t SkipFirstExpansion = 0;    // the filter's first expansion does not run
  ZCOM::SOURCEPAD* sourcePad_ = nullptr;
  ZCOM::SINKPAD* sinkPad_ = nullptr;
  const corvane::FilterMode* mode_ = nullptr;  // of the page while the filter is active
};
