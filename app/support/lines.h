// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <istream>
#include <string>

namespace corvane {

// The next line of a text without its end, of either form. False at the end of the text; throws
// Interrupted when a signal has ended it, and what FailOfSystem throws when it cannot be read.
bool ReadLine(std::istream& text, const std::string& name, std::string* line);

// All of a file. Throws what FailOfSystem throws, and Interrupted.
std::string ReadText(const std::filesystem::path& file);

}  // namespace corvane
