// SPDX-License-Identifier: MIT
//
// The print modes.
#pragma once

#include <cstdint>
#include <span>

#include "printmode/print_mode.h"

namespace corvane {

extern const std::span<const PrintMode> kPrintModes;

// The print mode of a descriptor, or null when the value is none.
const PrintMode* FindPrintMode(std::int32_t descriptor);

}  // namespace corvane
