// SPDX-License-Identifier: MIT
//
// Files that are no measurement of the chart, each made from a good one by a named mutation.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/calibration/reference.h"

namespace corvane::test {

struct WrongMeasurement {
  std::string name;
  std::function<std::string(const Measurement& good)> make;  // the text of the file
  std::string says;                                          // part of the error
};

const std::vector<WrongMeasurement>& WrongMeasurements();

// A measurement of a chart with places, as an instrument's program writes it.
Measurement MeasureChart(const ChartChoice& choice, int printer, double noise, std::uint32_t seed);

// Reads, checks and fits a text as `corvane calibrate` does; the error, or nothing.
std::string ErrorOf(const std::string& text);

}  // namespace corvane::test
