// SPDX-License-Identifier: MIT
//
// `corvane calibrate`: from a measured chart to the inks of a printer.
#pragma once

#include <optional>
#include <string>

namespace corvane {

struct CalibrateOptions {
  std::string measurement;
  std::string output;              // ink file; empty with `verify`
  std::string inks;                // what is known: to start from, to update or to verify
  std::string media;               // that was printed on; empty: what the file or its limit says
  std::string name;                // of the ink set; empty: made from the measurement's
  std::optional<double> inkLimit;  // of the chart, per cent, where it was made with one of its own
  bool update = false;
  bool verify = false;
  std::string report;  // HTML file; empty: none
  bool json = false;
  bool quiet = false;
};

// Fits inks to a measurement, updates known ones, or says how well they predict it. Throws Failure
// for what is not the measurement of a chart.
int RunCalibrate(const CalibrateOptions& options);

}  // namespace corvane
