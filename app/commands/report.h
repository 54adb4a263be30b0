// SPDX-License-Identifier: MIT
//
// corvane report: what a person has to know of a print before it may run.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "app/commands/placing_options.h"

namespace corvane {

struct ReportOptions {
  std::vector<std::string> prints;     // TIFF files of corvane print
  std::string output;                  // HTML file, or a folder; empty: beside each print, unless a
                                       // text is asked for
  std::string media;                   // empty: that of each print
  std::string inks;                    // ink data; empty: the built-in set
  std::string prices;                  // what ink costs; empty: not known
  std::vector<std::string> zoomAreas;  // X,Y,W,H in millimetres
  std::string against;                 // image that was wanted; empty: none
  std::string againstName;             // how it is called; empty: so
  int againstPage = 1;                 // of it, from 1
  double againstDpi = 0;               // that an image without a resolution was printed with; 0:
                                       // the mode's default
  PlacingOptions placing;              // of the image on the sheet
  std::string head;                    // description of the printhead; empty: the default one
  bool text = false;
  bool json = false;

  // What is known from elsewhere of how the print was made.
  std::vector<std::pair<std::string, std::string>> facts;
  std::vector<std::string> warnings;
};

class StagedFile;

// Reports on one print, finished in the stage of a command and not committed, into a file of the
// same stage. Prints and output of the options are not looked at. Throws Failure.
void ReportOn(const ReportOptions& options, const StagedFile& print, StagedFile& page);

// Reports on each print. Returns the exit status; throws Failure.
int RunReport(const ReportOptions& options);

}  // namespace corvane
