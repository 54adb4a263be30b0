// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane {

// The path of the colour-table file that comes with the program, in a form that fits the property
// "ColorTableFilename". Throws Failure when the file is missing or its path is too long.
std::string DefaultColorTable();

}  // namespace corvane
