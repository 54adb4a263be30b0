// SPDX-License-Identifier: MIT
//
// `corvane table`: makes, lists and checks colour-table files.
#pragma once

#include <string>

namespace corvane {

struct TableBuildOptions {
  std::string output;
};

struct TableFileOptions {
  std::string file;
  bool json = false;
};

// Writes a file with a table for every index tuple. Throws Failure.
int RunTableBuild(const TableBuildOptions& options);

// Lists what the directory holds. Throws Failure.
int RunTableShow(const TableFileOptions& options);

// Decodes every table and compares checksums. Writes a line for each fault to the standard error
// stream and returns 1, or 0 when there is none. Throws Failure when the directory cannot be read.
int RunTableVerify(const TableFileOptions& options);

}  // namespace corvane
