// SPDX-License-Identifier: MIT
//
// corvane swaths: the paper feed of one page.
#pragma once

#include <string>

namespace corvane {

struct SwathsOptions {
  std::string mode;  // number or name
  int useAlternateModes = 0;
  std::string paper = "A4";
  bool endToEnd = false;
  std::string head;  // a description's file; empty: the default head
  bool json = false;
  bool csv = false;
  std::string svg;  // pictures to write; empty: none
  std::string png;
};

// Prints the swaths, or only the summary when a picture is written. Returns 0 when the plan holds,
// 1 when a check failed. Throws Failure.
int RunSwaths(const SwathsOptions& options);

}  // namespace corvane
