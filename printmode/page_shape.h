// SPDX-License-Identifier: MIT
//
// What the rows of a page look like after each stage of the chain, by its print mode.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "printmode/print_mode.h"

namespace corvane {

enum class Stage : std::uint8_t {
  Contone,    // as the colour element sends it: a byte per pixel
  Halftoned,  // as the halftone element sends it: a bit per pixel
  Placed,     // as dot management sends it, and the chain: a bit per pixel
};

// One plane of a row. Places and widths count in planes of the row's usual width.
struct RowPlane {
  Ink ink;
  std::uint8_t bit;    // of the drop count that it holds
  std::uint8_t place;  // where it begins
  std::uint8_t width;  // 1, or 2 where the second expansion doubled it
};

// The planes of a row.
class RowPlanes {
 public:
  // In order of their places; valid as long as this lives.
  std::span<const RowPlane> Sent() const { return {planes_.data(), count_}; }
  bool Holds(Ink ink) const;
  int Spanned() const { return spanned_; }      // planes of the usual width that the data take
  int Announced() const { return announced_; }  // of them counted by the raster's `RowBytes`

 private:
  friend RowPlanes PlanesAfter(Stage stage, const PrintMode& mode, int alternateMode);
  void Add(Ink ink, int bit, int width);

  std::array<RowPlane, kMostBinaryPlanes> planes_{};
  std::size_t count_ = 0;
  int spanned_ = 0, announced_ = 0;
};

// `alternateMode` is 0, 1 or 2, here and below.
RowPlanes PlanesAfter(Stage stage, const PrintMode& mode, int alternateMode);

// The page property "NumberOfPlanes": planes of a placed row before the second expansion.
std::uint32_t NumberOfPlanes(const PrintMode& mode, int alternateMode);

// Pixels that a pixel of the page becomes in a plane of the usual width. The page's resolutions are
// to be such as the mode's can be divided by, here and below.
std::uint32_t PixelsPerPixel(Stage stage, const PrintMode& mode, int alternateMode,
                             std::uint32_t horizontalDpi);

// Bytes of such a plane, of a page of `width` pixels. Expansions double bytes, not pixels, so a
// plane may end in up to 15 pixels of padding.
std::uint64_t PlaneBytes(Stage stage, const PrintMode& mode, int alternateMode,
                         std::uint32_t horizontalDpi, std::uint32_t width);

// Rows that a row of the page becomes.
std::uint32_t RowsPerRow(Stage stage, const PrintMode& mode, int alternateMode,
                         std::uint32_t verticalDpi);

}  // namespace corvane
