// SPDX-License-Identifier: MIT
//
// Every option of the program. Each command has a function here that declares its options, fills
// the command's options structure and runs it.
#include "app/command_line.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

#include "app/failure.h"
#include "app/interrupt.h"
#include "app/modes.h"
#include "app/replay.h"
#if defined(CORVANE_IMAGES)
#include "app/paper.h"
#include "app/preview.h"
#include "app/print.h"
#include "app/print_settings.h"
#include "app/print_table.h"
#include "app/swaths.h"
#include "app/table_command.h"
#include "app/table_inspect.h"
#endif

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

void AddModes(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<ModesOptions>();
  CLI::App* command = app.add_subcommand("modes", "Lists the print modes and their planes");
  command->add_flag("--json", options->json, "As JSON");
  command->callback([=] { *chosen = [options] { return RunModes(*options); }; });
}

#if defined(CORVANE_IMAGES)

void AddTableFile(CLI::App& command, std::string& file) {
  command
      .add_option("FILE", file, "Colour-table file; without it the one that comes with the program")
      ->type_name("");
}

void AddTableFileCommand(CLI::App& table, Command* chosen, const char* name,
                         const char* description, int (*run)(const TableFileOptions&)) {
  auto options = std::make_shared<TableFileOptions>();
  CLI::App* command = table.add_subcommand(name, description);
  AddTableFile(*command, options->file);
  command->add_flag("--json", options->json, "Writes JSON");
  command->callback([=] {
    *chosen = [=] { return run({FindColorTable(options->file), options->json}); };
  });
}

void AddTableShow(CLI::App& table, Command* chosen) {
  auto options = std::make_shared<TableInspectOptions>();
  CLI::App* command = table.add_subcommand(
      "show", "Lists the tables of a file, or shows where the colours of one come from");
  AddTableFile(*command, options->file);
  command->add_flag("--json", options->json, "Writes JSON");
  command->add_option("--table", options->indices, "The table to look into: its five indices")
      ->type_name("I,I,I,I,I")
      ->capture_default_str();
  command->add_option("--rgb", options->rgb, "Says which inks a colour gets and how they look")
      ->type_name("R,G,B");
  command->add_option("--chart", options->chart, "Draws the inks along ramps of colours")
      ->type_name("FILE.svg|.png");
  command->add_option("--inks", options->inks, "Ink data, in place of the built-in set")
      ->type_name("FILE");
  command->callback([=] {
    *chosen = [options] {
      options->file = FindColorTable(options->file);
      const bool lists = options->rgb.empty() && options->chart.empty();
      return lists ? RunTableShow({options->file, options->json}) : RunTableInspect(*options);
    };
  });
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
  build->add_option("--inks", options->inks, "Ink data, in place of the built-in set")
      ->type_name("FILE");
  build->add_option("--curves", options->curves, "Linearisation of the inks")->type_name("FILE");
  build->add_option("--icc", options->iccProfile, "Printer profile that separates the colours")
      ->type_name("PROFILE");
  build
      ->add_option("--limit", options->inkLimit,
                   "Total ink; 100 is one ink at full strength; without it the medium's")
      ->type_name("PERCENT");
  build
      ->add_option("--gcr", options->blackStrength,
                   "How much grey black replaces, 0 to 1; without it the quality's")
      ->type_name("PART");
  build->add_option("-j,--jobs", options->jobs, "Tables made at a time; 0: one a processor")
      ->check(CLI::Range(0, 1024))
      ->type_name("N")
      ->capture_default_str();
  build->add_flag("-q,--quiet", options->quiet, "No summary");
  build->callback([=] { *chosen = [options] { return RunTableBuild(*options); }; });

  AddTableShow(*table, chosen);
  AddTableFileCommand(*table, chosen, "verify", "Decodes every table and compares its checksum",
                      RunTableVerify);
}

void AddPageSettings(CLI::App& command, PrintOptions& options) {
  const auto setting = [&](const char* name, std::string& value, const PageSetting& choices,
                           const char* text) {
    command.add_option(name, value, std::string(text) + ": " + SettingChoices(choices))
        ->type_name("WORD")
        ->capture_default_str()
        ->group("Page");
  };
  command.add_option("-m,--mode", options.mode, "Print mode, by value or name (corvane modes)")
      ->type_name("MODE")
      ->capture_default_str()
      ->group("Page");
  command.add_option("--uam", options.alternateMode, "Alternate mode: 0, 1 or 2")
      ->check(CLI::Range(0, 2))
      ->type_name("N")
      ->capture_default_str()
      ->group("Page");
  setting("--media", options.media, kMediaType, "Media type");
  setting("--quality", options.quality, kPrintQuality,
          "Print quality; without it normal, or best in mode 109 where it prints no black");
  setting("--intent", options.intent, kPageIntent, "What the page shows");
  setting("--preference", options.preference, kColorPreference,
          "Colour preference; automatic follows the intent");
  setting("--paper-characteristics", options.paperCharacteristics, kPaperCharacteristics,
          "no-black takes tables without black ink, as modes without it do anyway");
  command
      .add_option("--overspray", options.overspray, "Empty pixels beside the page, left and right")
      ->delimiter(',')
      ->expected(2)
      ->check(CLI::Range(0u, 65535u))
      ->type_name("L,R")
      ->group("Page");
  command
      .add_option("--resolution", options.resolution,
                  "Input resolution, horizontal and vertical; 600 where the mode has it")
      ->delimiter(',')
      ->expected(1, 2)
      ->type_name("DPI[,DPI]")
      ->group("Page");
  command
      .add_option("--color-table", options.colorTable,
                  "Colour-table file; without it the one that comes with the program")
      ->type_name("FILE")
      ->group("Page");
}

void AddPlacing(CLI::App& command, PrintOptions& options, bool& fit) {
  command
      .add_option("--paper", options.paper, "Sheet: " + PaperSizeNames() + ", or like 210x297mm")
      ->type_name("SIZE")
      ->capture_default_str()
      ->group("Placing");
  command.add_flag("--landscape", options.landscape, "Turns the sheet on its side")
      ->group("Placing");
  CLI::Option* fits = command.add_flag("--fit", fit, "As large as the sheet allows (the default)")
                          ->group("Placing");
  command.add_option("--scale", options.scalePercent, "Per cent of the image's natural size")
      ->check(CLI::Range(0.1, 10000.0))
      ->excludes(fits)
      ->type_name("PERCENT")
      ->group("Placing");
  command
      .add_option("--tags", options.tags,
                  "Grey image of the input's size: 0 and 1 mark graphics, others photos")
      ->type_name("MASK")
      ->group("Placing");
}

void AddDiagnostics(CLI::App& command, PrintOptions& options) {
  command
      .add_option("--record", options.record,
                  "Writes the messages that are sent, for corvane replay")
      ->type_name("FILE")
      ->group("Diagnostics");
  command
      .add_option("--diagnostics", options.diagnostics,
                  "Folder for the plug-in's diagnostic files; writes HTLog.txt")
      ->type_name("DIR")
      ->group("Diagnostics");
  command.add_flag("--save-rgb", options.saveRgb, "Writes rgb.raw there as well")
      ->group("Diagnostics");
  command
      .add_flag("--points", options.points, "Prints the chart of points.bin there, not the image")
      ->group("Diagnostics");
}

void AddPreviewOptions(CLI::App& command, PreviewOptions& options, const std::string& prefix) {
  command
      .add_option("--ink-map", options.inkMap,
                  "Draws the ink per area: white none, yellow the medium's limit, red above it")
      ->type_name("FILE")
      ->group("Preview");
  command
      .add_option("--" + prefix + "dpi", options.dpi,
                  "Of the preview; else 150, and 2400 of a part of the page")
      ->check(CLI::Range(10.0, 4800.0))
      ->type_name("DPI")
      ->group("Preview");
  command
      .add_option("--" + prefix + "zoom", options.zoom,
                  "Shows a part of the page dot by dot, in millimetres")
      ->type_name("X,Y,W,H")
      ->group("Preview");
  command
      .add_option("--inks", options.inks,
                  "Ink data (examples/inks.json); without it the built-in set")
      ->type_name("FILE")
      ->group("Preview");
  command.add_option("--" + prefix + "only", options.only, "Shows these inks alone, as C,c,K")
      ->type_name("INKS")
      ->group("Preview");
}

void AddPreview(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<PreviewCommandOptions>();
  CLI::App* command = app.add_subcommand(
      "preview", "Draws printed planes as the inks would look on paper: a model, not a proof");
  command->add_option("SEPARATIONS", options->separations, "TIFF file of corvane print")
      ->required()
      ->type_name("FILE");
  command->add_option("-o,--output", options->preview.picture, "PNG file")->type_name("FILE");
  command->add_option("--media", options->media, "Media type: " + SettingChoices(kMediaType))
      ->type_name("WORD")
      ->capture_default_str();
  AddPreviewOptions(*command, options->preview, "");
  command->callback([=] { *chosen = [options] { return RunPreview(*options); }; });
}

void AddPrint(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<PrintOptions>();
  auto fit = std::make_shared<bool>(true);
  CLI::App* command =
      app.add_subcommand("print", "Prints PNG, JPEG and TIFF images to printhead data");
  command->add_option("INPUT", options->inputs, "Images; each page of each is a page")
      ->required()
      ->type_name("");
  command
      ->add_option("-o,--output", options->output,
                   "File of a single page, or a folder (made when it ends in /)")
      ->required()
      ->type_name("OUT");
  command
      ->add_option("--format", options->format,
                   "tiff: a directory for each plane; raw: rows as they left the chain")
      ->check(CLI::IsMember({"tiff", "raw"}))
      ->type_name("FORMAT")
      ->capture_default_str();
  command->add_flag("--contone", options->contone, "Writes the contone planes beside them");
  command->add_option("-j,--jobs", options->jobs, "Pages printed at a time")
      ->type_name("N")
      ->capture_default_str();
  command->add_flag("-q,--quiet", options->quiet, "No progress and no summary");
  command->add_flag("--json", options->json, "The summary as JSON");
  AddPageSettings(*command, *options);
  AddPlacing(*command, *options, *fit);
  command
      ->add_option("--preview", options->preview.picture,
                   "Draws the printed dots as they would look: a model, not a proof (PNG)")
      ->type_name("FILE")
      ->group("Preview");
  AddPreviewOptions(*command, options->preview, "preview-");
  AddDiagnostics(*command, *options);
  command->callback([=] { *chosen = [options, fit] { return RunPrint(*options); }; });
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
  command->add_option("--paper", options->paper, PaperSizeNames() + ", or WIDTHxHEIGHTmm")
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

#endif  // CORVANE_IMAGES

}  // namespace

int RunCommandLine(int argc, char** argv) {
  CLI::App app("Drives the Corvane plug-in: from an image to printhead data", "corvane");
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // a path may begin with a slash everywhere
  Command chosen;
#if defined(CORVANE_IMAGES)
  AddPrint(app, &chosen);
  AddPreview(app, &chosen);
#endif
  AddModes(app, &chosen);
  AddReplay(app, &chosen);
#if defined(CORVANE_IMAGES)
  AddSwaths(app, &chosen);
  AddTable(app, &chosen);
#endif

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // help was asked for
    if (app.get_subcommands().empty() && !app.remaining().empty()) {
      throw UsageFailure(app.remaining().front() + ": is not a command (--help lists them)");
    }
    throw UsageFailure(std::string(error.what()) + " (--help lists the options)");
  }
  CatchInterrupts();
  return chosen();
}

}  // namespace corvane
