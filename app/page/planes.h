// SPDX-License-Identifier: MIT
//
// The planes of a page as sinks take them, from what its print mode makes of a row.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/page/page_sink.h"
#include "printmode/page_shape.h"
#include "printmode/print_mode.h"

namespace corvane {

// The inks that a mode prints, in the order of Ink.
std::vector<Ink> PrintedInks(const PrintMode& mode);

// Whether black ink reaches the paper. Light inks without a plane of their own are printed with the
// dark ones; black without one is not.
bool PrintsBlack(const PrintMode& mode, int alternateMode);

// The rows of a page of `width` by `height` input pixels (overspray included) at the given input
// resolution, as they leave the chain.
PageShape BinaryPageShape(const PrintMode& mode, int alternateMode, std::uint32_t width,
                          std::uint32_t height, std::uint32_t horizontalDpi,
                          std::uint32_t verticalDpi);

// The layout code of contone rows with all planes that a mode halftones.
inline constexpr std::uint32_t kContoneLayout = 8;

// The contone rows of the same page, one for each input row.
PageShape ContonePageShape(const PrintMode& mode, int alternateMode, std::uint32_t width,
                           std::uint32_t height, std::uint32_t horizontalDpi,
                           std::uint32_t verticalDpi);

}  // namespace corvane
