// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane {

struct TableProfileOptions {
  std::string table;   // colour-table file
  std::string output;  // ICC profile
  std::string inks;    // ink data; empty: the built-in set
  std::string mode = "12";
  std::string media = "glossy";
  std::string quality;           // empty: the mode's own
  std::string intent = "photo";  // of the page
  bool quiet = false;
};

// Writes an ICC profile of the table that a page of the mode takes, as the inks print it. Throws
// Failure.
int RunTableProfile(const TableProfileOptions& options);

}  // namespace corvane
