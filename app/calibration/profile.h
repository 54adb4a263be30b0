// SPDX-License-Identifier: MIT
//
// An ICC profile of a page: what the colours that a page is sent become on paper.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "app/inks/ink_model.h"

namespace corvane {

// An output profile (version 4, device RGB, Lab) of the colour table that a page takes on a medium:
//   A2B0-2  printed colours, against the paper
//   B2A0    sRGB as it is, which the table itself fits to what can be printed
//   B2A1-2  the page colour whose print comes nearest
//   gamt    which colours cannot be printed
// `table` has seven or nine channels of 17 x 17 x 17 nodes. Throws Failure when Little CMS cannot
// write it.
std::string MakePrinterProfile(std::span<const std::uint8_t> table, const InkData& inks, int media,
                               const std::string& description);

}  // namespace corvane
