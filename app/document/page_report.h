// SPDX-License-Identifier: MIT
//
// What the interpreter says of a page of a PDF that it has drawn.
#pragma once

#include <string>
#include <string_view>

namespace corvane {

// Each in one line; empty: nothing.
struct PageReport {
  std::string missing;  // why a part of the page is not drawn
  std::string remarks;  // what else the interpreter has noticed: repairs, what is odd
};

// From the lines of its error stream that belong to the page, with its lists of errors and warnings
// as it prints them where it is not quiet.
PageReport ReadPageReport(std::string_view lines);

}  // namespace corvane
