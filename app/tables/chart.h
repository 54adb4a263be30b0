// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "app/drawing/drawing.h"
#include "app/inks/ink_model.h"

namespace corvane {

// The ink amounts of a table along the grey axis and from white through each primary and secondary
// colour to black, with the wanted and the modelled colours beneath them.
Drawing DrawTableChart(std::span<const std::uint8_t> table, const PrintModel& model,
                       const std::string& title);

}  // namespace corvane
