// SPDX-License-Identifier: MIT
#pragma once

#include "app/drawing/drawing.h"
#include "app/paperfeed/plan.h"

namespace corvane {

// The plan as one sheet of a report: every swath over the rows of the sheet, the passes over each
// row beside it, advances and nozzle ranges below it, and what the checks found.
Drawing DrawSwaths(const SwathPlan& plan);

}  // namespace corvane
