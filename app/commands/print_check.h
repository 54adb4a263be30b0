// SPDX-License-Identifier: MIT
//
// The press check of a page that is just printed, which is one of its files.
#pragma once

#include "app/commands/print.h"
#include "app/commands/print_plan.h"
#include "app/support/output_stage.h"

namespace corvane {

// Refuses what no report can be made of. Throws UsageFailure.
void CheckReportOptions(const PrintOptions& options);

// Writes the report on a page, whose data are finished and not committed, into its file. Throws
// Failure.
void WriteReport(const PrintOptions& options, const PlannedPage& planned, const PrintedPage& page,
                 const StagedFile& data, StagedFile& report);

}  // namespace corvane
