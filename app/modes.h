// SPDX-License-Identifier: MIT
#pragma once

namespace corvane {

struct ModesOptions {
  bool json = false;
};

// Lists the print modes. Returns the exit status; throws Failure.
int RunModes(const ModesOptions& options);

}  // namespace corvane
