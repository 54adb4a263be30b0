// SPDX-License-Identifier: MIT
#include "app/chain/row_bytes.h"

#include <algorithm>

#include "host/property_names.h"
#include "printmode/print_modes.h"

namespace corvane {

using property::kStandardGroup;

std::uint64_t RowBytesRead::NotePage(const QStartPage& page) {
  int descriptor = 0;
  unsigned long width = 0;
  unsigned short left = 0, right = 0;
  page.Properties.GetProperty(property::kPrintableWidth, &width, 0, kStandardGroup);
  page.Properties.GetProperty(property::kLeftOverSprayPixels, &left, 0, kStandardGroup);
  page.Properties.GetProperty(property::kRightOverSprayPixels, &right, 0, kStandardGroup);
  page.PageProperties.GetProperty(property::kCMYKBinaryDescriptor, &descriptor, 0, kStandardGroup);
  const std::uint64_t pixels = std::uint64_t{width} + left + right;
  widest_ = std::max(widest_, pixels);
  if (const PrintMode* mode = FindPrintMode(descriptor)) {
    planes_ = std::max(planes_, PlanesOf(mode->inkSet));
  }
  return pixels;
}

std::uint64_t RowBytesRead::Of(const QRaster& row) const {
  constexpr std::uint64_t kMostPixelBytes = 4;  // of the RGB layouts
  std::uint64_t read = 0;
  if (row.MessageKind == kRgbRasterMessage) {
    read = kMostPixelBytes * std::min<std::uint64_t>(row.EndPixel, widest_);
  } else if (row.MessageKind == kContoneRasterMessage && planes_ > 0) {
    const std::uint64_t stride = row.Width == 0 ? widest_ : row.Width;
    read = static_cast<std::uint64_t>(planes_ - 1) * stride + std::min(stride, widest_);
  }
  return std::max<std::uint64_t>(read, row.RowBytes);
}

}  // namespace corvane
