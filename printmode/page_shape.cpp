// SPDX-License-Identifier: MIT
#include "printmode/page_shape.h"

#include <algorithm>

namespace corvane {
namespace {

const AlternateMode& At(const PrintMode& mode, int alternateMode) {
  return mode.Alternate(static_cast<std::uint32_t>(alternateMode));
}

std::span<const PlaneInk> PlanesOf(const PlaneLayout& layout) {
  return {layout.planes, layout.planeCount};
}

// What the first expansion multiplies a row's width by.
std::uint32_t Doubling(Stage stage, const PrintMode& mode, int alternateMode) {
  return stage == Stage::Placed && At(mode, alternateMode).placing.firstExpansion ? 2 : 1;
}

}  // namespace

bool RowPlanes::Holds(Ink ink) const {
  return std::ranges::any_of(Sent(), [&](const RowPlane& plane) { return plane.ink == ink; });
}

void RowPlanes::Add(Ink ink, int bit, int width) {
  planes_[count_++] = {ink, static_cast<std::uint8_t>(bit), static_cast<std::uint8_t>(spanned_),
                       static_cast<std::uint8_t>(width)};
  spanned_ += width;
}

RowPlanes PlanesAfter(Stage stage, const PrintMode& mode, int alternateMode) {
  RowPlanes row;
  if (stage == Stage::Contone) {
    const int count = PlanesOf(mode.inkSet);
    for (int i = 0; i < count; ++i) row.Add(count == 1 ? Ink::K : static_cast<Ink>(i), 0, 1);
    row.announced_ = row.spanned_;
    return row;
  }

  const AlternateMode& page = At(mode, alternateMode);
  const Placing placing = stage == Stage::Placed ? page.placing : Placing{false, false, 1};
  for (const PlaneInk& plane : PlanesOf(*FindPlaneLayout(page.layout))) {
    if (placing.rows == 2 && plane.bit != 0) continue;
    ++row.announced_;
    if (placing.secondExpansion && plane.ink == Ink::K) continue;
    const bool doubled = placing.secondExpansion && (plane.ink == Ink::cd || plane.ink == Ink::md);
    row.Add(plane.ink, plane.bit, doubled ? 2 : 1);
  }
  if (placing.secondExpansion) row.spanned_ = kSecondExpansionPlanes;
  return row;
}

std::uint32_t NumberOfPlanes(const PrintMode& mode, int alternateMode) {
  return static_cast<std::uint32_t>(PlanesAfter(Stage::Placed, mode, alternateMode).Announced());
}

std::uint32_t PixelsPerPixel(Stage stage, const PrintMode& mode, int alternateMode,
                             std::uint32_t horizontalDpi) {
  if (stage == Stage::Contone) return 1;
  return At(mode, alternateMode).halftoneDpi / horizontalDpi * Doubling(stage, mode, alternateMode);
}

std::uint64_t PlaneBytes(Stage stage, const PrintMode& mode, int alternateMode,
                         std::uint32_t horizontalDpi, std::uint32_t width) {
  if (stage == Stage::Contone) return width;
  const std::uint64_t pixels =
      std::uint64_t{width} * PixelsPerPixel(Stage::Halftoned, mode, alternateMode, horizontalDpi);
  return (pixels + 7) / 8 * Doubling(stage, mode, alternateMode);
}

std::uint32_t RowsPerRow(Stage stage, const PrintMode& mode, int alternateMode,
                         std::uint32_t verticalDpi) {
  const AlternateMode& page = At(mode, alternateMode);
  const std::uint32_t contone = std::max<std::uint32_t>(1, page.contoneRows / verticalDpi);
  return contone * (stage == Stage::Placed ? page.placing.rows : 1);
}

}  // namespace corvane
