// SPDX-License-Identifier: MIT
#include "app/print_mode_name.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <string_view>

#include "app/failure.h"

namespace corvane {
namespace {

bool EqualInAnyCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
    return std::tolower(x) == std::tolower(y);
  });
}

const PrintMode* FindByName(std::string_view name) {
  const PrintMode* found = nullptr;
  for (const PrintMode& mode : kPrintModes) {
    if (!EqualInAnyCase(name, mode.name)) continue;
    if (!found || std::strlen(mode.printedInks) > std::strlen(found->printedInks)) found = &mode;
  }
  return found;
}

const PrintMode* FindByNumber(std::string_view text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && last == end ? FindPrintMode(number) : nullptr;
}

}  // namespace

const PrintMode& PrintModeNamed(const std::string& text) {
  const PrintMode* mode = FindByNumber(text);
  if (!mode) mode = FindByName(text);
  if (mode) return *mode;
  std::string numbers;
  for (const PrintMode& known : kPrintModes) {
    numbers += fmt::format("{}{}", numbers.empty() ? "" : ", ", static_cast<int>(known.descriptor));
  }
  throw UsageFailure(
      fmt::format("{}: not a print mode (a name, or one of the numbers {})", text, numbers));
}

}  // namespace corvane
