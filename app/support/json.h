// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace corvane {

// Parses a JSON text of at most 64 nested levels, whose numbers a double can hold. Throws Failure
// that says what is wrong and at which byte or member, without the name of what holds the text.
nlohmann::json ParseJson(std::string_view text);

// The same for a file, which the Failure names.
nlohmann::json ReadJsonFile(const std::filesystem::path& file);

// The member of an object that is a whole number from 0 to `maximum`. Throws Failure, which names
// the member, for any other value, and the library's exception where there is none.
std::uint64_t WholeNumber(const nlohmann::json& object, const char* member, std::uint64_t maximum);

// The same, up to what `number` holds.
template <typename Number>
void TakeWholeNumber(const nlohmann::json& object, const char* member, Number* number) {
  constexpr auto kMaximum = static_cast<std::uint64_t>(std::numeric_limits<Number>::max());
  *number = static_cast<Number>(WholeNumber(object, member, kMaximum));
}

// The text of a value, in lines that `indent` indents, or in one where that is negative. Bytes of a
// file's name that are no UTF-8 are replaced, and no control character reaches a terminal.
std::string JsonText(const nlohmann::json& value, int indent = 2);
std::string JsonText(const nlohmann::ordered_json& value, int indent = 2);

}  // namespace corvane
