// SPDX-License-Identifier: MIT
#include "app/support/message.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstdio>
#include <utility>

#include "app/support/utf8.h"

namespace corvane {
namespace {

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
    const Utf8Character character = FirstCharacter(text);
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
