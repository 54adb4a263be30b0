// SPDX-License-Identifier: MIT
//
// Every option of the program. Each command has a function here that declares its options, fills
// the command's options structure and runs it.
#include "app/command_line.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>

#include "app/replay.h"
#include "app/table_command.h"

namespace corvane {
namespace {

// What the command line asks for; run when all of it has been read.
using Command = std::function<int()>;

void AddReplay(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<ReplayOptions>();
  CLI::App* command = app.add_subcommand(
      "replay", "Sends recorded messages into the chain and writes what leaves each element");
  command
      ->add_option("SCRIPT", options->script, "Messages, one JSON object a line; - reads them in")
      ->required();
  command->add_option("-o,--output", options->output, "Writes to this file, not to the terminal")
      ->type_name("FILE");
  command
      ->add_option("--diagnostics", options->diagnostics,
                   "Folder of the plug-in's diagnostic files (HTLog.txt, rgb.raw, points.bin)")
      ->type_name("DIR");
  command->callback([=] { *chosen = [options] { return RunReplay(*options); }; });
}

void AddTableFileCommand(CLI::App& table, Command* chosen, const char* name,
                         const char* description, int (*run)(const TableFileOptions&)) {
  auto options = std::make_shared<TableFileOptions>();
  CLI::App* command = table.add_subcommand(name, description);
  command->add_option("FILE", options->file, "Colour-table file")->required();
  command->add_flag("--json", options->json, "Writes JSON");
  command->callback([=] { *chosen = [=] { return run(*options); }; });
}

void AddTable(CLI::App& app, Command* chosen) {
  CLI::App* table = app.add_subcommand("table", "Makes, lists and checks colour-table files");
  table->require_subcommand(1);

  auto options = std::make_shared<TableBuildOptions>();
  CLI::App* build =
      table->add_subcommand("build", "Writes the tables of every ink set and setting");
  build->add_option("-o,--output", options->output, "Colour-table file")
      ->required()
      ->type_name("FILE");
  build->callback([=] { *chosen = [options] { return RunTableBuild(*options); }; });

  AddTableFileCommand(*table, chosen, "show", "Lists the tables of a file", RunTableShow);
  AddTableFileCommand(*table, chosen, "verify", "Decodes every table and compares its checksum",
                      RunTableVerify);
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
  CLI::App app("Drives the Corvane plug-in: from an image to printhead data", "corvane");
  app.require_subcommand(1);
  Command chosen;
  AddReplay(app, &chosen);
  AddTable(app, &chosen);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  return chosen();
}

}  // namespace corvane
