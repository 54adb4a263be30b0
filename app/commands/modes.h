// SPDX-License-Identifier: MIT
#pragma once

namespace corvane {

struct ModesOptions {
  bool json = false;
  bool pageStart = false;  // what the page starts of the modes have to hold
};

// Lists the print modes. Returns the exit status; throws Failure.
int RunModes(const ModesOptions& options);

}  // namespace corvane
