// SPDX-License-Identifier: MIT
//
// corvane bench: how long pages take on this machine.
#pragma once

#include <string>

namespace corvane {

struct BenchOptions {
  std::string mode;  // this print mode alone; empty: all
  bool json = false;
};

// Measures and writes the tables to the standard output. Returns the exit status; throws Failure.
int RunBench(const BenchOptions& options);

}  // namespace corvane
