// SPDX-License-Identifier: MIT
#include "app/support/markup.h"

namespace corvane {

std::string MarkupText(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += static_cast<unsigned char>(c) < ' ' ? '?' : c;
    }
  }
  return escaped;
}

}  // namespace corvane
