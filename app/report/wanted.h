// SPDX-License-Identifier: MIT
//
// A print as modelled against the image that was wanted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "app/page/placing.h"
#include "app/preview/dots.h"
#include "app/report/cells.h"

namespace corvane {

// The mean colour that an image asks for in each cell.
struct WantedColours {
  std::string image;
  double pixelsPerInch = 0;    // of the image, as it lies on the sheet
  std::vector<Triple> linear;  // sRGB, linear light, cell by cell
  // The darkest and lightest pixel of each cell, as encoded.
  std::vector<std::uint8_t> darkest, lightest;
};

// Places the image on the sheet as `print` does and averages its light over the cells. Throws
// UsageFailure when the sheet has no room for it.
WantedColours ReadWantedColours(const std::string& image, int page, const CellGrid& grid,
                                const ImagePlacing& placing);

enum class Verdict : std::uint8_t {
  Close,    // to what is wanted
  Clipped,  // apart, and no inks of the medium would do better by much
  Fault,    // apart, though the inks could print it
  Edge,     // not judged: the model spreads the drops of a cell evenly, and here they are not to be
};

// Differences (CIEDE2000) over some of the page.
struct DifferenceOver {
  std::string name;
  PageWindow window;
  std::size_t cells = 0, edges = 0;     // judged, and not
  std::size_t clipped = 0, faults = 0;  // of those judged
  double mean = 0, most95 = 0, most = 0;
};

struct WantedCheck {
  std::string image;
  std::vector<std::uint8_t> srgb;         // that is wanted, 3 bytes a cell
  std::vector<std::uint16_t> difference;  // in hundredths, cell by cell
  std::vector<std::uint8_t> verdicts;     // Verdict of each cell
  DifferenceOver page;
  std::vector<DifferenceOver> regions;  // of the page, row by row of them
};

// Differences above this are told apart into clipped colours and faults.
inline constexpr double kApart = 4.0;

// Judges each cell with its eight neighbours, over which the noise of drops evens out. What can be
// printed is found with the inks of the cells.
WantedCheck CheckAgainst(const WantedColours& wanted, const DropCells& cells,
                         const CellColours& colours);

}  // namespace corvane
