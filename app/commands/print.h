// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/commands/placing_options.h"
#include "app/commands/preview.h"
#include "app/commands/print_report.h"

namespace corvane {

class FormStore;
class StandardInput;
struct PageSettings;

// The command `corvane print`, as it was typed; texts are checked by RunPrint.
struct PrintOptions {
  std::vector<std::string> inputs;
  bool separations = false;  // the inputs are ink planes
  std::string output;
  std::string format = "tiff";
  bool contone = false;
  bool contonePlanes = false;  // contone planes in a directory each

  std::string mode = "12";
  int alternateMode = 0;
  std::string media = "plain";
  std::string quality;  // empty: what suits the mode
  std::string intent = "photo";
  std::string preference = "automatic";
  std::string paperCharacteristics;  // empty: what suits the mode
  std::vector<unsigned> overspray;   // left, right
  std::vector<unsigned> resolution;  // horizontal, vertical; empty: what suits the mode

  std::string pages;           // "1-3,7" of each input; empty: all
  int copies = 1;              // of each page; 0: as many as it asks for
  std::string paper = "auto";  // a document's own, A4 for images
  bool landscape = false;
  PlacingOptions placing;
  std::string nup;   // pages on a sheet; empty: each has its own
  std::string tags;  // a mask; empty: those that the input has; "none": not even those

  std::string password;              // of PDF documents
  std::string passwordFile;          // whose first line it is
  std::uint64_t rendererMiB = 1024;  // that the interpreter of documents may take
  double rendererSeconds = 120;      // that it may take for a page

  PreviewOptions preview;
  std::string report;  // HTML file of the press check; empty: none

  std::string colorTable;   // empty: the one that comes with the program
  std::string diagnostics;  // folder of the plug-in's diagnostic files; empty: none
  bool saveRgb = false;
  bool points = false;
  std::string record;  // file that the messages are recorded to
  int jobs = 1;
  int onlyPage = 0;           // of the input, from 1; 0: all
  int encoderThreads = 0;     // that compress a page's planes; 0: what suits the machine
  bool untitled = false;      // without the input's name in the files
  bool noClobber = false;     // no file is replaced
  bool allOrNothing = false;  // no page is kept unless all are printed
  std::string progress = "auto";
  bool quiet = false;
  bool json = false;

  // Of a page of a job: pages that it may be like in parts, not owned, and its key among them.
  FormStore* forms = nullptr;
  std::string formKey;
  std::shared_ptr<StandardInput> standardInput;  // what an input "-" is, once it is opened
};

// Prints every page of every input and reports. Returns the exit status: 1 when some of several
// pages were not printed. Throws Failure when nothing is kept.
int RunPrint(const PrintOptions& options);

// The same without a report on the terminal. Of several pages those that fail are in the report,
// unless `allOrNothing` makes them throw.
PrintReport Print(const PrintOptions& options);

// The settings of the pages. Throws UsageFailure for what no page can have.
PageSettings PageSettingsFrom(const PrintOptions& options);

// A page that an input has, and what printing it costs compared with others.
struct PageEstimate {
  int page = 0;  // of the input, from 0
  double cost = 0;
};

// The pages that Print would print. Throws Failure for inputs that cannot be opened.
std::vector<PageEstimate> EstimatePages(const PrintOptions& options);

}  // namespace corvane
