// SPDX-License-Identifier: MIT
//
// For systems on which the plug-in cannot be loaded a second time.
#include "app/commands/bench.h"
#include "app/support/failure.h"

namespace corvane {

int RunBench(const BenchOptions&) { throw Failure("bench: does not run on this system"); }

}  // namespace corvane
