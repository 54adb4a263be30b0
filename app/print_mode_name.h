// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "printmode/print_mode.h"

namespace corvane {

// A print mode by its number ("54") or its name in any letter case. Of modes that share a name the
// one that prints the most inks is meant, then the one with the lowest number. Throws UsageFailure
// for anything else.
const PrintMode& PrintModeNamed(const std::string& text);

}  // namespace corvane
