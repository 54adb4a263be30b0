// SPDX-License-Identifier: MIT
//
// The raster filter of each print mode.
#pragma once

#include <cstdint>

#include "printmode/print_mode.h"

namespace corvane {

enum class FilterKind : std::uint8_t { BestGlossy, BetterGlossy, BetterGlossyCells };

// The filter of a page, by its print mode and "UseAlternateModes". What its expansions make of a
// row is in the print mode.
struct FilterRow {
  tagBinaryCMYKDescriptor descriptor;
  std::uint16_t alternateMode;
  FilterKind filter;
};

// Null for a page without a filter.
const FilterRow* FindFilter(std::int32_t descriptor, std::uint16_t alternateMode);

// What a filter places besides the planes of the dark and light colours.
enum class FurtherPlanes : std::uint8_t { None, Black, CdMdBlack };

// By the print mode that the filter works for; None for one that is not of this filter.
FurtherPlanes FurtherPlanesOf(FilterKind filter, std::int32_t descriptor);

}  // namespace corvane
