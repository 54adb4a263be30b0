// SPDX-License-Identifier: MIT
//
// Every option of the program. Each command has a function here that declares its options, fills
// the command's options structure and runs it.
#include "app/commands/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "app/commands/check_page.h"
#include "app/commands/command_facts.h"
#include "app/commands/elements.h"
#include "app/commands/modes.h"
#include "app/commands/reference.h"
#include "app/commands/replay.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/output_stage.h"
#include "simd/level.h"
#if defined(CORVANE_IMAGES)
#include "app/commands/bench.h"
#include "app/commands/calibrate.h"
#include "app/commands/chart.h"
#include "app/commands/compare.h"
#include "app/commands/job.h"
#include "app/commands/preview.h"
#include "app/commands/print.h"
#include "app/commands/print_settings.h"
#include "app/commands/report.h"
#include "app/commands/swaths.h"
#include "app/commands/table.h"
#include "app/commands/table_check.h"
#include "app/commands/table_inspect.h"
#include "app/commands/table_profile.h"
#include "app/page/paper.h"
#include "app/page/placing.h"
#include "app/page/settings.h"
#include "app/support/limits.h"
#include "app/tables/page_tables.h"
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
  command->callback([=] {
    *chosen = [=] { return NamingMemory(options->script, [&] { return RunReplay(*options); }); };
  });
}

void AddModes(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<ModesOptions>();
  CLI::App* command = app.add_subcommand("modes", "Lists the print modes and their planes");
  CLI::Option* json = command->add_flag("--json", options->json, "As JSON");
  command
      ->add_flag("--page-start", options->pageStart,
                 "What a host's page start has to hold for each mode")
      ->excludes(json);
  command->callback([=] { *chosen = [options] { return RunModes(*options); }; });
}

void AddElements(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<ElementsOptions>();
  CLI::App* command =
      app.add_subcommand("elements", "Tells of the elements, their pads and their properties");
  CLI::Option* name =
      command->add_option("NAME", options->name, "Element or property; without it all")
          ->type_name("");
  command->add_flag("--json", options->json, "All as JSON")->excludes(name);
  command->callback([=] { *chosen = [options] { return RunElements(*options); }; });
}

void AddCheckPage(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<CheckPageOptions>();
  CLI::App* command = app.add_subcommand(
      "check-page", "Tells what the page starts of recorded messages lack for their modes");
  command
      ->add_option("SCRIPT", options->script, "Messages, one JSON object a line; - reads them in")
      ->required()
      ->type_name("");
  command->callback([=] { *chosen = [options] { return RunCheckPage(*options); }; });
}

void AddReference(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<ReferenceOptions>();
  CLI::App* command = app.add_subcommand(
      "reference", "Writes the completion of the commands for a shell, or their manual page");
  command->add_option("KIND", options->kind, "bash, zsh, fish; manual: the source of scdoc")
      ->required()
      ->check(CLI::IsMember({"bash", "zsh", "fish", "manual"}))
      ->type_name("");
  // The commands are gone when the one that was chosen runs.
  command->callback([=, &app] {
    *chosen = [options, facts = FactsOf(app)] { return RunReference(*options, facts); };
  });
}

#if defined(CORVANE_IMAGES)

// Like CLI::Range, which lets "nan" pass.
CLI::Validator NumberIn(double low, double high) {
  const auto check = [=](std::string& text) {
    double number = 0;
    const bool fits = CLI::detail::lexical_cast(text, number) && number >= low && number <= high;
    return fits ? std::string() : fmt::format("{} is not in {} to {}", text, low, high);
  };
  return {check, fmt::format("{} to {}", low, high)};
}

CLI::Option* AddInks(CLI::App& command, std::string& inks) {
  return command
      .add_option("--inks", inks, "Ink data (examples/inks.json); without it the built-in set")
      ->type_name("FILE");
}

CLI::Option* AddMedia(CLI::App& command, std::string& media) {
  return command.add_option("--media", media, "Media type: " + SettingChoices(kMediaType))
      ->type_name("WORD")
      ->capture_default_str();
}

// Of what has been printed, which names its own.
CLI::Option* AddOwnMedia(CLI::App& command, std::string& media) {
  return command
      .add_option("--media", media,
                  "Media type; without it the print's own: " + SettingChoices(kMediaType))
      ->type_name("WORD");
}

CLI::Option* AddAlternateMode(CLI::App& command, int& alternateMode) {
  return command.add_option("--uam", alternateMode, "Alternate mode: 0, 1 or 2")
      ->check(CLI::Range(0, 2))
      ->type_name("N")
      ->capture_default_str();
}

void AddBench(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<BenchOptions>();
  CLI::App* command = app.add_subcommand(
      "bench", "Measures on this machine how long pages take, with and without fast paths");
  command->add_option("-m,--mode", options->mode, "This print mode alone, by number or name");
  command->add_flag("--json", options->json, "As JSON");
  command->callback([=] { *chosen = [options] { return RunBench(*options); }; });
}

void AddProgress(CLI::App& command, std::string& progress) {
  command
      .add_option("--progress", progress,
                  "How far it is: auto, a line at a terminal; json, objects for programs; none")
      ->check(CLI::IsMember({"auto", "json", "none"}))
      ->type_name("KIND")
      ->capture_default_str();
}

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
    *chosen = [=] {
      const std::string file = FindColorTable(options->file);
      return NamingMemory(file, [&] { return run({file, options->json}); });
    };
  });
}

void AddTableShow(CLI::App& table, Command* chosen) {
  auto options = std::make_shared<TableInspectOptions>();
  CLI::App* command = table.add_subcommand(
      "show", "Lists the tables of a file, or shows where the colours of one come from");
  AddTableFile(*command, options->file);
  command->add_flag("--json", options->json, "Writes JSON");
  const CLI::Option* indices =
      command
          ->add_option("--table", options->indices,
                       "Looks into this table, or lists it alone: its five indices")
          ->type_name("I,I,I,I,I")
          ->capture_default_str();
  command->add_option("--rgb", options->rgb, "Says which inks a colour gets and how they look")
      ->type_name("R,G,B");
  command->add_option("--chart", options->chart, "Draws the inks along ramps of colours")
      ->type_name("FILE.svg|.png");
  AddInks(*command, options->inks);
  command->callback([=] {
    const bool lists = options->rgb.empty() && options->chart.empty();
    if (lists && !options->inks.empty()) throw UsageFailure("--inks needs --rgb or --chart");
    if (!lists && options->rgb.empty() && options->json) {
      throw UsageFailure("--json with --chart needs --rgb");
    }
    if (lists && indices->count() == 0) options->indices.clear();
    *chosen = [=] {
      options->file = FindColorTable(options->file);
      return NamingMemory(options->file, [&] {
        return lists ? RunTableShow({options->file, options->json, options->indices})
                     : RunTableInspect(*options);
      });
    };
  });
}

void AddTableCheck(CLI::App& table, Command* chosen) {
  auto options = std::make_shared<TableCheckOptions>();
  CLI::App* command = table.add_subcommand(
      "check",
      "Says what colours the tables print, and where they fall short of what the inks can");
  AddTableFile(*command, options->file);
  command->add_flag("--json", options->json, "Writes JSON");
  command->add_option("--table", options->indices, "Checks one table alone: its five indices")
      ->type_name("I,I,I,I,I");
  command
      ->add_option("--chart", options->picture,
                   "Draws what a table prints beside what was wanted; without --table 2,2,0,1,0")
      ->type_name("FILE.svg|.png");
  AddInks(*command, options->inks);
  command->add_option("-j,--jobs", options->jobs, "Tables checked at a time; 0: one a processor")
      ->check(CLI::Range(0, limits::kTasksAtATime))
      ->type_name("N")
      ->capture_default_str();
  command->callback([=] {
    *chosen = [options] {
      options->file = FindColorTable(options->file);
      return NamingMemory(options->file, [&] { return RunTableCheck(*options); });
    };
  });
}

void AddTableProfile(CLI::App& table, Command* chosen) {
  auto options = std::make_shared<TableProfileOptions>();
  CLI::App* command = table.add_subcommand(
      "profile", "Writes an ICC profile of what a page's colours become, for soft proofs");
  command->add_option("-o,--output", options->output, "ICC profile")->required()->type_name("FILE");
  AddTableFile(*command, options->table);
  AddInks(*command, options->inks);
  command->add_option("-m,--mode", options->mode, "Print mode, by value or name")
      ->type_name("MODE")
      ->capture_default_str();
  AddMedia(*command, options->media);
  command
      ->add_option("--quality", options->quality,
                   "Print quality: " + SettingChoices(kPrintQuality) + "; without it the mode's")
      ->type_name("WORD");
  command->add_option("--intent", options->intent, "Of the page: " + SettingChoices(kPageIntent))
      ->type_name("WORD")
      ->capture_default_str();
  command->add_flag("-q,--quiet", options->quiet, "No summary");
  command->callback([=] {
    *chosen = [options] {
      options->table = FindColorTable(options->table);
      return NamingMemory(options->output, [&] { return RunTableProfile(*options); });
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
  AddInks(*build, options->inks);
  build->add_option("--curves", options->curves, "Linearisation of the inks")->type_name("FILE");
  build->add_option("--icc", options->iccProfile, "Printer profile that separates the colours")
      ->type_name("PROFILE");
  build
      ->add_option("--limit", options->inkLimit,
                   "Total ink; 100 is one ink at full strength; without it the medium's")
      ->check(NumberIn(100, 900))
      ->type_name("PERCENT");
  build
      ->add_option(
          "--gcr", options->blackStrength,
          "How much grey black replaces, 0 to 1; without it the quality's; not of a CMYK profile")
      ->check(NumberIn(0, 1))
      ->type_name("PART");
  build->add_option("-j,--jobs", options->jobs, "Tables made at a time; 0: one a processor")
      ->check(CLI::Range(0, limits::kTasksAtATime))
      ->type_name("N")
      ->capture_default_str();
  build->add_flag("-q,--quiet", options->quiet, "No progress and no summary");
  AddProgress(*build, options->progress);
  build->callback([=] {
    *chosen = [options] {
      return NamingMemory(options->output, [&] { return RunTableBuild(*options); });
    };
  });

  AddTableShow(*table, chosen);
  AddTableCheck(*table, chosen);
  AddTableProfile(*table, chosen);
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
  AddAlternateMode(command, options.alternateMode)->group("Page");
  setting("--media", options.media, kMediaType, "Media type");
  setting("--quality", options.quality, kPrintQuality,
          "Print quality; without it normal, or best where a nine-ink mode prints no black");
  setting("--intent", options.intent, kPageIntent, "What the page shows");
  setting("--preference", options.preference, kColorPreference,
          "Colour preference; automatic follows the intent");
  setting("--paper-characteristics", options.paperCharacteristics, kPaperCharacteristics,
          "no-black takes seven-ink tables without black ink, as modes without it do anyway");
  command
      .add_option("--overspray", options.overspray,
                  "Empty pixels by which rows are longer, at their end: L + R")
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

// Where an image lies on its sheet; of two commands that are to mean the same.
std::vector<CLI::Option*> AddImagePlacing(CLI::App& command, PlacingOptions& options) {
  return {
      command.add_option("--scale", options.scalePercent, "Per cent of the image's natural size")
          ->check(NumberIn(0.1, 10000.0))
          ->type_name("PERCENT"),
      command
          .add_option("--margins", options.margins,
                      "What stays bare along the sides, in millimetres; head: what the printhead "
                      "needs; without it nothing")
          ->type_name("MM|L,T,R,B|head"),
      command.add_flag("--borderless", options.borderless,
                       "Prints to the edges of the sheet (the default), whatever --margins says"),
      command
          .add_option("--rotate", options.rotation,
                      "Turns the image clockwise: 90, 180, 270; auto: by 90 where that makes it "
                      "larger")
          ->check(CLI::IsMember({"auto", "0", "90", "180", "270"}))
          ->type_name("DEGREES")
          ->capture_default_str(),
      command
          .add_option("--position", options.position,
                      "Where the image lies within the margins: " + PositionNames() +
                          "; or its upper left corner in millimetres")
          ->type_name("WORD|X,Y")
          ->capture_default_str(),
  };
}

void AddPlacing(CLI::App& command, PrintOptions& options, bool& fit) {
  command
      .add_option("--paper", options.paper,
                  "Sheet: " + PaperSizeNames() +
                      ", or like 210x297mm; auto: a document's own, A4 for images")
      ->type_name("SIZE")
      ->capture_default_str()
      ->group("Placing");
  command.add_flag("--landscape", options.landscape, "Turns the sheet on its side")
      ->group("Placing");
  CLI::Option* fits = command.add_flag("--fit", fit, "As large as the sheet allows (the default)")
                          ->group("Placing");
  for (CLI::Option* option : AddImagePlacing(command, options.placing)) option->group("Placing");
  command.get_option("--scale")->excludes(fits);
  command
      .add_option("--tags", options.tags,
                  "Grey image of the input's size: 0 and 1 mark graphics, others photos; none: not "
                  "even those that the input has")
      ->type_name("MASK")
      ->group("Placing");
}

void AddDocuments(CLI::App& command, PrintOptions& options) {
  command.add_option("--pages", options.pages, "Of each input, as 1-3,7,12-")
      ->type_name("PAGES")
      ->group("Documents");
  command.add_option("--copies", options.copies, "Of each page, whatever the page asks for")
      ->check(CLI::Range(1, 9999))
      ->type_name("N")
      ->group("Documents");
  CLI::Option* password =
      command.add_option("--password", options.password, "Opens PDF documents; others may see it")
          ->type_name("WORD")
          ->group("Documents");
  command.add_option("--password-file", options.passwordFile, "Its first line is the password")
      ->excludes(password)
      ->type_name("FILE")
      ->group("Documents");
  command
      .add_option("--renderer-memory", options.rendererMiB,
                  "MiB that the interpreter of documents may take")
      ->check(CLI::Range(64, 1 << 20))
      ->type_name("MIB")
      ->capture_default_str()
      ->group("Documents");
  command
      .add_option("--renderer-time", options.rendererSeconds, "Seconds that it may take for a page")
      ->check(NumberIn(1, 86400))
      ->type_name("SECONDS")
      ->capture_default_str()
      ->group("Documents");
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
      ->check(NumberIn(10.0, limits::kPreviewDpi))
      ->type_name("DPI")
      ->group("Preview");
  command
      .add_option("--" + prefix + "zoom", options.zoom,
                  "Shows a part of the page dot by dot, in millimetres")
      ->type_name("X,Y,W,H")
      ->group("Preview");
  AddInks(command, options.inks)->group("Preview");
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
  AddOwnMedia(*command, options->media);
  AddProgress(*command, options->progress);
  AddPreviewOptions(*command, options->preview, "");
  command->callback([=] {
    *chosen = [=] {
      return NamingMemory(options->separations, [&] { return RunPreview(*options); });
    };
  });
}

void AddReport(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<ReportOptions>();
  CLI::App* command = app.add_subcommand(
      "report", "Makes a page that a person can look into before a print may run");
  command->add_option("PRINT", options->prints, "TIFF files of corvane print")
      ->required()
      ->type_name("");
  command
      ->add_option("-o,--output", options->output,
                   "HTML file, or a folder (made when it ends in /); without it beside each print")
      ->type_name("OUT");
  command->add_flag("--text", options->text, "The numbers at the terminal, and no page unless -o");
  command->add_flag("--json", options->json, "The same as JSON");
  AddOwnMedia(*command, options->media);
  AddInks(*command, options->inks);
  command->add_option("--prices", options->prices, "What a litre of each ink costs")
      ->type_name("FILE.json");
  command
      ->add_option(
          "--zoom-areas", options->zoomAreas,
          "Part of the page that is kept dot by dot, in millimetres; may come several times")
      ->allow_extra_args(false)
      ->type_name("X,Y,W,H");
  command->add_option("--head", options->head, "Description of the printhead and its paper path")
      ->type_name("FILE.json");
  CLI::Option* against = command->add_option("--against", options->against, "Image that was wanted")
                             ->type_name("IMAGE");
  command->add_option("--page", options->againstPage, "Of that image, from 1")
      ->check(NumberIn(1, 1000000))
      ->needs(against)
      ->type_name("N");
  for (CLI::Option* option : AddImagePlacing(*command, options->placing)) {
    option->needs(against)->group("That image on the sheet, as print has placed it");
  }
  command->callback([=] {
    *chosen = [options] {
      return NamingMemory(options->prints.front(), [&] { return RunReport(*options); });
    };
  });
}

void AddCompare(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<CompareOptions>();
  CLI::App* command = app.add_subcommand(
      "compare", "Compares two prints dot by dot: status 0 equal, 1 different, 2 not compared");
  command->add_option("FIRST", options->first, "TIFF file of corvane print")
      ->required()
      ->type_name("");
  command->add_option("SECOND", options->second, "TIFF file of corvane print")
      ->required()
      ->type_name("");
  AddOwnMedia(*command, options->media);
  AddInks(*command, options->inks);
  command
      ->add_option("-o,--output", options->output, "Both prints in one page, if they differ (HTML)")
      ->type_name("FILE");
  command->add_flag("--json", options->json, "As JSON");
  command->add_flag("-q,--quiet", options->quiet, "The status alone");
  command->callback([=] { *chosen = [options] { return RunCompare(*options); }; });
}

// What a page's bytes depend on, and so what a job keeps of a page.
void AddPrintSettings(CLI::App& command, PrintOptions& options, bool& fit) {
  command
      .add_option("--format", options.format,
                  "tiff: a directory for each plane; raw: rows as they left the chain")
      ->check(CLI::IsMember({"tiff", "raw"}))
      ->type_name("FORMAT")
      ->capture_default_str();
  CLI::Option* contone =
      command.add_flag("--contone", options.contone,
                       "Writes the contone planes beside them, as one separated image");
  command
      .add_flag("--contone-planes", options.contonePlanes,
                "Writes them with a directory for each plane")
      ->excludes(contone);
  AddPageSettings(command, options);
  AddPlacing(command, options, fit);
}

std::string LongNameOf(const CLI::Option& option) {
  return option.get_lnames().empty() ? std::string() : option.get_lnames().front();
}

// The settings that were typed, as AddPrintSettings has declared them.
PrintSettings TypedSettings(const CLI::App& command) {
  PrintSettings settings;
  for (const std::string& name : PrintSettingNames()) {
    const CLI::Option* option = command.get_option("--" + name);
    if (option->count() > 0) settings[name] = CLI::detail::join(option->results(), ",");
  }
  return settings;
}

void AddPrint(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<PrintOptions>();
  options->copies = 0;
  auto fit = std::make_shared<bool>(true);
  CLI::App* command = app.add_subcommand("print", "Prints images and documents to printhead data");
  command
      ->add_option("INPUT", options->inputs,
                   "Images and documents, or folders of them; each page of each is a page; - is "
                   "the standard "
                   "input")
      ->required()
      ->type_name("");
  command
      ->add_option("-o,--output", options->output,
                   "File of a single page, - for the standard output, or a folder (made when it "
                   "ends in /)")
      ->required()
      ->type_name("OUT");
  command->add_option("-j,--jobs", options->jobs, "Pages printed at a time")
      ->type_name("N")
      ->capture_default_str();
  command->add_flag("--no-clobber", options->noClobber,
                    "Replaces no file: prints nothing if one is there");
  command->add_flag("--all-or-nothing", options->allOrNothing,
                    "Keeps no page unless all are printed");
  command->add_flag("-q,--quiet", options->quiet, "No progress and no summary");
  AddProgress(*command, options->progress);
  command->add_flag("--json", options->json, "The summary as JSON");
  AddPrintSettings(*command, *options, *fit);
  command
      ->add_option("--nup", options->nup,
                   "Pages on a sheet, in reading order: 2, 4, 6, 9, 16, or COLUMNSxROWS")
      ->type_name("N|CxR")
      ->group("Placing");
  CLI::Option* separations = command->add_flag(
      "--separations", options->separations,
      "The inputs are ink planes: files of --contone, or raw ones with their JSON");
  for (const char* unused :
       {"--paper", "--landscape", "--fit", "--scale", "--margins", "--borderless", "--rotate",
        "--position", "--nup", "--tags", "--color-table", "--quality", "--intent", "--preference",
        "--paper-characteristics"}) {
    separations->excludes(command->get_option(unused));
  }
  command
      ->add_option("--preview", options->preview.picture,
                   "Draws the printed dots as they would look: a model, not a proof (PNG)")
      ->type_name("FILE")
      ->group("Preview");
  AddPreviewOptions(*command, options->preview, "preview-");
  command
      ->add_option("--report", options->report,
                   "Page to look into before the print may run (HTML); see corvane report")
      ->type_name("FILE")
      ->group("Preview");
  AddDocuments(*command, *options);
  AddDiagnostics(*command, *options);
  for (const char* unused : {"--pages", "--password", "--password-file", "--renderer-memory",
                             "--renderer-time", "--save-rgb", "--points"}) {
    separations->excludes(command->get_option(unused));
  }
  command->callback([=] {
    *chosen = [options, fit] {
      return NamingMemory(options->output, [&] { return RunPrint(*options); });
    };
  });
}

// What the options of `job make` are read into, for as long as they may be.
struct JobMakeArguments {
  JobMakeOptions job;
  PrintOptions page;  // read for their checks alone: the job keeps them as they were typed
  bool fit = true;
};

void AddJobMake(CLI::App& job, Command* chosen) {
  auto arguments = std::make_shared<JobMakeArguments>();
  JobMakeOptions* options = &arguments->job;
  CLI::App* command = job.add_subcommand("make", "Lists the pages of a job and how to print them");
  command->add_option("JOB", options->manifest, "File to make")->required()->type_name("");
  CLI::Option* inputs = command
                            ->add_option("PAGES", options->inputs,
                                         "Images, folders of them, or patterns such as "
                                         "'queue/*.tif'; - reads a list of images")
                            ->type_name("");
  command
      ->add_option("--csv", options->csv,
                   "Reads a page a line; the columns are \"input\" and long names of options")
      ->excludes(inputs)
      ->type_name("FILE");
  command
      ->add_option("-o,--output", options->output,
                   "Folder of the pages; without it DAY for a job DAY.job")
      ->type_name("DIR");
  AddPrintSettings(*command, arguments->page, arguments->fit);
  command->callback([=] {
    arguments->job.settings = TypedSettings(*command);
    *chosen = [arguments] {
      return NamingMemory(arguments->job.manifest, [&] { return RunJobMake(arguments->job); });
    };
  });
}

CLI::Option* AddJobFile(CLI::App& command, std::string& manifest) {
  return command.add_option("JOB", manifest, "Job of corvane job make")->required()->type_name("");
}

void AddJobRun(CLI::App& job, Command* chosen) {
  auto options = std::make_shared<JobRunOptions>();
  CLI::App* command =
      job.add_subcommand("run", "Prints the pages of a job that are not printed yet");
  AddJobFile(*command, options->manifest);
  command->add_option("--tasks", options->tasks, "Pages at a time; without it one for each core")
      ->check(CLI::Range(1, limits::kTasksAtATime))
      ->type_name("N");
  command
      ->add_option("--task", options->task,
                   "Prints one share of the pages, from 0; without it that of an array's task in "
                   "Slurm, Kubernetes or AWS Batch")
      ->type_name("K");
  command->add_option("--of", options->of, "Number of shares")->type_name("M");
  command->add_option("--cache", options->cache, "Keeps printed pages there and takes them back")
      ->type_name("DIR");
  command->add_flag("--retry-failed", options->retryFailed, "Tries pages again that have failed");
  command->add_flag("-q,--quiet", options->quiet, "No progress and no summary");
  AddProgress(*command, options->progress);
  command->callback([=] { *chosen = [options] { return RunJobRun(*options); }; });
}

void AddJobStatus(CLI::App& job, Command* chosen) {
  auto options = std::make_shared<JobStatusOptions>();
  CLI::App* command = job.add_subcommand("status", "Tells how far a job is, and what has failed");
  AddJobFile(*command, options->manifest);
  CLI::Option* json = command->add_flag("--json", options->json, "As JSON");
  command->add_flag("--watch", options->watch, "Shows it until the job is over")->excludes(json);
  command->callback([=] {
    *chosen = [options] {
      return NamingMemory(options->manifest, [&] { return RunJobStatus(*options); });
    };
  });
}

void AddJobVerify(CLI::App& job, Command* chosen) {
  auto options = std::make_shared<JobVerifyOptions>();
  CLI::App* command = job.add_subcommand(
      "verify", "Reads every page of a job again and compares it with its record");
  AddJobFile(*command, options->manifest);
  command->callback([=] {
    *chosen = [options] {
      return NamingMemory(options->manifest, [&] { return RunJobVerify(*options); });
    };
  });
}

void AddJobReport(CLI::App& job, Command* chosen) {
  auto options = std::make_shared<JobReportOptions>();
  CLI::App* command = job.add_subcommand("report", "Writes what a job took, as one HTML file");
  AddJobFile(*command, options->manifest);
  command->add_option("-o,--output", options->output, "HTML file")->required()->type_name("FILE");
  command
      ->add_option("--prices", options->prices,
                   "Prices of the inks: {\"currency\": \"EUR\", \"perLitre\": {\"C\": 120}}")
      ->type_name("FILE");
  command->callback([=] {
    *chosen = [options] {
      return NamingMemory(options->manifest, [&] { return RunJobReport(*options); });
    };
  });
}

void AddJob(CLI::App& app, Command* chosen) {
  CLI::App* job =
      app.add_subcommand("job", "Prints pages by the thousand, over cores and machines");
  job->require_subcommand(1);
  AddJobMake(*job, chosen);
  AddJobRun(*job, chosen);
  AddJobStatus(*job, chosen);
  AddJobVerify(*job, chosen);
  AddJobReport(*job, chosen);
}

void AddChart(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<ChartOptions>();
  CLI::App* command = app.add_subcommand(
      "chart",
      "Prints the patches that a printer is calibrated with, and pages that show its state");
  command->add_option("-o,--output", options->output, "Folder of the pages and the reference files")
      ->required()
      ->type_name("DIR");
  command->add_option("-m,--mode", options->mode, "Print mode, by value or name (corvane modes)")
      ->type_name("MODE")
      ->capture_default_str();
  AddAlternateMode(*command, options->alternateMode);
  AddMedia(*command, options->media);
  command
      ->add_option("--paper", options->paper, "Sheet: " + PaperSizeNames() + ", or like 210x297mm")
      ->type_name("SIZE")
      ->capture_default_str();
  command
      ->add_option("--instrument", options->reading,
                   "strip: pulled along strips; hand: set down on each patch")
      ->check(CLI::IsMember({"strip", "hand"}))
      ->type_name("KIND")
      ->capture_default_str();
  command
      ->add_option("--limit", options->inkLimit,
                   "Most ink of a patch; 100 is one ink at full strength; without it the medium's")
      ->check(NumberIn(100.0, 900.0))
      ->type_name("PERCENT");
  command->add_flag("--update", options->update, "The few patches of calibrate --update");
  command->add_flag("-q,--quiet", options->quiet, "No summary");
  command->callback([=] {
    *chosen = [options] {
      return NamingMemory(options->output, [&] { return RunChart(*options); });
    };
  });
}

void AddCalibrate(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<CalibrateOptions>();
  CLI::App* command = app.add_subcommand(
      "calibrate",
      "Finds the inks of a printer from a measured chart, for table, preview and print");
  command->add_option("MEASURED", options->measurement, "Measurement of a chart (CGATS, .ti3)")
      ->required()
      ->type_name("FILE");
  command->add_option("-o,--output", options->output, "Ink file")->type_name("FILE");
  command
      ->add_option(
          "--inks", options->inks,
          "Known inks: to update or verify, else to begin with; without it the built-in set")
      ->type_name("FILE");
  command
      ->add_option("--media", options->media,
                   "What was printed on, where the measurement does not name it: " +
                       SettingChoices(kMediaType))
      ->type_name("WORD");
  command->add_option("--name", options->name, "Name of the ink set; else that of the measurement")
      ->type_name("TEXT");
  command->add_option("--limit", options->inkLimit, "That of corvane chart, where it was given")
      ->check(NumberIn(100.0, 900.0))
      ->type_name("PERCENT");
  CLI::Option* update = command->add_flag(
      "--update", options->update, "Moves the known inks' curves to those of an aged printer");
  command
      ->add_flag("--verify", options->verify,
                 "Says how well the known inks predict the measurement, and writes none")
      ->excludes(update);
  command->add_option("--report", options->report, "The same with pictures, one HTML page")
      ->type_name("FILE.html");
  command->add_flag("--json", options->json, "The summary as JSON");
  command->add_flag("-q,--quiet", options->quiet, "No summary");
  command->callback([=] {
    *chosen = [options] {
      return NamingMemory(options->measurement, [&] { return RunCalibrate(*options); });
    };
  });
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

#if defined(CORVANE_IMAGES)

std::vector<std::string> PrintSettingNames() {
  CLI::App command;
  PrintOptions options;
  bool fit = true;
  command.set_help_flag();
  AddPrintSettings(command, options, fit);
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) names.push_back(LongNameOf(*option));
  return names;
}

PrintOptions PrintOptionsFrom(const PrintSettings& settings) {
  CLI::App command;
  PrintOptions options;
  bool fit = true;
  AddPrintSettings(command, options, fit);
  std::vector<std::string> arguments;
  for (const auto& [name, value] : settings) {
    arguments.push_back(fmt::format("--{}={}", name, value));
  }
  try {
    command.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    throw UsageFailure(error.what());
  }
  return options;
}

#endif

namespace {

// The library says "--mode: At Most 1 required but received 2" of an option that came twice.
std::string ProblemOf(const CLI::ParseError& error) {
  const std::string text = error.what();
  const std::size_t place = text.find(": At Most 1 ");
  return place == std::string::npos ? text : text.substr(0, place) + ": can be given only once";
}

// A line to type for every command, below its options.
constexpr std::pair<const char*, const char*> kExamples[] = {
    {"modes", "corvane modes --json"},
    {"elements", "corvane elements PrintQuality"},
    {"replay", "corvane replay page.jsonl -o outputs.jsonl"},
    {"check-page", "corvane check-page page.jsonl"},
    {"reference", "corvane reference bash >~/.local/share/bash-completion/completions/corvane"},
#if defined(CORVANE_IMAGES)
    {"print", "corvane print photo.jpg --mode 54 --paper A4 -o out/"},
    {"job make", "corvane job make night.job 'queue/*.tif' --mode 54"},
    {"job run", "corvane job run night.job --tasks 4"},
    {"job status", "corvane job status night.job --watch"},
    {"job verify", "corvane job verify night.job"},
    {"job report", "corvane job report night.job -o night.html"},
    {"report", "corvane report page.tif -o check.html --against photo.jpg"},
    {"compare", "corvane compare before.tif after.tif"},
    {"preview", "corvane preview out/photo.tif -o preview.png"},
    {"swaths", "corvane swaths --mode 54 --paper A4 --png plan.png"},
    {"chart", "corvane chart --mode 12 --media glossy -o chart/"},
    {"calibrate", "corvane calibrate measured.ti3 -o inks.json --report fit.html"},
    {"bench", "corvane bench --mode 54"},
    {"table build", "corvane table build -o printer.cvt --inks inks.json"},
    {"table show", "corvane table show --table 0,1,1,0,1 --rgb 200,30,40"},
    {"table check", "corvane table check printer.cvt --inks inks.json"},
    {"table profile", "corvane table profile -o printer.icc --mode 54 --media glossy"},
    {"table verify", "corvane table verify printer.cvt"},
#endif
};

void AddExamples(CLI::App& app) {
  for (const auto& [path, line] : kExamples) {
    CLI::App* command = &app;
    for (const std::string& word : CLI::detail::split(path, ' ')) {
      command = command->get_subcommand(word);
    }
    command->footer(fmt::format("Example:\n  {}", line));
  }
}

void CheckInstructionLevel() {
  const char* wish = std::getenv("CORVANE_CPU");
  if (wish == nullptr || FindCpuLevel(wish) != nullptr) return;
  std::string names;
  for (const CpuLevel& level : kCpuLevels) {
    names += (names.empty() ? "" : ", ") + std::string(NameOf(level));
  }
  throw UsageFailure(fmt::format("CORVANE_CPU: \"{}\" is none of {}", wish, names));
}

}  // namespace

std::function<int()> ReadCommandLine(int argc, char** argv) {
  CLI::App app("Drives the Corvane plug-in: from an image to printhead data", "corvane");
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // a path may begin with a slash everywhere
  app.set_version_flag("--version", "corvane " CORVANE_VERSION, "Prints the version and exits");
  Command chosen;
#if defined(CORVANE_IMAGES)
  AddPrint(app, &chosen);
  AddJob(app, &chosen);
  AddPreview(app, &chosen);
  AddReport(app, &chosen);
  AddCompare(app, &chosen);
#endif
  AddModes(app, &chosen);
  AddElements(app, &chosen);
  AddReplay(app, &chosen);
  AddCheckPage(app, &chosen);
#if defined(CORVANE_IMAGES)
  AddSwaths(app, &chosen);
  AddChart(app, &chosen);
  AddCalibrate(app, &chosen);
  AddBench(app, &chosen);
  AddTable(app, &chosen);
#endif
  AddReference(app, &chosen);
  AddExamples(app);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {  // help was asked for
      std::ostringstream help;
      app.exit(error, help, help);
      return [text = help.str()] {
        WriteStandardOutput(text);
        return 0;
      };
    }
    if (app.get_subcommands().empty() && !app.remaining().empty()) {
      throw UsageFailure(app.remaining().front() + ": is not a command (--help lists them)");
    }
    throw UsageFailure(ProblemOf(error) + " (--help lists the options)");
  }
  return chosen;
}

int RunCommandLine(int argc, char** argv) {
  const Command command = ReadCommandLine(argc, argv);
  CheckInstructionLevel();
  CatchInterrupts();
  return command();
}

}  // namespace corvane
