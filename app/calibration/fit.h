// SPDX-License-Identifier: MIT
//
// Finds the inks of a printer from measured patches.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "app/calibration/patches.h"
#include "app/inks/ink_model.h"

namespace corvane {

// A patch and its colour.
struct MeasuredPatch {
  Contone levels{};
  PatchGroup group = PatchGroup::White;
  Triple lab{};  // D50, absolute: the paper is not white
};

struct FitSettings {
  std::vector<Ink> inks;  // that the chart holds
  int media = 0;          // 0..5: the one that was printed on
  double inkLimit = 3;    // of the chart, 1 = one ink at full strength
};

// The colour of the paper, Lab: the mean of the patches without ink but for odd ones. Throws
// Failure without any.
Triple PaperOf(std::span<const MeasuredPatch> patches);

// A Lab colour against that of the paper.
Triple AgainstPaper(const Triple& lab, const Triple& paper);

// The ink set `base` with the measured colours in place of its own; held-back patches are not
// looked at. The result describes the medium of the settings; the other media keep their relation
// to it, and inks and dyes that the chart lacks, with their overprints, stay what `base` has them
// on that medium. Outliers count little. Deterministic.
InkData FitInks(std::span<const MeasuredPatch> patches, const FitSettings& settings,
                const InkData& base);

// An aged printer: `known` with each ink's tints moved to what the patches of `UpdatePatches` (or a
// whole chart) say; how inks overprint is kept.
InkData UpdateInks(std::span<const MeasuredPatch> patches, const FitSettings& settings,
                   const InkData& known);

}  // namespace corvane
