// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane {

struct TableCheckOptions {
  std::string file;
  std::string inks;     // ink data that the colours are modelled with; empty: built in
  std::string indices;  // of the only table to check; empty: all
  std::string picture;  // SVG or PNG file of one table; empty: none
  int jobs = 0;         // tables checked at a time; 0: as many as processors
  bool json = false;
};

// Says what the colour tables of a file print, and where they fall short. Returns 1 when a table
// misses an aim, else 0. Throws Failure.
int RunTableCheck(const TableCheckOptions& options);

}  // namespace corvane
