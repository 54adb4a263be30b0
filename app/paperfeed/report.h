// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "app/paperfeed/plan.h"

namespace corvane {

// What was planned and whether it holds, in a few lines.
std::string SwathSummary(const SwathPlan& plan);
// One line a swath.
std::string SwathTable(const SwathPlan& plan);
std::string SwathCsv(const SwathPlan& plan);
std::string SwathJson(const SwathPlan& plan);

}  // namespace corvane
