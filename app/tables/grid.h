// SPDX-License-Identifier: MIT
#pragma once

#include "color/table/stored_form.h"

namespace corvane {

// Nodes along each axis of a colour table, and in all; how far apart in the table those lie that
// are neighbours along each axis.
inline constexpr int kGrid = kCubeEdge;
inline constexpr int kNodes = kCubeBytes;
inline constexpr int kAxisSteps[3] = {kGrid * kGrid, kGrid, 1};

}  // namespace corvane
