// SPDX-License-Identifier: MIT
//
// Sheet sizes by name.
#pragma once

#include <string>

namespace corvane {

// A sheet in the direction it is fed: the width lies across the feed.
struct PaperSize {
  std::string name;
  double widthMm;
  double heightMm;
};

// A name such as "A4" or "Letter" in any letter case, or a size such as "100x150mm" or "4x6in".
// Throws UsageFailure for anything else and for sides that are not between 10 mm and 5 m.
PaperSize ParsePaperSize(const std::string& text);

// A sheet of these sides. Throws as above.
PaperSize MakePaperSize(const std::string& name, double widthMm, double heightMm);

// The names, for a help text: "A3, A4, ...".
std::string PaperSizeNames();

}  // namespace corvane
