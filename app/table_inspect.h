// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane {

struct TableInspectOptions {
  std::string file;
  std::string indices = "2,2,0,1,0";  // of the table, as in the file's directory
  std::string rgb;                    // "R,G,B"; empty: no colour is looked up
  std::string chart;                  // SVG or PNG file; empty: none
  std::string inks;                   // ink data that the colours are modelled with; empty: built in
  bool json = false;
};

// Says which inks a table gives a colour and how they look, and draws its ramps. Throws Failure.
int RunTableInspect(const TableInspectOptions& options);

}  // namespace corvane
