// SPDX-License-Identifier: MIT
//
// The colour element's rows: which converter a row goes through, and the two diagnostics.

#include <algorithm>
#include <atomic>
#include <cstring>

#include "color/color_inline.h"
#include "color/points.h"

using corvane::InkSet;

namespace {

// The record of a row in the RGB dump: the pixels of the converted span, 0xFF elsewhere.
constexpr std::uint32_t kStripPixels = 4800;
constexpr std::size_t kStripRecordBytes = kStripPixels * 3;
constexpr std::size_t kStripBytes = 15000;

// The pixels of the span that lie in the strip go there, whatever the conversion does with them.
template <class View>
void FillStrip(View* view, std::uint32_t first, std::uint32_t end,
               unsigned char (&SaveRgbStrip)[kStripBytes]) {
  std::memset(SaveRgbStrip, 0xFF, sizeof SaveRgbStrip);
  if (first >= end) return;
  view->cursor = view->raster->Data + std::size_t{first} * View::kBytesPerPixel;
  for (std::uint32_t x = first; x < std::min(end, kStripPixels); ++x) {
    const corvane::Pixel pixel = view->Next();
    SaveRgbStrip[3 * x] = pixel.red;
    SaveRgbStrip[3 * x + 1] = pixel.green;
    SaveRgbStrip[3 * x + 2] = pixel.blue;
  }
}

// The number of the row that a points member fills: 0 for its first call, counting on from page to
// page and wrapping into the negative numbers. Each member has a counter for the whole library.
std::int32_t NextPointsRow(std::atomic<std::int32_t>& PointsRowCounter) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(PointsRowCounter.fetch_add(1)) + 1);
}

}  // namespace

// ---- Dispatch

void EColorInline::ClearRow(unsigned long first, unsigned long end) {
  if (!RowBuffer) return;
  const std::size_t width = PrintableWidth;
  const std::size_t left = std::min<std::size_t>(first, width);
  const std::size_t right = std::clamp<std::size_t>(end, left, width);
  for (std::size_t k = 0; k < PagePlanes(); ++k) {
    unsigned char* const plane = RowBuffer.Data() + k * width;
    std::memset(plane, 0, left);
    std::memset(plane + right, 0, width - right);
  }
}

void EColorInline::SetRowBytes() { OutputRaster.RowBytes = OutputRaster.Width * PagePlanes(); }

short EColorInline::ColorConvert(QRaster* raster, unsigned long first, unsigned long end) {
  if (!HasInkSet()) return 1;
  if (Points != 0) return ConvertPoints(first, end);
  switch (raster->RasterFormat) {
    case 1:
      return ConvertView<InlineRGBRGBRaster>(raster, first, end);
    case 3:
      return ConvertView<InlineXRGBXRGBRaster>(raster, first, end);
    case 4:
      return ConvertView<InlineRGBMRGBMRaster>(raster, first, end);
    default:
      return 1;
  }
}

template <class View>
short EColorInline::ConvertView(QRaster* raster, unsigned long first, unsigned long end) {
  if (raster->Data == nullptr) end = first;
  View view = {raster, raster->Data};
  ClearRow(first, end);
  switch (PageInkSet()) {
    case InkSet::Black:
      ColorConvertK(&view, first, end);
      break;
    case InkSet::Seven:
      ColorConvertCcMmYyK(&view, first, end);
      break;
    case InkSet::Nine:
      ColorConvertCcMmYyKcm(&view, first, end);
      break;
  }
  SetRowBytes();
  return 1;
}

short EColorInline::ConvertPoints(unsigned long first, unsigned long end) {
  ClearRow(first, end);
  switch (PageInkSet()) {
    case InkSet::Black:
      ColorConvertKPoints(RowBuffer.Data(), first, end);
      break;
    case InkSet::Seven:
      ColorConvertCcMmYyKPoints(RowBuffer.Data(), first, end);
      break;
    case InkSet::Nine:
      ColorConvertCcMmYyKcmPoints(RowBuffer.Data(), first, end);
      break;
  }
  SetRowBytes();
  return 1;
}

// ---- Conversions

template <class View>
short EColorInline::RunConverter(const corvane::RowConverter* converters, View* view,
                                 unsigned long first, unsigned long end) {
  if (first >= end) return 1;
  converters[static_cast<int>(View::kLayout)](
      {view->raster->Data, static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(end),
       RowBuffer.Data(), PrintableWidth, tables_.TablePointers(), tables_.InterleavedByTag(),
       &ConversionCache});
  return 1;
}

// The dump gets a record for every row, also for one of which nothing is converted.
template <class View>
short EColorInline::RunInkConverter(const corvane::RowConverter* converters, View* view,
                                    unsigned long first, unsigned long end) {
  if (SaveRgb == 0) return RunConverter(converters, view, first, end);
  unsigned char SaveRgbStrip[kStripBytes];
  FillStrip(view, static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(end), SaveRgbStrip);
  RunConverter(converters, view, first, end);
  ZCOM::fwfwrite(SaveRgbStrip, 1, kStripRecordBytes, RgbFile.Handle());
  return 1;
}

short EColorInline::ColorConvertK(InlineRGBRGBRaster* view, unsigned long first,
                                  unsigned long end) {
  return RunConverter(converters_->black, view, first, end);
}

short EColorInline::ColorConvertK(InlineXRGBXRGBRaster* view, unsigned long first,
                                  unsigned long end) {
  return RunConverter(converters_->black, view, first, end);
}

short EColorInline::ColorConvertK(InlineRGBMRGBMRaster* view, unsigned long first,
                                  unsigned long end) {
  return RunConverter(converters_->black, view, first, end);
}

short EColorInline::ColorConvertCcMmYyK(InlineRGBRGBRaster* view, unsigned long first,
                                        unsigned long end) {
  return RunInkConverter(converters_->sevenInks, view, first, end);
}

short EColorInline::ColorConvertCcMmYyK(InlineXRGBXRGBRaster* view, unsigned long first,
                                        unsigned long end) {
  return RunInkConverter(converters_->sevenInks, view, first, end);
}

short EColorInline::ColorConvertCcMmYyK(InlineRGBMRGBMRaster* view, unsigned long first,
                                        unsigned long end) {
  return RunInkConverter(converters_->sevenInks, view, first, end);
}

short EColorInline::ColorConvertCcMmYyKcm(InlineRGBRGBRaster* view, unsigned long first,
                                          unsigned long end) {
  return RunInkConverter(converters_->nineInks, view, first, end);
}

short EColorInline::ColorConvertCcMmYyKcm(InlineXRGBXRGBRaster* view, unsigned long first,
                                          unsigned long end) {
  return RunInkConverter(converters_->nineInks, view, first, end);
}

short EColorInline::ColorConvertCcMmYyKcm(InlineRGBMRGBMRaster* view, unsigned long first,
                                          unsigned long end) {
  return RunInkConverter(converters_->nineInks, view, first, end);
}

// ---- Points diagnostic

short EColorInline::ColorConvertKPoints(unsigned char* rowBuffer, unsigned long first,
                                        unsigned long end) {
  constexpr int kAmount = 3;
  if (first < end) std::memset(rowBuffer + first, kAmount, end - first);
  return 1;
}

short EColorInline::ColorConvertCcMmYyKPoints(unsigned char* rowBuffer, unsigned long first,
                                              unsigned long end) {
  static std::atomic<std::int32_t> PointsRowCounter{-1};
  corvane::FillPointsRow(PointsBuffer.Data(), NextPointsRow(PointsRowCounter), 7, rowBuffer,
                         PrintableWidth, static_cast<std::uint32_t>(first),
                         static_cast<std::uint32_t>(end));
  return 1;
}

short EColorInline::ColorConvertCcMmYyKcmPoints(unsigned char* rowBuffer, unsigned long first,
                                                unsigned long end) {
  static std::atomic<std::int32_t> PointsRowCounter{-1};
  corvane::FillPointsRow(PointsBuffer.Data(), NextPointsRow(PointsRowCounter), 9, rowBuffer,
                         PrintableWidth, static_cast<std::uint32_t>(first),
                         static_cast<std::uint32_t>(end));
  return 1;
}
