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

// The whole number 0 to `maximum` that is the value of the member `name`, in one of the unsigned
// types that hold it. Throws Failure, which names the member, for any other value.
std::uint64_t WholeNumber(const nlohmann::json& value, std::string_view name,
                          std::uint64_t maximum);

template <typename Number>
void TakeWholeNumber(const nlohmann::json& value, std::string_view name, Number* number) {
  constexpr auto kMaximum = static_cast<std::uint64_t>(std::numeric_limits<Number>::max());
  *number = static_cast<Number>(WholeNumber(value, name, kMaximum));
}

// The text of a value, in lines that `indent` indents, or in one where that is negative. Bytes of a
// file's name that are no UTF-8 are replaced, and no control character reaches a terminal.
std::string JsonText(const nlohmann::json& value, int indent = 2);
std::string JsonText(const nlohmann::ordered_json& value, int indent = 2);

}  // namespace corvane
