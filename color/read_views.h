// SPDX-License-Identifier: MIT
//
// The pixels of an RGB row, read one after the other. One view per pixel layout; each is made on
// the stack for one row.
#pragma once

#include <cstddef>
#include <cstdint>

class QRaster;

namespace corvane {

// The layouts of RGB rows.
enum class PixelLayout { Rgb, Xrgb, RgbTag };
inline constexpr std::size_t kPixelLayouts = 3;

struct Pixel {
  std::uint8_t red;
  std::uint8_t green;
  std::uint8_t blue;
  std::uint8_t tag;  // selects the colour table; 0 in the layouts without tags
};

}  // namespace corvane

// R, G, B.
struct InlineRGBRGBRaster {
  static constexpr corvane::PixelLayout kLayout = corvane::PixelLayout::Rgb;
  static constexpr std::size_t kBytesPerPixel = 3;

  QRaster* raster;
  const unsigned char* cursor;

  corvane::Pixel Next() {
    const corvane::Pixel pixel = {cursor[0], cursor[1], cursor[2], 0};
    cursor += kBytesPerPixel;
    return pixel;
  }
};

// X, R, G, B; X is not read.
struct InlineXRGBXRGBRaster {
  static constexpr corvane::PixelLayout kLayout = corvane::PixelLayout::Xrgb;
  static constexpr std::size_t kBytesPerPixel = 4;

  QRaster* raster;
  const unsigned char* cursor;

  corvane::Pixel Next() {
    const corvane::Pixel pixel = {cursor[1], cursor[2], cursor[3], 0};
    cursor += kBytesPerPixel;
    return pixel;
  }
};

// R, G, B and a tag M.
struct InlineRGBMRGBMRaster {
  static constexpr corvane::PixelLayout kLayout = corvane::PixelLayout::RgbTag;
  static constexpr std::size_t kBytesPerPixel = 4;

  QRaster* raster;
  const unsigned char* cursor;

  corvane::Pixel Next() {
    const corvane::Pixel pixel = {cursor[0], cursor[1], cursor[2], cursor[3]};
    cursor += kBytesPerPixel;
    return pixel;
  }
};
