// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "app/preview.h"

namespace corvane {

// The command `corvane print`, as it was typed; texts are checked by RunPrint.
struct PrintOptions {
  std::vector<std::string> inputs;
  std::string output;
  std::string format = "tiff";
  bool contone = false;

  std::string mode = "12";
  int alternateMode = 0;
  std::string media = "plain";
  std::string quality;  // empty: what suits the mode
  std::string intent = "photo";
  std::string preference = "automatic";
  std::string paperCharacteristics;  // empty: what suits the mode
  std::vector<unsigned> overspray;   // left, right
  std::vector<unsigned> resolution;  // horizontal, vertical; empty: what suits the mode

  std::string paper = "A4";
  bool landscape = false;
  double scalePercent = 0;  // 0: fit
  std::string tags;

  PreviewOptions preview;

  std::string colorTable;   // empty: the one that comes with the program
  std::string diagnostics;  // folder of the plug-in's diagnostic files; empty: none
  bool saveRgb = false;
  bool points = false;
  std::string record;  // file that the messages are recorded to
  int jobs = 1;
  bool quiet = false;
  bool json = false;
};

// Prints every page of every input. Returns the exit status; throws Failure.
int RunPrint(const PrintOptions& options);

}  // namespace corvane
