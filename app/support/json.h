// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace corvane {

// Parses a JSON text of at most 64 nested levels, whose numbers a double can hold. Throws Failure
// that says what is wrong and at which byte or member, without the name of what holds the text.
nlohmann::json ParseJson(std::string_view text);

// The same for a file, which the Failure names.
nlohmann::json ReadJsonFile(const std::filesystem::path& file);

// The text of a value, in lines that `indent` indents, or in one where that is negative. Bytes of a
// file's name that are no UTF-8 are replaced, and no control character reaches a terminal.
std::string JsonText(const nlohmann::json& value, int indent = 2);
std::string JsonText(const nlohmann::ordered_json& value, int indent = 2);

}  // namespace corvane
