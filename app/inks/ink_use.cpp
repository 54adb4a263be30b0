// SPDX-License-Identifier: MIT
#include "app/inks/ink_use.h"

#include <algorithm>

namespace corvane {

std::vector<InkUse> InkUseOf(const PageShape& page,
                             const std::array<std::uint64_t, kInkCount>& drops,
                             const InkData& inks) {
  std::vector<InkUse> uses;
  for (int i = 0; i < kInkCount; ++i) {
    const Ink ink = static_cast<Ink>(i);
    const auto plane = std::find_if(page.planes.begin(), page.planes.end(),
                                    [&](const PlaneShape& shape) { return shape.ink == ink; });
    if (plane == page.planes.end()) continue;
    InkUse use;
    use.ink = ink;
    use.drops = drops[static_cast<std::size_t>(i)];
    const double pixels = static_cast<double>(plane->width) * page.rows;
    use.percent = pixels > 0 ? 100.0 * static_cast<double>(use.drops) / pixels : 0;
    use.nanolitres = static_cast<double>(use.drops) * DropPicolitres(inks, *page.mode, ink) / 1000;
    uses.push_back(use);
  }
  return uses;
}

}  // namespace corvane
