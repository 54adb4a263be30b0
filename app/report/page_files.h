// SPDX-License-Identifier: MIT
//
// page.html, page.css and page.js, put in when the program is built.
#pragma once

#include <string_view>

namespace corvane {

extern const std::string_view kPageFrame;  // with {{NAME}} where something is to be filled in
extern const std::string_view kPageStyle;
extern const std::string_view kPageScript;

}  // namespace corvane
