// SPDX-License-Identifier: MIT
//
// Every option of the program. Each command has a function here that declares its options, fills
// the command's options structure and runs it.
#include "app/command_line.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>

#include "app/replay.h"
#include "app/swaths.h"

namespace corvane {
namespace {

// What the command line asks for; run when all of it has been read.
using Command = std::function<int()>;

void AddReplay(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<ReplayOptions>();
  CLI::App* command = app.add_subcommand(
      "replay", "Sends recorded messages into the chain and writes what leaves each element");
  command->add_option("SCRIPT", options->script, "Messages, one JSON object a line; - reads them in")
      ->required();
  command->add_option("-o,--output", options->output, "Writes to this file, not to the terminal")
      ->type_name("FILE");
  command
      ->add_option("--diagnostics", options->diagnostics,
                   "Folder of the plug-in's diagnostic files (HTLog.txt, rgb.raw, points.bin)")
      ->type_name("DIR");
  command->callback([=] { *chosen = [options] { return RunReplay(*options); }; });
}

void AddSwaths(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<SwathsOptions>();
  CLI::App* command = app.add_subcommand(
      "swaths", "Feeds a page with the movement object and lists, checks and draws its swaths");
  command->add_option("--mode", options->mode, "Print mode, by number or name")
      ->required()
      ->type_name("MODE");
  command->add_option("--uam", options->useAlternateModes, "UseAlternateModes; feeds alike")
      ->check(CLI::Range(0, 2))
      ->capture_default_str();
  command->add_option("--paper", options->paper, "Sheet: A4, Letter, ... or WIDTHxHEIGHTmm")
      ->type_name("SIZE")
      ->capture_default_str();
  command->add_flag("--end-to-end", options->endToEnd, "Prints from edge to edge of the sheet");
  command->add_option("--head", options->head, "Description of the printhead and its paper path")
      ->type_name("FILE.json");
  CLI::Option* json = command->add_flag("--json", options->json, "Prints JSON");
  command->add_flag("--csv", options->csv, "Prints one line of values a swath")->excludes(json);
  command->add_option("--svg", options->svg, "Draws the plan into this file")->type_name("FILE");
  command->add_option("--png", options->png, "Draws the plan into this file")->type_name("FILE");
  command->callback([=] { *chosen = [options] { return RunSwaths(*options); }; });
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
  CLI::App app("Drives the Corvane plug-in: from an image to printhead data", "corvane");
  app.require_subcommand(1);
  Command chosen;
  AddReplay(app, &chosen);
  AddSwaths(app, &chosen);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  return chosen();
}

}  // namespace corvane
