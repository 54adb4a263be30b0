// SPDX-License-Identifier: MIT
#include "app/support/json.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "app/support/failure.h"
#include "app/support/limits.h"
#include "app/support/lines.h"
#include "app/support/message.h"

namespace corvane {
namespace {

using nlohmann::json;

template <typename Json>
std::string TextOf(const Json& value, int indent) {
  return PrintableJson(value.dump(indent, ' ', false, Json::error_handler_t::replace));
}

}  // namespace

json ParseJson(std::string_view text) {
  std::string member;  // the last that was named
  const auto watch = [&](int depth, json::parse_event_t event, const json& value) {
    if (depth >= limits::kJsonLevels) {
      throw Failure(fmt::format("is nested more than {} levels deep", limits::kJsonLevels));
    }
    if (event == json::parse_event_t::key) member = value.get_ref<const std::string&>();
    return true;
  };
  try {
    return json::parse(text, watch);
  } catch (const json::parse_error& error) {
    throw Failure(fmt::format("not JSON at byte {}", error.byte));
  } catch (const json::exception&) {
    throw Failure(member.empty() ? "a number is beyond the numbers there are"
                                 : fmt::format("\"{}\" is beyond the numbers there are", member));
  }
}

json ReadJsonFile(const std::filesystem::path& file) {
  const std::string text = ReadText(file);
  try {
    return ParseJson(text);
  } catch (const Failure& failure) {
    throw Failure(fmt::format("{}: {}", file.string(), failure.what()));
  }
}

std::uint64_t WholeNumber(const json& object, const char* member, std::uint64_t maximum) {
  const json& value = object.at(member);
  if (!value.is_number_integer()) throw Failure(fmt::format("\"{}\" is not an integer", member));
  if (!value.is_number_unsigned() || value.get<std::uint64_t>() > maximum) {
    throw Failure(fmt::format("\"{}\" is outside 0 to {}", member, maximum));
  }
  return value.get<std::uint64_t>();
}

std::string JsonText(const json& value, int indent) { return TextOf(value, indent); }

std::string JsonText(const nlohmann::ordered_json& value, int indent) {
  return TextOf(value, indent);
}

}  // namespace corvane
