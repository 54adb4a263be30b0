// SPDX-License-Identifier: MIT
//
// The places of a page that are worth a look dot by dot.
#pragma once

#include <string>
#include <vector>

#include "app/preview/dots.h"
#include "app/report/cells.h"
#include "app/report/wanted.h"

namespace corvane {

// What the judging of a page knows of its cells, row by row.
struct CellFacts {
  std::vector<InkAmounts> amounts;
  std::vector<Triple> lab;  // against the paper
  std::vector<float> totalInk;
};

struct PickedArea {
  std::string name;
  PageWindow window;
};

// Up to eight squares of `side` cells that do not overlap, each the place that shows something
// best: highlights, the hand-over from light to dark ink, skin, text, shadows, the most ink, the
// strongest colour, and the worst difference to what was wanted or else a grey. What a page does
// not have is left out. `wanted` may be null.
std::vector<PickedArea> PickAreas(const CellFacts& facts, const CellGrid& grid, std::uint32_t side,
                                  const WantedCheck* wanted);

}  // namespace corvane
