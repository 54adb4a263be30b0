// SPDX-License-Identifier: MIT
//
// `corvane chart`: the pages that a printer is calibrated with.
#pragma once

#include <optional>
#include <string>

namespace corvane {

struct ChartOptions {
  std::string output;  // folder
  std::string mode = "12";
  int alternateMode = 0;
  std::string media = "glossy";
  std::string paper = "A4";
  std::string reading = "strip";   // or "hand"
  std::optional<double> inkLimit;  // per cent; else the medium's
  bool update = false;             // the few patches of a recalibration
  bool quiet = false;
};

// Writes the chart's pages as printhead data, the pages for nozzles and alignment, and the
// reference files. Throws Failure.
int RunChart(const ChartOptions& options);

}  // namespace corvane
