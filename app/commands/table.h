// SPDX-License-Identifier: MIT
//
// `corvane table`: makes, lists and checks colour-table files.
#pragma once

#include <optional>
#include <string>

namespace corvane {

struct TableBuildOptions {
  std::string output;
  std::string inks;                     // ink data; empty: the built-in set
  std::string curves;                   // linearisation; empty: none
  std::string iccProfile;               // separates colours instead of the ink model; empty: none
  std::optional<double> inkLimit;       // per cent, 100 = one ink at full strength
  std::optional<double> blackStrength;  // 0 to 1
  int jobs = 0;                         // tables made at a time; 0: as many as processors
  std::string progress = "auto";
  bool quiet = false;
};

struct TableFileOptions {
  std::string file;
  bool json = false;
  std::string indices = {};  // lists this table alone; empty: all
};

// Writes a file with a table for every index tuple, and a line that sums it up. Throws Failure.
int RunTableBuild(const TableBuildOptions& options);

// Lists what the directory holds. Throws Failure.
int RunTableShow(const TableFileOptions& options);

// Decodes every table and compares checksums. Writes a line for each fault to the standard error
// stream and returns 1, or 0 when there is none. Throws Failure when the directory cannot be read.
int RunTableVerify(const TableFileOptions& options);

}  // namespace corvane
