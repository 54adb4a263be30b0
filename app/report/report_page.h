// SPDX-License-Identifier: MIT
//
// A press check as one HTML file that needs nothing else.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "app/report/difference.h"
#include "app/report/press_check.h"

namespace corvane {

// At most as large as this: what would be more is shown in coarser cells.
inline constexpr std::size_t kMostPageBytes = 5'000'000;

inline constexpr std::string_view kHtmlEndings[] = {".html", ".htm"};

// `colours` are those of the inks on the medium, 0..5.
std::string ReportPage(const PressCheck& check, const CellColours& colours, const InkData& inks,
                       int media);

// Two prints of one form in one page, with a border between them that moves; `first` has the areas
// and cells of `second`.
std::string ComparisonPage(const PrintComparison& comparison, const PressCheck& first,
                           const PressCheck& second, const CellColours& colours,
                           const InkData& inks, int media);

}  // namespace corvane
