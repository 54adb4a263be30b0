// SPDX-License-Identifier: MIT
//
// Every option of the program. Each command has a function here that declares its options, fills
// the command's options structure and runs it.
#include "app/command_line.h"

#include <CLI/CLI.hpp>

namespace corvane {

int RunCommandLine(int argc, char** argv) {
  CLI::App app("Drives the Corvane plug-in: from an image to printhead data", "corvane");
  app.require_subcommand(1);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  return 0;
}

}  // namespace corvane
