// SPDX-License-Identifier: MIT
#pragma once

namespace corvane {

inline constexpr double kMillimetresPerInch = 25.4;
inline constexpr double kPointsPerInch = 72;
inline constexpr double kMetresPerInch = 0.0254;

}  // namespace corvane
