// SPDX-License-Identifier: MIT
//
// Whether measured colours can be those of the chart on a printer at all.
#pragma once

#include <string>

#include "app/calibration/reference.h"

namespace corvane {

// What can be seen before a fit: whether the patches without ink are paper, against the white that
// is asked for. Throws Failure that names `file` and the patch.
void CheckPaper(const Measurement& measurement, const std::string& file);

// What a fit shows: strips that were read backwards or are swapped, patches that have each other's
// colours, streaks, paper that is none, inks that do not print or are others, colours that no such
// patch has. `fitted` is the result for this measurement; held-back patches are judged too. Throws
// Failure that names `file` and the patch.
void CheckAgainstFit(const Measurement& measurement, const InkData& fitted, int media,
                     const std::string& file);

}  // namespace corvane
