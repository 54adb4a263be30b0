// SPDX-License-Identifier: MIT
#pragma once

#include <istream>
#include <string>

namespace corvane {

// The next line of a text without its end, of either form. False at the end of the text; throws
// Interrupted when a signal has ended it, and Failure that calls it `name` when it cannot be read.
bool ReadLine(std::istream& text, const std::string& name, std::string* line);

}  // namespace corvane
