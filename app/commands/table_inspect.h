// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/drawing/drawing.h"
#include "app/tables/file.h"

namespace corvane {

struct TableInspectOptions {
  std::string file;
  std::string indices = "2,2,0,1,0";  // of the table, as in the file's directory
  std::string rgb;                    // "R,G,B"; empty: no colour is looked up
  std::string chart;                  // SVG or PNG file; empty: none
  std::string inks;  // ink data that the colours are modelled with; empty: built in
  bool json = false;
};

// Says which inks a table gives a colour and how they look, and draws its ramps. Throws Failure.
int RunTableInspect(const TableInspectOptions& options);

// "2,2,0,1,0". Throws UsageFailure.
TableIndices ParseTableIndices(const std::string& text);
// The table of an index tuple, decoded. Throws Failure where there is none or it is damaged.
std::vector<std::uint8_t> ReadDecodedTable(TableFile& file, const TableIndices& indices);
// Throws UsageFailure for a path that ends in neither .svg nor .png, unless it is empty.
void CheckDrawingName(const std::string& path);
// Writes SVG or PNG, by the end of the path.
void WriteDrawing(const std::string& path, const Drawing& drawing);

}  // namespace corvane
