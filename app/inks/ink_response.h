// SPDX-License-Identifier: MIT
//
// The ink model for searches: the same colours as PrintModel from tables of each ink's density,
// with the slopes that a search needs.
#pragma once

#include <array>
#include <vector>

#include "app/inks/ink_model.h"

namespace corvane {

// Lab against the paper, and how it changes with a full strength more of each ink.
struct InkResponse {
  Triple lab{};
  std::array<Triple, kInkCount> slopes{};
};

class InkResponseTable {
 public:
  explicit InkResponseTable(const PrintModel& model);

  // Amounts are taken as they lie in 0 to 1.
  Triple Lab(const InkAmounts& amounts) const;
  InkResponse Respond(const InkAmounts& amounts) const;

 private:
  static constexpr int kSteps = 512;

  Triple Bands(const InkAmounts& amounts, std::array<Triple, kInkCount>* densitySlopes) const;

  const PrintModel& model_;
  std::array<std::array<Triple, kSteps + 2>, kInkCount> density_;  // of each ink alone
};

}  // namespace corvane
