// SPDX-License-Identifier: MIT
#include "app/page/planes.h"

#include <algorithm>

namespace corvane {
namespace {

// "C", or "C bit 0" where the ink has two planes.
std::string PlaneName(const RowPlane& plane, const RowPlanes& row) {
  const auto hasSameInk = [&](const RowPlane& other) { return other.ink == plane.ink; };
  std::string name = kInkNames[static_cast<int>(plane.ink)];
  if (std::ranges::count_if(row.Sent(), hasSameInk) > 1) {
    name += plane.bit == 0 ? " bit 0" : " bit 1";
  }
  return name;
}

// Lays out a stage's rows of a page of `width` pixels.
void AddPlanes(Stage stage, std::uint32_t width, std::uint32_t horizontalDpi, PageShape& page) {
  const PrintMode& mode = *page.mode;
  const RowPlanes row = PlanesAfter(stage, mode, page.alternateMode);
  const std::uint32_t perPixel = PixelsPerPixel(stage, mode, page.alternateMode, horizontalDpi);
  const auto bytes =
      static_cast<std::size_t>(PlaneBytes(stage, mode, page.alternateMode, horizontalDpi, width));
  for (const RowPlane& sent : row.Sent()) {
    PlaneShape plane;
    plane.name = PlaneName(sent, row);
    plane.ink = sent.ink;
    plane.bit = sent.bit;
    plane.offset = sent.place * bytes;
    plane.bytes = sent.width * bytes;
    plane.width = sent.width * perPixel * width;
    plane.horizontalDpi = double{1} * horizontalDpi * sent.width * perPixel;
    page.planes.push_back(plane);
  }
  page.rowBytes = static_cast<std::size_t>(row.Spanned()) * bytes;
  page.announcedBytes = static_cast<std::size_t>(row.Announced()) * bytes;
}

}  // namespace

std::vector<Ink> PrintedInks(const PrintMode& mode) {
  const RowPlanes row = PlanesAfter(Stage::Halftoned, mode, 0);
  std::vector<Ink> inks;
  for (int i = 0; i < kInkCount; ++i) {
    if (row.Holds(static_cast<Ink>(i))) inks.push_back(static_cast<Ink>(i));
  }
  return inks;
}

bool PrintsBlack(const PrintMode& mode, int alternateMode) {
  return PlanesAfter(Stage::Placed, mode, alternateMode).Holds(Ink::K);
}

PageShape BinaryPageShape(const PrintMode& mode, int alternateMode, std::uint32_t width,
                          std::uint32_t height, std::uint32_t horizontalDpi,
                          std::uint32_t verticalDpi) {
  const std::uint32_t perRow = RowsPerRow(Stage::Placed, mode, alternateMode, verticalDpi);
  PageShape page;
  page.mode = &mode;
  page.alternateMode = alternateMode;
  page.layoutCode = mode.Alternate(static_cast<std::uint32_t>(alternateMode)).layout;
  page.rows = height * perRow;
  page.verticalDpi = double{1} * verticalDpi * perRow;
  AddPlanes(Stage::Placed, width, horizontalDpi, page);
  return page;
}

PageShape ContonePageShape(const PrintMode& mode, int alternateMode, std::uint32_t width,
                           std::uint32_t height, std::uint32_t horizontalDpi,
                           std::uint32_t verticalDpi) {
  PageShape page;
  page.mode = &mode;
  page.alternateMode = alternateMode;
  page.layoutCode = kContoneLayout;
  page.bitsPerPixel = 8;
  page.rows = height;
  page.verticalDpi = verticalDpi;
  AddPlanes(Stage::Contone, width, horizontalDpi, page);
  return page;
}

}  // namespace corvane
