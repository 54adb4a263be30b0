// SPDX-License-Identifier: MIT
//
// corvane compare: two prints against one another.
#pragma once

#include <string>

namespace corvane {

struct CompareOptions {
  std::string first, second;  // TIFF files of corvane print
  std::string media;          // empty: that of the first print
  std::string inks;           // ink data; empty: the built-in set
  std::string output;         // HTML file; empty: none
  bool json = false;
  bool quiet = false;
};

// Returns 0 for equal prints and 1 for others. Throws UsageFailure for whatever keeps it from
// comparing, so that the status tells a difference from a fault.
int RunCompare(const CompareOptions& options);

}  // namespace corvane
