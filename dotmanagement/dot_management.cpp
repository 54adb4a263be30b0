// SPDX-License-Identifier: MIT
#include "dotmanagement/dot_management.h"

#include <algorithm>
#include <new>

#include "dotmanagement/raster_filter_best_glossy.h"
#include "dotmanagement/raster_filter_better_glossy.h"
#include "dotmanagement/raster_filter_better_glossy_1.h"
#include "plugin/element_frame.h"

namespace corvane {

enum class FilterKind { BestGlossy, BetterGlossy, BetterGlossyCells };

// What a print mode and "UseAlternateModes" make of the page's rows.
struct FilterMode {
  tagBinaryCMYKDescriptor descriptor;
  std::uint16_t alternateMode;
  FilterKind filter;
  std::uint8_t planesIn;       // of a row; 0: the page's "NumberOfPlanes"
  std::uint8_t planesRead;     // by the passes
  std::uint8_t planesWritten;  // by the passes of the first expansion
  bool firstExpansion;
  bool secondExpansion;
};

namespace {

// The planes that the second expansion's result spans.
constexpr std::uint8_t kSecondExpansionPlanes = 12;

constexpr FilterMode kFilterModes[] = {
    // clang-format off
    {CcMmYy_4800x1200_16Pass,    0, FilterKind::BestGlossy,         0,  6, 6, true,  false},
    {CcMmYyK_4800x1200_16Pass,   0, FilterKind::BestGlossy,         0,  7, 7, true,  false},
    {CcMmYycmK_4800x1200_16Pass, 0, FilterKind::BestGlossy,         0,  8, 0, false, true},
    {CcMmYycmK_4800x1200_16Pass, 1, FilterKind::BestGlossy,         0,  9, 9, true,  true},
    {CcMmYy_1200x1200_8Pass,     1, FilterKind::BetterGlossy,       0,  6, 6, true,  false},
    {CcMmYyK_1200x1200_8Pass,    1, FilterKind::BetterGlossy,       0,  7, 7, true,  false},
    {CcMmYycmK_1200x1200_8Pass,  1, FilterKind::BetterGlossy,       0,  9, 9, true,  false},
    {CcMmYy_1200x1200_8Pass,     2, FilterKind::BetterGlossyCells, 12, 12, 6, true,  false},
    {CcMmYyK_1200x1200_8Pass,    2, FilterKind::BetterGlossyCells, 13, 13, 7, true,  false},
    {CcMmYycmK_1200x1200_8Pass,  2, FilterKind::BetterGlossyCells, 18, 18, 9, true,  false},
    // clang-format on
};

const FilterMode* FindFilterMode(std::int32_t descriptor, std::uint16_t alternateMode) {
  for (const FilterMode& mode : kFilterModes) {
    if (mode.descriptor == descriptor && mode.alternateMode == alternateMode) return &mode;
  }
  return nullptr;
}

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
  const char* slot = planes == 1 ? "Slot2HorizontalRes" : "Slot1HorizontalRes";
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

ECorvaneDotManagement::ECorvaneDotManagement() {
  Properties.SetProperty("EObjectType", "EDotManagement", kStandardGroup);
  Properties.SetProperty("Name", "EDotManagement", kStandardGroup);
}

ECorvaneDotManagement::ECorvaneDotManagement(const ECorvaneDotManagement&) = default;
ECorvaneDotManagement& ECorvaneDotManagement::operator=(const ECorvaneDotManagement&) = default;
ECorvaneDotManagement::~ECorvaneDotManagement() = default;

unsigned long ECorvaneDotManagement::Initialize() {
  return corvane::MakePads(*this, &sourcePad_, &sinkPad_);
}

unsigned long ECorvaneDotManagement::DataArrived(ZCOM::QObject* message, unsigned short) {
  if (message == nullptr) return 1;
  if (message->IsPassThrough() != 0) return ForwardMessage(*this, message);

  switch (message->MessageKind) {
    case kStartPageMessage:
      SetUpPage(static_cast<const QStartPage&>(*message));
      break;
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
  mode_ = nullptr;
}

void ECorvaneDotManagement::SetUpPage(const QStartPage& page) {
  ReleaseFilter();
  const std::int32_t descriptor = corvane::PageInt(page.PageProperties, "CMYKBinaryDescriptor");
  descriptor_ = static_cast<tagBinaryCMYKDescriptor>(descriptor);
  const auto planes =
      static_cast<std::uint8_t>(corvane::PageNumber(page.PageProperties, "NumberOfPlanes"));
  const std::uint32_t inputResolution =
      corvane::PageNumber(page.Properties, "HorizontalInputResolution");
  const corvane::FilterMode* mode = corvane::FindFilterMode(
      descriptor, corvane::PageNumber16(page.Properties, "UseAlternateModes"));
  if (mode == nullptr || planes == 0 || inputResolution == 0) return;

  std::uint32_t bufferSize = 0;
  if (!corvane::FindFilterBufferSize(page, planes, inputResolution, &bufferSize)) return;
  filter_.reset(corvane::NewFilter(mode->filter));
  if (filter_ == nullptr) return;
  filter_->Initialize(bufferSize);
  filter_->StrideFactor = 1;
  filter_->PlaneCount = planes;
  if (!filter_->IsReady()) {
    filter_.reset();
    return;
  }
  mode_ = mode;
  FilterActive = 1;
  PlaneDivisor = mode->planesIn == 0 ? planes : mode->planesIn;
  TwoRastersOut = mode->filter == corvane::FilterKind::BetterGlossyCells;
  ApplySecondExpansion = mode->secondExpansion;
  SkipFirstExpansion = !mode->firstExpansion;
}

// Whether the filter is there and reads and writes nothing outside the row and its own buffers.
bool ECorvaneDotManagement::CanFilter(const QCMYKBinaryRaster& raster) const {
  if (FilterActive != 1) return false;
  const std::uint64_t startByte = raster.FirstPixel / 8;
  const std::uint64_t endByte = (std::uint64_t{raster.EndPixel} + 7) / 8;
  std::uint64_t planeBytes = raster.RowBytes / PlaneDivisor;
  if (endByte > planeBytes || mode_->planesRead * planeBytes > raster.RowBytes) return false;
  // Of the longest pass; passes count in 16 bits.
  std::uint64_t byteCount = startByte < endByte ? endByte - startByte : 0;
  if (ApplySecondExpansion && !SkipFirstExpansion) byteCount *= 2;
  if (byteCount > UINT16_MAX) return false;
  if (raster.Data == nullptr && planeBytes != 0) return false;
  if (!SkipFirstExpansion) {
    planeBytes *= 2;
    const auto planes = std::max(filter_->PlaneCount, mode_->planesWritten);
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
  unsigned char* data = raster.Data;
  unsigned long startByte = raster.FirstPixel / 8;
  unsigned long endByte = (raster.EndPixel + 7) / 8;
  unsigned long planeBytes = raster.RowBytes / PlaneDivisor;
  unsigned long width = raster.Width;
  if (!SkipFirstExpansion) {
    filter_->FilterCurrentRaster(&data, raster.Row, &startByte, &endByte, &planeBytes, &width,
                                 descriptor_);
  }
  if (ApplySecondExpansion) {
    filter_->RasterSecondExpansion(&data, raster.Row, &startByte, &endByte, &planeBytes, &width,
                                   descriptor_);
  }

  const std::uint32_t pixelFactor = SkipFirstExpansion ? 1 : 2;
  outputRaster_.RasterFormat = raster.RasterFormat;
  outputRaster_.PassThroughValue = raster.PassThroughValue;
  outputRaster_.Row = TwoRastersOut ? 2 * raster.Row : raster.Row;
  outputRaster_.FirstPixel = pixelFactor * raster.FirstPixel;
  outputRaster_.EndPixel = pixelFactor * raster.EndPixel;
  outputRaster_.Width = static_cast<std::uint32_t>(width);
  outputRaster_.RowBytes = static_cast<std::uint32_t>(filter_->PlaneCount * planeBytes);
  outputRaster_.Data = data;
  const unsigned long result = ForwardMessage(*this, &outputRaster_);
  if (!TwoRastersOut) return result;

  outputRaster_.Row = 2 * raster.Row + 1;
  outputRaster_.Data = filter_->GetSecondCurrentRaster();
  return ForwardMessage(*this, &outputRaster_);
}
