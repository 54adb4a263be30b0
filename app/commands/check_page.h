// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane {

// `corvane check-page`: what the page starts of a script lack for their modes.
struct CheckPageOptions {
  std::string script;  // "-" reads the standard input
};

// Returns the exit status: 1 when a page start lacks something. Throws Failure.
int RunCheckPage(const CheckPageOptions& options);

}  // namespace corvane
