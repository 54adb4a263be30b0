// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "host/raster.h"

namespace corvane {

// The colour-table file of a command line, or the one that comes with the program when `given` is
// empty. Throws Failure for a file that cannot be opened or whose path the chain cannot take.
std::string FindColorTable(const std::string& given);

// Compares the tables that a page start has been given, after it left the colour element, with
// their checksums. The element itself takes what it can decode. Throws Failure for a damaged table.
void CheckTablesOf(const QStartPage& page, const std::string& file);

}  // namespace corvane
