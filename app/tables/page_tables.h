// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/tables/file.h"
#include "host/raster.h"

namespace corvane {

// The colour-table file of a command line, or the one that comes with the program when `given` is
// empty. Throws Failure for a file that cannot be opened or whose path the chain cannot take.
std::string FindColorTable(const std::string& given);

// A table, decoded; the entry's size must not be above that of its ink set. Throws Failure for one
// that lies outside the file, and for one that is not what its checksum says.
std::vector<std::uint8_t> ReadTable(TableFile& file, const TableEntry& entry);

// Compares the tables that a page start has been given, after it left the colour element, with
// their checksums. The element itself takes what it can decode. Throws Failure for a damaged table.
void CheckTablesOf(const QStartPage& page, const std::string& file);

}  // namespace corvane
