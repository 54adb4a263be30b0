// SPDX-License-Identifier: MIT
//
// How well inks predict what was measured.
#pragma once

#include <string>
#include <vector>

#include "app/calibration/reference.h"

namespace corvane {

struct PatchAgreement {
  std::string name;
  MeasuredPatch patch;
  Triple predicted{}, measured{};  // Lab against the paper of the inks
  double difference = 0;           // CIEDE2000
};

struct DifferenceSummary {
  std::size_t count = 0;
  double mean = 0, most95 = 0, most = 0;
};

struct Agreement {
  Triple paper{};                       // of the inks, which both colours are against
  std::vector<PatchAgreement> patches;  // in the order of the chart
  DifferenceSummary fitted, heldBack;   // heldBack.count is 0 for the chart of an update
};

Agreement CompareWith(const Measurement& measurement, const InkData& inks, int media);

DifferenceSummary SummaryOf(std::vector<double> differences);

// The patches with the largest differences, the worst first.
std::vector<const PatchAgreement*> WorstOf(const Agreement& agreement, std::size_t count,
                                           bool heldBack);

// One page of HTML with its pictures in it: the summary, the worst patches, the gamut, the neutral
// axis and the tone curves.
std::string AgreementPage(const Agreement& agreement, const InkData& inks, int media,
                          const ChartChoice& choice, const std::string& title);

}  // namespace corvane
