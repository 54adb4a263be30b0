// SPDX-License-Identifier: MIT
#pragma once

namespace corvane {

// Reads the command line and runs the command it names. Returns the exit status: 0, 2 for wrong
// usage. Throws Failure when the command fails.
int RunCommandLine(int argc, char** argv);

}  // namespace corvane
