// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "app/support/failure.h"

namespace corvane {

// Thrown for a page that is not there.
class NoSuchPage : public UsageFailure {
 public:
  using UsageFailure::UsageFailure;
};

// The pages (from 0, ascending, each once) that a text such as "1-3,7,12-" names of `count`; all
// for an empty one. Throws UsageFailure for what is no such text, and NoSuchPage.
std::vector<int> PagesIn(const std::string& ranges, int count);

}  // namespace corvane
