// SPDX-License-Identifier: MIT
#include "app/support/message.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace corvane {
namespace {

struct Character {
  char32_t code = 0;
  std::size_t bytes = 0;  // 0: no UTF-8
};

Character FirstOf(std::string_view text) {
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

// The controls of ASCII and of Latin-1, ends of lines and paragraphs, and what turns the direction.
bool IsControl(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x061C || code == 0x200E ||
         code == 0x200F || (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

std::string Escaped(char32_t code) {
  switch (code) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return code < 0x100 ? fmt::format("\\x{:02x}", static_cast<unsigned>(code))
                          : fmt::format("\\u{:04x}", static_cast<unsigned>(code));
  }
}

// `escape(code)` says what stands for a control character.
template <typename Escape>
std::string WithEscapes(std::string_view text, const Escape& escape) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const Character character = FirstOf(text);
    if (character.bytes == 0) {
      shown += fmt::format("\\x{:02x}", static_cast<std::uint8_t>(text[0]));
      text.remove_prefix(1);
      continue;
    }
    if (IsControl(character.code)) {
      shown += escape(character.code);
    } else {
      shown += text.substr(0, character.bytes);
    }
    text.remove_prefix(character.bytes);
  }
  return shown;
}

}  // namespace

std::string Printable(std::string_view text) { return WithEscapes(text, &Escaped); }

std::string PrintableLines(std::string_view text) {
  return WithEscapes(
      text, [](char32_t code) { return code == '\n' ? std::string("\n") : Escaped(code); });
}

std::string PrintableJson(std::string json) {
  // Whatever JSON lets stand in a text lies beyond ASCII, but for one character.
  const auto stays = [](char c) { return static_cast<std::uint8_t>(c) < 0x7F; };
  bool plain = true;
  for (const char c : json) plain = plain && stays(c);
  if (plain) return json;
  return WithEscapes(json, [](char32_t code) {
    return code < 0x20 ? std::string(1, static_cast<char>(code))
                       : fmt::format("\\u{:04x}", static_cast<unsigned>(code));
  });
}

bool Tell(std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), stderr) == text.size();
}

void Complain(std::string_view message) { Tell(fmt::format("corvane: {}\n", Printable(message))); }

}  // namespace corvane
