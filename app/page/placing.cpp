// SPDX-License-Identifier: MIT
#include "app/page/placing.h"

#include <fmt/format.h>

#include <charconv>
#include <optional>
#include <string_view>
#include <vector>

#include "app/support/failure.h"
#include "app/support/limits.h"

namespace corvane {
namespace {

struct NamedPosition {
  const char* name;
  double across, down;
};

constexpr NamedPosition kNamedPositions[] = {
    {"centre", 0.5, 0.5},  {"top-left", 0, 0}, {"top", 0.5, 0},
    {"top-right", 1, 0},   {"left", 0, 0.5},   {"right", 1, 0.5},
    {"bottom-left", 0, 1}, {"bottom", 0.5, 1}, {"bottom-right", 1, 1},
};
constexpr std::string_view kAmericanCentre = "center";

// Lengths with commas between them, each from 0 to the longest side of a sheet; nothing for
// anything else.
std::optional<std::vector<double>> ParseLengths(std::string_view text) {
  std::vector<double> lengths;
  for (const char *at = text.data(), *const end = at + text.size();;) {
    double length = 0;
    const auto [stop, error] = std::from_chars(at, end, length);
    const bool sound = error == std::errc() && length >= 0 && length <= limits::kLongestSheetMm;
    if (!sound || (stop != end && *stop != ',')) return std::nullopt;
    lengths.push_back(length);
    if (stop == end) return lengths;
    at = stop + 1;
  }
}

}  // namespace

Margins ParseMargins(const std::string& text) {
  const std::optional<std::vector<double>> sides = ParseLengths(text);
  if (sides && sides->size() == 1) return {(*sides)[0], (*sides)[0], (*sides)[0], (*sides)[0]};
  if (sides && sides->size() == 4) return {(*sides)[0], (*sides)[1], (*sides)[2], (*sides)[3]};
  throw UsageFailure(fmt::format(
      "{}: no margins (millimetres of all sides, as 5, or LEFT,TOP,RIGHT,BOTTOM, or head)", text));
}

Position ParsePosition(const std::string& text) {
  for (const NamedPosition& named : kNamedPositions) {
    if (text == named.name) return {named.across, named.down, 0, 0};
  }
  if (text == kAmericanCentre) return {};
  const std::optional<std::vector<double>> corner = ParseLengths(text);
  if (corner && corner->size() == 2) return {0, 0, (*corner)[0], (*corner)[1]};
  throw UsageFailure(
      fmt::format("{}: no position ({}, or X,Y in millimetres)", text, PositionNames()));
}

std::string PositionNames() {
  std::string names;
  for (const NamedPosition& named : kNamedPositions) {
    if (!names.empty()) names += ", ";
    names += named.name;
  }
  return names;
}

int ParseDegrees(const std::string& text) {
  if (text == "auto") return kTurnToFit;
  for (const int degrees : {0, 90, 180, 270}) {
    if (text == std::to_string(degrees)) return degrees;
  }
  throw UsageFailure(text + ": no turn (auto, 0, 90, 180, 270)");
}

}  // namespace corvane
