// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "app/drawing/drawing.h"
#include "app/tables/check.h"

namespace corvane {

// What a table makes of a circle of hues, of planes through the colour cube, of ramps that cross it
// and of the neutral axis, each beside what was wanted.
Drawing DrawTableCheck(const IndexedTable& table, const PrintModel& model,
                       const std::string& title);

}  // namespace corvane
