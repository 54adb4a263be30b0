// SPDX-License-Identifier: MIT
#include "dotmanagement/filter_table.h"

#include <algorithm>

#include "printmode/page_shape.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

constexpr FilterRow kRows[] = {
    // clang-format off
    {CcMmYy_4800x1200_16Pass,    0, FilterKind::BestGlossy},
    {CcMmYyK_4800x1200_16Pass,   0, FilterKind::BestGlossy},
    {CcMmYycmK_4800x1200_16Pass, 0, FilterKind::BestGlossy},
    {CcMmYycmK_4800x1200_16Pass, 1, FilterKind::BestGlossy},
    {CcMmYy_1200x1200_8Pass,     1, FilterKind::BetterGlossy},
    {CcMmYyK_1200x1200_8Pass,    1, FilterKind::BetterGlossy},
    {CcMmYycmK_1200x1200_8Pass,  1, FilterKind::BetterGlossy},
    {CcMmYy_1200x1200_8Pass,     2, FilterKind::BetterGlossyCells},
    {CcMmYyK_1200x1200_8Pass,    2, FilterKind::BetterGlossyCells},
    {CcMmYycmK_1200x1200_8Pass,  2, FilterKind::BetterGlossyCells},
    // clang-format on
};

}  // namespace

const FilterRow* FindFilter(std::int32_t descriptor, std::uint16_t alternateMode) {
  const auto* const row = std::ranges::find_if(kRows, [&](const FilterRow& candidate) {
    return candidate.descriptor == descriptor && candidate.alternateMode == alternateMode;
  });
  return row == std::end(kRows) ? nullptr : row;
}

FurtherPlanes FurtherPlanesOf(FilterKind filter, std::int32_t descriptor) {
  const bool isOfFilter = std::ranges::any_of(kRows, [&](const FilterRow& row) {
    return row.filter == filter && row.descriptor == descriptor;
  });
  const PrintMode* const mode = isOfFilter ? FindPrintMode(descriptor) : nullptr;
  if (mode == nullptr) return FurtherPlanes::None;
  const RowPlanes halftoned = PlanesAfter(Stage::Halftoned, *mode, 0);
  if (halftoned.Holds(Ink::cd)) return FurtherPlanes::CdMdBlack;
  return halftoned.Holds(Ink::K) ? FurtherPlanes::Black : FurtherPlanes::None;
}

}  // namespace corvane
