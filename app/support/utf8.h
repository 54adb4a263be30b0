// SPDX-License-Identifier: MIT
//
// Text in UTF-8, character by character.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane {

struct Utf8Character {
  char32_t code = 0;
  std::size_t bytes = 0;  // 0: no UTF-8
};

// The first character of a text that is not empty.
Utf8Character FirstCharacter(std::string_view text);

// The text in UTF-16; each byte that is no UTF-8 becomes U+FFFD.
std::u16string Utf16FromUtf8(std::string_view text);

}  // namespace corvane
