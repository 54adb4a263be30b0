// SPDX-License-Identifier: MIT
//
// The plain way over the planes of a row: pixel by pixel, with the pixels around at hand.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace corvane {

// One plane around the current pixel, up to eight columns to either side.
class PixelWindow {
 public:
  void Start(std::uint8_t firstByte) { bits_ = std::uint32_t{firstByte} << kCurrentByte; }
  void LookAhead(std::uint8_t nextByte) { bits_ |= std::uint32_t{nextByte} << kNextByte; }
  void Slide() { bits_ <<= 1; }

  unsigned Pixel() const { return Ahead<0>(); }

  // The pixel `kDistance` columns to the right.
  template <unsigned kDistance>
  unsigned Ahead() const {
    return bits_ >> (kPixel - kDistance) & 1;
  }

  // (pixel `kDistance` columns to the left, pixel, pixel `kDistance` columns to the right)
  template <unsigned kDistance>
  unsigned Neighbourhood() const {
    return (bits_ >> (kPixel + kDistance) & 1) << 2 | Pixel() << 1 | Ahead<kDistance>();
  }

  // Whether a pixel `kDistance` columns to the left or right is set.
  template <unsigned kDistance>
  unsigned HasNeighbour() const {
    return (bits_ >> (kPixel + kDistance) | bits_ >> (kPixel - kDistance)) & 1;
  }

  // (pixel, neighbour)
  template <unsigned kDistance>
  unsigned Pair() const {
    return Pixel() << 1 | HasNeighbour<kDistance>();
  }

 private:
  // Bit numbers: the current pixel, and the last pixels of its byte and of the byte behind it where
  // the current pixel is the first of its byte.
  static constexpr unsigned kPixel = 16;
  static constexpr unsigned kCurrentByte = 9;
  static constexpr unsigned kNextByte = 1;

  std::uint32_t bits_ = 0;
};

// Calls visit(column, windows) for the pixels of `byteCount` bytes of each plane, from the left.
// Pixels outside these bytes are empty. The cursors end behind the bytes.
template <std::size_t kPlanes, class Visit>
void WalkPixels(std::array<const std::uint8_t*, kPlanes>& cursors, unsigned byteCount,
                Visit visit) {
  if (byteCount == 0) return;
  std::array<PixelWindow, kPlanes> windows;
  for (std::size_t plane = 0; plane < kPlanes; ++plane) windows[plane].Start(*cursors[plane]++);
  for (unsigned byte = 0; byte < byteCount; ++byte) {
    if (byte + 1 < byteCount) {
      for (std::size_t plane = 0; plane < kPlanes; ++plane) {
        windows[plane].LookAhead(*cursors[plane]++);
      }
    }
    for (unsigned bit = 0; bit < 8; ++bit) {
      visit(8 * byte + bit, windows);
      for (PixelWindow& window : windows) window.Slide();
    }
  }
}

}  // namespace corvane
