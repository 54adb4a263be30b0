// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace corvane {

// Reads the command line and gives what runs the command it names; that returns the exit status
// and throws Failure. Throws UsageFailure for a line that names no command or does not fit it.
std::function<int()> ReadCommandLine(int argc, char** argv);

// Reads the command line and runs its command. Returns the exit status; throws Failure when the
// command fails.
int RunCommandLine(int argc, char** argv);

}  // namespace corvane
