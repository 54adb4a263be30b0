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

#include "dotmanagement/filter_table.h"
#include "dotmanagement/raster_filter_base.h"
#include "host/carried_state.h"
#include "host/framework.h"
#include "host/raster.h"
#include "plugin/frame/export.h"

namespace corvane {
struct PrintMode;
}

// A copy is in the state of the element it was made from, in the middle of a page too, with pads
// and a filter of its own; where memory is too short for the filter, its rows pass unchanged.
class CORVANE_API ECorvaneDotManagement final : public ZCOM::EObject, public corvane::CarriedState {
 public:
  ECorvaneDotManagement();
  ECorvaneDotManagement(const ECorvaneDotManagement&);
  ECorvaneDotManagement& operator=(const ECorvaneDotManagement&);
  ~ECorvaneDotManagement() override;

  // False when memory was too short to make the element whole; it is then good for nothing.
  bool IsComplete() const;

  unsigned long Initialize() override;
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short sinkPad) override;

  // What the second expansion carries through the page.
  std::size_t StateBytes() const override;
  void SaveState(unsigned char* state) const override;
  void RestoreState(const unsigned char* state) override;

 private:
  // False when the page has to have a filter and memory is too short for it.
  bool SetUpPage(const QStartPage& page);
  // How the page's rows go through the filter, which is there.
  void SetUpRows(const corvane::PrintMode& mode, int alternateMode);
  void ReleaseFilter();
  bool CanFilter(const QCMYKBinaryRaster& raster) const;
  unsigned long FilterRaster(const QCMYKBinaryRaster& raster);

  QError ErrorObject;  // never sent
  QCMYKBinaryRaster outputRaster_;
  std::unique_ptr<RasterFilterBase> filter_;  // of the page, or null
  corvane::FilterKind filterKind_{};          // of the filter that is there
  tagBinaryCMYKDescriptor descriptor_{};
  std::uint8_t PlaneDivisor = 0;           // planes that the incoming `RowBytes` holds
  std::uint32_t FilterActive = 0;          // rows go through the filter
  std::uint32_t TwoRastersOut = 0;         // each row gives two
  std::uint32_t ApplySecondExpansion = 0;  // the filter's second expansion runs
  std::uint32_t SkipFirstExpansion = 0;    // the filter's first expansion does not run
  std::uint8_t planesRead_ = 0;            // by the filter's passes, of an incoming row
  std::uint8_t planesWritten_ = 0;         // by the passes of the first expansion
};
