// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "app/inks/ink_model.h"
#include "app/page/page_sink.h"

namespace corvane {

// What a page takes of an ink.
struct InkUse {
  Ink ink = Ink::K;
  std::uint64_t drops = 0;
  double percent = 0;     // drops in a hundred pixels of the printhead data
  double nanolitres = 0;  // by the ink data's drop size for the mode
};

// The inks that a page prints, in the order of Ink; `drops` has a count for each Ink.
std::vector<InkUse> InkUseOf(const PageShape& page,
                             const std::array<std::uint64_t, kInkCount>& drops,
                             const InkData& inks);

}  // namespace corvane
