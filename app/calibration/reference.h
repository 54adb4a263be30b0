// SPDX-License-Identifier: MIT
//
// A chart as the files that measuring programs take (.ti1, .ti2) and a measurement of it (.ti3).
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/calibration/cgats.h"
#include "app/calibration/chart_layout.h"
#include "app/calibration/fit.h"
#include "app/calibration/patches.h"

namespace corvane {

enum class ChartKind { Whole, Update };

// What a chart is made for. All but the medium decides which patches it has.
struct ChartChoice {
  ChartKind kind = ChartKind::Whole;
  std::vector<Ink> inks;
  double inkLimit = 3;                      // 1 = one ink at full strength
  std::optional<int> media = std::nullopt;  // 0..5; none: not known
};

std::vector<ChartPatch> PatchesOf(const ChartChoice& choice);

// The names of inks in these files, in their order: "CMYKcmy2c2m".
std::string InkCombination(std::span<const Ink> inks);

// Targets without and with places; `model` says about what colour to expect, for the instrument's
// program to tell patches apart.
Cgats TargetValues(const ChartChoice& choice, const PrintModel& model);
Cgats PlacedTarget(const ChartChoice& choice, const PrintModel& model, const ChartLayout& layout,
                   const PaperSize& paper);

struct ReadPatch {
  std::string name;  // "B12", or "patch 7" where the file has no places
  int number = 0;    // SAMPLE_ID
  MeasuredPatch measured;
  std::optional<int> strip, step;  // where it lies, from 0
};

struct Measurement {
  ChartChoice choice;              // the chart that was measured
  std::vector<ReadPatch> patches;  // all of the chart, in its order
};

// Reads a measurement and finds the chart that it is of: `inkLimit` where the chart was made with
// one of its own, else one of the media's. Throws Failure, with the patch, for a file that cannot
// be read and for one that is not the measurement of a chart of the program.
Measurement ReadMeasurement(const std::filesystem::path& file, std::optional<double> inkLimit);
Measurement MeasurementOf(const Cgats& cgats, const std::string& name,
                          std::optional<double> inkLimit);

// The same as a file, without spectra: for other programs and for trials.
Cgats MeasurementFile(const Measurement& measurement);

}  // namespace corvane
