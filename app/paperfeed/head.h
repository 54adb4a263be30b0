// SPDX-License-Identifier: MIT
//
// What a host has to know of a printhead and its paper path to feed a page.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace corvane {

// A cartridge in one of the two places of the carriage.
struct Cartridge {
  std::string name;     // its inks, for the reader
  int location = 0;     // 0 left, 1 right
  int firstNozzle = 0;  // its nozzle that lies level with nozzle 0 of a perfectly seated one
};

// Nozzle 0 is the last to pass over a row, the highest nozzle the first: the paper comes from the
// feed roller, runs under the highest nozzles, then the lower ones, then to the exit roller.
struct Printhead {
  std::string name = "default head";
  int nozzlesPerColumn = 672;
  int nozzlesPerInch = 600;
  std::vector<Cartridge> cartridges = {{"C c M m Y y", 0, 0}, {"K cd md", 1, 4}};
  double feedRollerMm = 14;  // from the feed roller's nip to the highest nozzle in use
  double exitRollerMm = 10;  // from the lowest nozzle in use to the exit roller's nip
  double topMarginMm = 3;    // of a page that is not printed end to end
  double bottomMarginMm = 5;
  int bottomNozzles = 160;  // the advance in the bottom zone is that of a head with so many
};

// Reads a description; members that are left out keep the default. Throws Failure with the file's
// name for a file that is no such description and for values out of range.
Printhead ReadPrinthead(const std::filesystem::path& file);

}  // namespace corvane
