// SPDX-License-Identifier: MIT
//
// Printers that a calibration can be tried on, and that it knows nothing of.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "app/calibration/fit.h"

namespace corvane::test {

struct SimulatedPrinter {
  std::string name;
  Triple paper{};                                 // Lab
  std::function<Triple(const InkAmounts&)> lab;   // against the paper
  InkAmounts gain = {1, 1, 1, 1, 1, 1, 1, 1, 1};  // of an aged printer: what each ink lays

  // Absolute, as an instrument sees it.
  Triple Absolute(const InkAmounts& amounts) const;
  Triple Relative(const InkAmounts& amounts) const;
};

inline constexpr int kSimulatedPrinters = 5;

// 0 to 2 are ink files of their own with other inks, gains and Yule-Nielsen factors; 3 and 4 are
// computed from spectra with curves that the ink model does not have.
SimulatedPrinter MakeSimulatedPrinter(int number);

// The printer that an ink file describes.
SimulatedPrinter PrinterOf(const InkData& inks, int media);

// What an instrument reads from the patches: normal deviates whose mean length is `noise` in Lab.
std::vector<MeasuredPatch> Measure(const SimulatedPrinter& printer,
                                   const std::vector<ChartPatch>& patches, double noise,
                                   std::uint32_t seed);

// How far an ink's tone curve is off: the mean difference of its density over `steps` tints, as a
// part of the solid's.
double ToneError(const SimulatedPrinter& printer, const PrintModel& model, Ink ink, int steps);

}  // namespace corvane::test
