// SPDX-License-Identifier: MIT
//
// The options of `corvane print` as texts, the form in which a job keeps them. They are defined
// where the command line is, by the same declarations.
#pragma once

#include <string>
#include <vector>

#include "app/commands/print.h"
#include "app/jobs/manifest.h"

namespace corvane {

// The options that a page of a job may have: those that its bytes depend on.
std::vector<std::string> PrintSettingNames();

// What these settings make of the options. Throws UsageFailure as the command line does.
PrintOptions PrintOptionsFrom(const PrintSettings& settings);

}  // namespace corvane
