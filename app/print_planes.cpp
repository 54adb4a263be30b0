// SPDX-License-Identifier: MIT
#include "app/print_planes.h"

#include <algorithm>

namespace corvane {
namespace {

bool IsBetterGlossy(const PrintMode& mode) {
  return mode.descriptor == CcMmYy_1200x1200_8Pass || mode.descriptor == CcMmYyK_1200x1200_8Pass ||
         mode.descriptor == CcMmYycmK_1200x1200_8Pass;
}

bool PlacesDots(const PrintMode& mode, int alternateMode) {
  if (IsBetterGlossy(mode)) return alternateMode == 1 || alternateMode == 2;
  if (mode.descriptor == CcMmYycmK_4800x1200_16Pass) return alternateMode <= 1;
  return alternateMode == 0 && (mode.descriptor == CcMmYy_4800x1200_16Pass ||
                                mode.descriptor == CcMmYyK_4800x1200_16Pass);
}

std::size_t BitBytes(std::uint64_t pixels) { return static_cast<std::size_t>((pixels + 7) / 8); }

// Bit planes of an ink, to tell whether their names need the bit.
bool HasTwoPlanes(const std::vector<PlaneInk>& planes, Ink ink) {
  return std::count_if(planes.begin(), planes.end(),
                       [&](const PlaneInk& plane) { return plane.ink == ink; }) > 1;
}

std::uint32_t RowRepeat(const ModeGeometry& geometry, std::uint32_t verticalDpi) {
  if (geometry.rowsPerInch == 0) return 1;
  return std::max<std::uint32_t>(1, geometry.rowsPerInch / verticalDpi);
}

}  // namespace

ModeGeometry GeometryOf(const PrintMode& mode, int alternateMode) {
  ModeGeometry geometry;
  geometry.halftoneDpi = mode.halftoneDpi[alternateMode];
  geometry.rowsPerInch = mode.contoneRows[alternateMode];
  geometry.placesDots = PlacesDots(mode, alternateMode);
  geometry.doublesRows = IsBetterGlossy(mode) && alternateMode == 2;
  geometry.expandsFurther = geometry.placesDots && mode.descriptor == CcMmYycmK_4800x1200_16Pass;
  geometry.printedRowsPerInch = mode.verticalDpi;
  return geometry;
}

std::uint32_t NumberOfPlanes(const PrintMode& mode, int alternateMode) {
  switch (mode.descriptor) {
    case CcMmYy_1200x1200_8Pass:
    case CcMmYy_4800x1200_16Pass:
      return 6;
    case CcMmYyK_1200x1200_8Pass:
    case CcMmYyK_4800x1200_16Pass:
      return 7;
    case CcMmYycmK_1200x1200_8Pass:
    case CcMmYycmK_4800x1200_16Pass:
      return 9;
    default:
      return FindPlaneLayout(mode.layout[alternateMode])->planeCount;
  }
}

std::string PlaneName(const PlaneInk& plane, bool hasTwoPlanes) {
  std::string name = kInkNames[static_cast<int>(plane.ink)];
  if (hasTwoPlanes) name += plane.bit == 0 ? " bit 0" : " bit 1";
  return name;
}

std::vector<PlaneInk> PrintheadPlanes(const PrintMode& mode, int alternateMode) {
  const PlaneLayout& layout = *FindPlaneLayout(mode.layout[alternateMode]);
  std::vector<PlaneInk> planes;
  for (int i = 0; i < layout.planeCount; ++i) {
    const PlaneInk& plane = layout.planes[i];
    const ModeGeometry geometry = GeometryOf(mode, alternateMode);
    // Placing the dots of a count in two rows leaves one plane an ink.
    if (geometry.doublesRows && plane.bit != 0) continue;
    if (geometry.expandsFurther && plane.ink == Ink::K) continue;
    planes.push_back(plane);
  }
  return planes;
}

PageShape BinaryPageShape(const PrintMode& mode, int alternateMode, std::uint32_t width,
                          std::uint32_t height, std::uint32_t horizontalDpi,
                          std::uint32_t verticalDpi) {
  const ModeGeometry geometry = GeometryOf(mode, alternateMode);
  const PlaneLayout& layout = *FindPlaneLayout(mode.layout[alternateMode]);
  const std::uint32_t perPixel = geometry.halftoneDpi / horizontalDpi;
  // The first expansion of the nine-ink 4800 dpi mode runs only with alternate mode 1.
  const bool doubled = geometry.placesDots && (!geometry.expandsFurther || alternateMode == 1);
  const std::uint32_t times = doubled ? 2 : 1;

  PageShape page;
  page.mode = &mode;
  page.alternateMode = alternateMode;
  page.layoutCode = layout.code;
  page.rows = height * RowRepeat(geometry, verticalDpi) * (geometry.doublesRows ? 2 : 1);
  page.verticalDpi =
      double{1} * verticalDpi * RowRepeat(geometry, verticalDpi) * (geometry.doublesRows ? 2 : 1);

  const std::size_t planeBytes = BitBytes(std::uint64_t{width} * perPixel) * times;
  const std::vector<PlaneInk> planes = PrintheadPlanes(mode, alternateMode);
  for (const PlaneInk& ink : planes) {
    const bool further = geometry.expandsFurther && (ink.ink == Ink::cd || ink.ink == Ink::md);
    PlaneShape plane;
    plane.name = PlaneName(ink, HasTwoPlanes(planes, ink.ink));
    plane.ink = ink.ink;
    plane.bit = ink.bit;
    plane.offset = page.rowBytes;
    plane.bytes = planeBytes * (further ? 2 : 1);
    plane.width = width * perPixel * times * (further ? 2 : 1);
    plane.horizontalDpi = double{1} * horizontalDpi * perPixel * times * (further ? 2 : 1);
    page.rowBytes += plane.bytes;
    page.planes.push_back(plane);
  }
  if (geometry.expandsFurther) page.rowBytes = 12 * planeBytes;
  return page;
}

PageShape ContonePageShape(const PrintMode& mode, int alternateMode, std::uint32_t width,
                           std::uint32_t height, std::uint32_t horizontalDpi,
                           std::uint32_t verticalDpi) {
  PageShape page;
  page.mode = &mode;
  page.alternateMode = alternateMode;
  page.layoutCode = 8;
  page.bitsPerPixel = 8;
  page.rows = height;
  page.verticalDpi = verticalDpi;
  for (int i = 0; i < (mode.inkSet == InkSet::Black ? 1 : PlanesOf(mode.inkSet)); ++i) {
    PlaneShape plane;
    plane.ink = mode.inkSet == InkSet::Black ? Ink::K : static_cast<Ink>(i);
    plane.name = kInkNames[static_cast<int>(plane.ink)];
    plane.offset = page.rowBytes;
    plane.bytes = width;
    plane.width = width;
    plane.horizontalDpi = horizontalDpi;
    page.rowBytes += plane.bytes;
    page.planes.push_back(plane);
  }
  return page;
}

}  // namespace corvane
