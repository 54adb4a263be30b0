// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace corvane {

// The pages (from 0, ascending, each once) that a text such as "1-3,7,12-" names of `count`; all
// for an empty one. Throws UsageFailure for what is no such text and for pages that are not there.
std::vector<int> PagesIn(const std::string& ranges, int count);

}  // namespace corvane
