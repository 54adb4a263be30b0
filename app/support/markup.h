// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace corvane {

// Text as it may stand in HTML and XML, between tags and in an attribute. Control characters, which
// XML has no form for, become question marks.
std::string MarkupText(std::string_view text);

}  // namespace corvane
