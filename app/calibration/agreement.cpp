// SPDX-License-Identifier: MIT
#include "app/calibration/agreement.h"

#include <algorithm>
#include <utility>

namespace corvane {

DifferenceSummary SummaryOf(std::vector<double> differences) {
  DifferenceSummary summary;
  summary.count = differences.size();
  if (differences.empty()) return summary;
  std::sort(differences.begin(), differences.end());
  for (const double difference : differences) summary.mean += difference;
  summary.mean /= static_cast<double>(differences.size());
  summary.most95 = differences[(differences.size() - 1) * 95 / 100];
  summary.most = differences.back();
  return summary;
}

Agreement CompareWith(const Measurement& measurement, const InkData& inks, int media) {
  Agreement agreement;
  agreement.paper = inks.media[media].white;
  const PrintModel model(inks, media);
  std::vector<double> fitted, heldBack;
  for (const ReadPatch& patch : measurement.patches) {
    PatchAgreement one{patch.name, patch.measured,
                       LabFromBands(model.Bands(AmountsOf(patch.measured.levels))),
                       AgainstPaper(patch.measured.lab, agreement.paper), 0};
    one.difference = DeltaE2000(one.predicted, one.measured);
    (patch.measured.group == PatchGroup::HeldBack ? heldBack : fitted).push_back(one.difference);
    agreement.patches.push_back(std::move(one));
  }
  agreement.fitted = SummaryOf(std::move(fitted));
  agreement.heldBack = SummaryOf(std::move(heldBack));
  return agreement;
}

std::vector<const PatchAgreement*> WorstOf(const Agreement& agreement, std::size_t count,
                                           bool heldBack) {
  std::vector<const PatchAgreement*> worst;
  for (const PatchAgreement& patch : agreement.patches) {
    if ((patch.patch.group == PatchGroup::HeldBack) == heldBack) worst.push_back(&patch);
  }
  std::stable_sort(worst.begin(), worst.end(),
                   [](const auto* a, const auto* b) { return a->difference > b->difference; });
  worst.resize(std::min(worst.size(), count));
  return worst;
}

}  // namespace corvane
