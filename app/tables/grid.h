// SPDX-License-Identifier: MIT
#pragma once

namespace corvane {

// Nodes along each axis of a colour table, and in all.
inline constexpr int kGrid = 17;
inline constexpr int kNodes = kGrid * kGrid * kGrid;

}  // namespace corvane
