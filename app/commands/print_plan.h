// SPDX-License-Identifier: MIT
//
// What `corvane print` is going to do: each page with its sheet, its place on it and its files.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/commands/print.h"
#include "app/commands/print_page.h"
#include "app/document/renderer.h"
#include "app/page/paper.h"
#include "app/page/place.h"
#include "app/page/settings.h"

namespace corvane {

// The files of a page; what is not written has no name.
struct PageFileNames {
  std::filesystem::path data;     // the printhead data; "-" is the standard output
  std::filesystem::path sidecar;  // describes raw data
  std::filesystem::path contone;
  std::filesystem::path preview;
  std::filesystem::path inkMap;
  std::filesystem::path report;
};

struct PlannedPage {
  PageJob job;
  PageFileNames files;
  std::vector<std::string> planeFiles;  // that ink planes are read from
  bool streamed = false;                // read from a stream of pages
  bool isStandardInput = false;         // which is that stream
  int copies = 1;                       // that it asks for
  bool collated = false;                // with the others, set after set
  int copy = 1;                         // which of its copies this is
  std::shared_ptr<Document> document;   // that it is rendered from; null: none
  DocumentPage documentPage;
  double drawnScale = 1;  // of that page
  PaperSize drawnSize = {};
  bool tagged = false;             // its pixels say what they show
  std::vector<PlannedPage> cells;  // pages that share this sheet, each on one of its cell's size
  std::vector<SheetArea> areas;    // where those may lie
  std::string problem;  // why it cannot be printed, if that is known; a place among the names stays
};

// Every page of every input with its sheet, in the order of printing, files not yet named. An input
// that cannot be read is a page with a problem where others are kept. Throws UsageFailure for
// options that do not fit the inputs, and Failure for inputs of which nothing can be printed.
std::vector<PlannedPage> PlanPages(const PrintOptions& options, const PageSettings& settings,
                                   const std::string& colorTable);

// Gives every page its files: OUT itself for a single page, else names in the folder that are
// numbered where they would meet. Previews are numbered through the command.
void NameFiles(const PrintOptions& options, std::vector<PlannedPage>& pages);

// Throws UsageFailure for files that are inputs too, meet one another, have the ending of another
// format, or are there already and have to stay.
void CheckFiles(const PrintOptions& options, const std::vector<PlannedPage>& pages,
                const std::string& colorTable);

// Pages that are printed one after the other: those of a stream, or a single one.
struct PageGroup {
  std::size_t first, count;
};

// Every page in order. A stream is cut where that gives each of `jobs` threads its share.
std::vector<PageGroup> GroupPages(const std::vector<PlannedPage>& pages, int jobs);

// The sheet where the inputs do not say one. Throws UsageFailure for a paper that is none.
PaperSize PaperFrom(const PrintOptions& options);

// How an input is called.
std::string NameOf(const PrintOptions& options, const std::string& input);

// Whether the printhead data go to the standard output.
bool WritesToStandardOutput(const PrintOptions& options);

// Whether --tags names a mask.
bool NamesMask(const PrintOptions& options);

// Whether pages are kept as they are done. The messages of a page that failed have no place in a
// record, so a command with one is a whole.
bool KeepsPages(const PrintOptions& options);

}  // namespace corvane
