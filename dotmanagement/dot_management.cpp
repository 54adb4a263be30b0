// SPDX-License-Identifier: MIT
#include "dotmanagement/dot_management.h"

#include <algorithm>
#include <new>

#include "dotmanagement/filter_table.h"
#include "dotmanagement/raster_filter_best_glossy.h"
#include "dotmanagement/raster_filter_better_glossy.h"
#include "dotmanagement/raster_filter_better_glossy_1.h"
#include "plugin/frame/element_frame.h"
#include "printmode/page_shape.h"
#include "printmode/print_modes.h"

namespace corvane {

namespace {

// Null when memory is short.
RasterFilterBase* NewFilter(FilterKind kind) {
  switch (kind) {
    case FilterKind::BestGlossy:
      return new (std::nothrow) RasterFilterBestGlossy;
    case FilterKind::BetterGlossy:
      return new (std::nothrow) RasterFilterBetterGlossy;
    case FilterKind::BetterGlossyCells:
      return new (std::nothrow) RasterFilterBetterGlossy_1;
  }
  return nullptr;
}

// Of a filter of that kind. Null when memory is short.
RasterFilterBase* NewCopy(FilterKind kind, const RasterFilterBase& filter) {
  switch (kind) {
    case FilterKind::BestGlossy:
      return new (std::nothrow)
          RasterFilterBestGlossy(static_cast<const RasterFilterBestGlossy&>(filter));
    case FilterKind::BetterGlossy:
      return new (std::nothrow)
          RasterFilterBetterGlossy(static_cast<const RasterFilterBetterGlossy&>(filter));
    case FilterKind::BetterGlossyCells:
      return new (std::nothrow)
          RasterFilterBetterGlossy_1(static_cast<const RasterFilterBetterGlossy_1&>(filter));
  }
  return nullptr;
}

// How much finer a slot of the printhead prints than the input is; a slot of 4800 dpi gets half of
// that, as the filters' own doubling comes on top.
std::uint32_t HorizontalFactor(std::uint32_t slotResolution, std::uint32_t inputResolution) {
  const std::uint32_t factor = slotResolution / inputResolution;
  return slotResolution == 4800 ? factor / 2 : factor;
}

// The bytes of an output row with all its planes. False when they do not fit 32 bits.
// `inputResolution` and `planes` are not 0.
bool FindFilterBufferSize(const QStartPage& page, std::uint8_t planes,
                          std::uint32_t inputResolution, std::uint32_t* size) {
  const std::uint64_t width = PageWidthWithOverspray(page.Properties);
  const char* slot = planes == 1 ? property::kSlot2HorizontalRes : property::kSlot1HorizontalRes;
  const std::uint32_t factor =
      HorizontalFactor(PageNumber(page.PageProperties, slot), inputResolution);
  const std::uint64_t rowBytes = (width + 7) / 8 * planes;
  if (factor != 0 && rowBytes > UINT32_MAX / factor) return false;
  *size = static_cast<std::uint32_t>(rowBytes * factor);
  return true;
}

}  // namespace
}  // namespace corvane

using corvane::ForwardMessage;
using corvane::kStandardGroup;
namespace property = corvane::property;

ECorvaneDotManagement::ECorvaneDotManagement() {
  Properties.SetProperty(property::kEObjectType, "EDotManagement", kStandardGroup);
  Properties.SetProperty(property::kName, "EDotManagement", kStandardGroup);
}

ECorvaneDotManagement::ECorvaneDotManagement(const ECorvaneDotManagement& other)
    : ECorvaneDotManagement() {
  *this = other;
}

ECorvaneDotManagement& ECorvaneDotManagement::operator=(const ECorvaneDotManagement& other) {
  if (this == &other) return *this;
  ZCOM::EObject::operator=(other);
  ReleaseFilter();
  ErrorObject = other.ErrorObject;
  outputRaster_ = other.outputRaster_;
  descriptor_ = other.descriptor_;
  PlaneDivisor = other.PlaneDivisor;
  TwoRastersOut = other.TwoRastersOut;
  ApplySecondExpansion = other.ApplySecondExpansion;
  SkipFirstExpansion = other.SkipFirstExpansion;
  planesRead_ = other.planesRead_;
  planesWritten_ = other.planesWritten_;
  filterKind_ = other.filterKind_;
  if (other.filter_ != nullptr) {
    filter_.reset(corvane::NewCopy(filterKind_, *other.filter_));
    FilterActive = filter_ != nullptr && filter_->IsReady() ? other.FilterActive : 0;
  }
  return *this;
}

ECorvaneDotManagement::~ECorvaneDotManagement() = default;

bool ECorvaneDotManagement::IsComplete() const {
  return Properties.IsComplete() && ErrorObject.Properties.IsComplete();
}

std::size_t ECorvaneDotManagement::StateBytes() const {
  const bool doubles = filterKind_ == corvane::FilterKind::BestGlossy && ApplySecondExpansion != 0;
  return FilterActive == 1 && doubles ? 1 : 0;
}

void ECorvaneDotManagement::SaveState(unsigned char* state) const {
  if (StateBytes() == 0) return;
  *state = static_cast<const RasterFilterBestGlossy&>(*filter_).SecondExpansionState();
}

void ECorvaneDotManagement::RestoreState(const unsigned char* state) {
  if (StateBytes() == 0) return;
  static_cast<RasterFilterBestGlossy&>(*filter_).SetSecondExpansionState(*state);
}

unsigned long ECorvaneDotManagement::Initialize() { return corvane::MakePads(*this); }

unsigned long ECorvaneDotManagement::DataArrived(ZCOM::QObject* message, unsigned short) {
  if (message == nullptr) return 1;
  if (message->IsPassThrough() != 0) return ForwardMessage(*this, message);

  switch (message->MessageKind) {
    case kStartPageMessage:
      if (SetUpPage(static_cast<const QStartPage&>(*message))) break;
      ForwardMessage(*this, message);
      return 0;
    case kEndPageMessage: {
      const unsigned long result = ForwardMessage(*this, message);
      ReleaseFilter();
      return result;
    }
    case kBinaryRasterMessage: {
      const auto& raster = static_cast<const QCMYKBinaryRaster&>(*message);
      if (CanFilter(raster)) return FilterRaster(raster);
      break;
    }
    default:
      break;
  }
  return corvane::PassOn(*this, message);
}

void ECorvaneDotManagement::ReleaseFilter() {
  FilterActive = 0;
  filter_.reset();
}

bool ECorvaneDotManagement::SetUpPage(const QStartPage& page) {
  ReleaseFilter();
  const std::int32_t descriptor =
      corvane::PageInt(page.PageProperties, property::kCMYKBinaryDescriptor);
  descriptor_ = static_cast<tagBinaryCMYKDescriptor>(descriptor);
  const auto planes = static_cast<std::uint8_t>(
      corvane::PageNumber(page.PageProperties, property::kNumberOfPlanes));
  const std::uint32_t inputResolution =
      corvane::PageNumber(page.Properties, property::kHorizontalInputResolution);
  const auto alternateMode = corvane::PageNumber16(page.Properties, property::kUseAlternateModes);
  const corvane::FilterRow* row = corvane::FindFilter(descriptor, alternateMode);
  const corvane::PrintMode* mode = corvane::FindPrintMode(descriptor);
  if (row == nullptr || mode == nullptr || planes == 0 || inputResolution == 0) return true;

  std::uint32_t bufferSize = 0;
  if (!corvane::FindFilterBufferSize(page, planes, inputResolution, &bufferSize)) return true;
  if (row->filter == corvane::FilterKind::BestGlossy &&
      RasterFilterBestGlossy::SecondExpansionBytes(bufferSize) > UINT32_MAX) {
    return true;
  }
  filterKind_ = row->filter;
  filter_.reset(corvane::NewFilter(filterKind_));
  if (filter_ == nullptr) return false;
  filter_->Initialize(bufferSize);
  filter_->StrideFactor = 1;
  filter_->PlaneCount = planes;
  if (!filter_->IsReady()) {
    filter_.reset();
    return false;
  }
  FilterActive = 1;
  SetUpRows(*mode, alternateMode);
  return true;
}

void ECorvaneDotManagement::SetUpRows(const corvane::PrintMode& mode, int alternateMode) {
  using corvane::PlanesAfter, corvane::Stage;
  const corvane::Placing& placing = mode.Alternate(alternateMode).placing;
  const auto halftoned = PlanesAfter(Stage::Halftoned, mode, alternateMode);
  const auto placed = PlanesAfter(Stage::Placed, mode, alternateMode);
  TwoRastersOut = placing.rows == 2;
  ApplySecondExpansion = placing.secondExpansion;
  SkipFirstExpansion = !placing.firstExpansion;
  // A row of drop counts has more planes than the page.
  PlaneDivisor =
      TwoRastersOut ? static_cast<std::uint8_t>(halftoned.Announced()) : filter_->PlaneCount;
  const auto read = placing.firstExpansion ? halftoned.Sent() : placed.Sent();
  planesRead_ = static_cast<std::uint8_t>(read.size());
  planesWritten_ = static_cast<std::uint8_t>(placed.Announced());
}

// Whether the filter is there and reads and writes nothing outside the row and its own buffers.
bool ECorvaneDotManagement::CanFilter(const QCMYKBinaryRaster& raster) const {
  if (FilterActive != 1) return false;
  const std::uint64_t startByte = raster.FirstPixel / 8;
  const std::uint64_t endByte = (std::uint64_t{raster.EndPixel} + 7) / 8;
  std::uint64_t planeBytes = raster.RowBytes / PlaneDivisor;
  if (endByte > planeBytes || planesRead_ * planeBytes > raster.RowBytes) return false;
  // Of the longest pass; passes count in 16 bits.
  std::uint64_t byteCount = startByte < endByte ? endByte - startByte : 0;
  if (ApplySecondExpansion && !SkipFirstExpansion) byteCount *= 2;
  if (byteCount > UINT16_MAX) return false;
  // The second expansion alone copies whole planes; else a row without bytes needs no data.
  const bool readsData = byteCount != 0 || (SkipFirstExpansion && planeBytes != 0);
  if (raster.Data == nullptr && readsData) return false;
  if (!SkipFirstExpansion) {
    planeBytes *= 2;
    const auto planes = std::max(filter_->PlaneCount, planesWritten_);
    if (planes * planeBytes > filter_->BufferSize) return false;
  }
  if (ApplySecondExpansion) {
    const auto planes = std::max(filter_->PlaneCount, corvane::kSecondExpansionPlanes);
    const auto room = RasterFilterBestGlossy::SecondExpansionBytes(filter_->BufferSize);
    if (planes * planeBytes > room) return false;
  }
  return true;
}

unsigned long ECorvaneDotManagement::FilterRaster(const QCMYKBinaryRaster& raster) {
  // Whoever gets the first row may change the message, or delete it.
  const std::uint32_t row = raster.Row;
  const bool twoRows = TwoRastersOut;
  unsigned char* data = raster.Data;
  unsigned long startByte = raster.FirstPixel / 8;
  unsigned long endByte = (raster.EndPixel + 7) / 8;
  unsigned long planeBytes = raster.RowBytes / PlaneDivisor;
  unsigned long width = raster.Width;
  if (!SkipFirstExpansion) {
    filter_->FilterCurrentRaster(&data, row, &startByte, &endByte, &planeBytes, &width,
                                 descriptor_);
  }
  if (ApplySecondExpansion) {
    filter_->RasterSecondExpansion(&data, row, &startByte, &endByte, &planeBytes, &width,
                                   descriptor_);
  }

  const std::uint32_t pixelFactor = SkipFirstExpansion ? 1 : 2;
  outputRaster_.RasterFormat = raster.RasterFormat;
  outputRaster_.PassThroughValue = raster.PassThroughValue;
  outputRaster_.Row = twoRows ? 2 * row : row;
  outputRaster_.FirstPixel = pixelFactor * raster.FirstPixel;
  outputRaster_.EndPixel = pixelFactor * raster.EndPixel;
  outputRaster_.Width = static_cast<std::uint32_t>(width);
  outputRaster_.RowBytes = static_cast<std::uint32_t>(filter_->PlaneCount * planeBytes);
  outputRaster_.Data = data;
  const RasterFilterBase* const filter = filter_.get();
  const unsigned long result = ForwardMessage(*this, &outputRaster_);
  if (!twoRows || filter_.get() != filter) return result;  // or end the page

  outputRaster_.Row = 2 * row + 1;
  outputRaster_.Data = filter_->GetSecondCurrentRaster();
  return ForwardMessage(*this, &outputRaster_);
}
