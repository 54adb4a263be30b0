// SPDX-License-Identifier: MIT
#include "app/support/utf8.h"

#include <algorithm>
#include <cstdint>

namespace corvane {

Utf8Character FirstCharacter(std::string_view text) {
  constexpr std::uint8_t kContinues = 0x80, kContinuesMask = 0xC0;
  constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000}, kMost = 0x10FFFF;
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  if (byte(0) < 0x80) return {byte(0), 1};
  const std::size_t more = byte(0) >= 0xF0 ? 3 : byte(0) >= 0xE0 ? 2 : 1;
  if (byte(0) < 0xC0 || byte(0) >= 0xF8 || more >= text.size()) return {};
  char32_t code = byte(0) & (0x3Fu >> more);
  for (std::size_t i = 1; i <= more; ++i) {
    if ((byte(i) & kContinuesMask) != kContinues) return {};
    code = code << 6 | (byte(i) & 0x3Fu);
  }
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kLeast[more] || code > kMost || surrogate) return {};
  return {code, more + 1};
}

std::u16string Utf16FromUtf8(std::string_view text) {
  std::u16string wide;
  while (!text.empty()) {
    const Utf8Character character = FirstCharacter(text);
    const char32_t code = character.bytes == 0 ? 0xFFFD : character.code;
    if (code < 0x10000) {
      wide += static_cast<char16_t>(code);
    } else {
      wide += static_cast<char16_t>(0xD7C0 + (code >> 10));
      wide += static_cast<char16_t>(0xDC00 + (code & 0x3FF));
    }
    text.remove_prefix(std::max<std::size_t>(character.bytes, 1));
  }
  return wide;
}

}  // namespace corvane
