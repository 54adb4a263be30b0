// SPDX-License-Identifier: MIT
//
// The press check of what has just been printed.
#pragma once

#include <cstddef>
#include <filesystem>

#include "app/commands/print.h"

namespace corvane {

// Refuses what no report can be made of. Throws UsageFailure.
void CheckReportOptions(const PrintOptions& options);

// The report on the page `index`, from 0, of `count`.
std::filesystem::path ReportPathOf(const PrintOptions& options, std::size_t index,
                                   std::size_t count);

// Writes the report that the options name, of several pages numbered ones, from the printed files.
// Throws Failure; the prints stay.
void WriteReports(const PrintOptions& options, const PrintReport& report);

}  // namespace corvane
