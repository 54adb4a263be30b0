// SPDX-License-Identifier: MIT
//
// The inks of all nodes of a table at once: a least-squares problem in which each node wants its
// colour, and its neighbours want it to lie where they point.
#pragma once

#include <array>
#include <vector>

#include "app/tables/builder_separation.h"
#include "app/tables/grid.h"

namespace corvane {

// What a node wants.
struct NodeWish {
  Triple lab{};
  double freedom = 0;    // 0: can be printed with room to spare; 1: cannot
  double weight = 1;     // of its colour; 1 = a unit of CIE94 counts as much as the others' terms
  double black = 0;      // amount of black ink, where the colour leaves a choice
  double blackCost = 0;  // of each full strength of it, where its drops would show
  bool fixed = false;    // printed with `dyes`, whatever comes out
  DyeAmounts dyes{};
};

// What the colour halfway between two nodes wants; it is printed with the mean of their inks.
struct BetweenWish {
  std::array<int, 2> nodes{};
  Triple lab{};
  double weight = 1;  // as that of a node
};

// How a separation is weighed.
struct SolveWeights {
  double colourBend = 0.6;  // second differences of printed Lab between nodes
  double inkBend = 4.0;     // and of dye amounts
  double black = 2.0;       // the wish for black ink
};

// The dye amounts of `kNodes` nodes, white first; inside 0 to 1 and the ink limit.
std::vector<DyeAmounts> SolveNodes(const std::vector<NodeWish>& wishes,
                                   const std::vector<BetweenWish>& between, const PrintModel& model,
                                   const Separator& separator, const SolveWeights& weights);

}  // namespace corvane
