// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane {

struct ReplayOptions {
  std::string script;       // "-" reads the standard input
  std::string output;       // empty writes the standard output
  std::string diagnostics;  // folder of the plug-in's diagnostic files; empty leaves their names
};

// Sends the script's messages into a chain and writes every message that leaves an element, as
// docs/replay.md gives both. Throws Failure, naming the line, for a script that cannot be carried
// out and for an element that cannot be initialised.
int RunReplay(const ReplayOptions& options);

}  // namespace corvane
