// SPDX-License-Identifier: MIT
//
// What a print mode makes of an input row: binary pixels per pixel, rows per row, and the planes of
// the printhead data as they leave the chain.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/page_sink.h"
#include "printmode/print_mode.h"

namespace corvane {

inline constexpr int kAlternateModes = 3;  // values of "UseAlternateModes"

struct ModeGeometry {
  std::uint32_t halftoneDpi = 0;  // binary pixels per inch before dot management
  std::uint32_t rowsPerInch = 0;  // contone rows; 0: one for each input row
  bool placesDots = false;        // dot management doubles the pixels of a row
  bool doublesRows = false;       // and makes two rows of each
  bool expandsFurther = false;    // and doubles cd and md once more, leaving K out
  std::uint32_t printedRowsPerInch = 0;
};

ModeGeometry GeometryOf(const PrintMode& mode, int alternateMode);

// The page property "NumberOfPlanes".
std::uint32_t NumberOfPlanes(const PrintMode& mode, int alternateMode);

// "C", or "C bit 0" where the ink has two planes.
std::string PlaneName(const PlaneInk& plane, bool hasTwoPlanes);

// Inks and bits of the planes that leave the chain.
std::vector<PlaneInk> PrintheadPlanes(const PrintMode& mode, int alternateMode);

// The rows of a page of `width` by `height` input pixels (overspray included) at the given input
// resolution, as they leave the chain.
PageShape BinaryPageShape(const PrintMode& mode, int alternateMode, std::uint32_t width,
                          std::uint32_t height, std::uint32_t horizontalDpi,
                          std::uint32_t verticalDpi);

// The contone rows of the same page, one for each input row.
PageShape ContonePageShape(const PrintMode& mode, int alternateMode, std::uint32_t width,
                           std::uint32_t height, std::uint32_t horizontalDpi,
                           std::uint32_t verticalDpi);

}  // namespace corvane
