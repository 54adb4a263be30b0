// SPDX-License-Identifier: MIT
//
// What a person has to know of a print before it may run: colours, ink, feed, the places worth a
// look dot by dot, and how far it is from what was wanted.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/jobs/report.h"
#include "app/output/separations.h"
#include "app/paperfeed/plan.h"
#include "app/preview/dots.h"
#include "app/report/cells.h"
#include "app/report/wanted.h"
#include "app/report/zoom_areas.h"

namespace corvane {

// What a plane of the print takes.
struct PlaneUse {
  std::string name;
  Ink ink = Ink::K;
  std::uint64_t drops = 0;
  double nanolitres = 0;
  double cost = 0;
};

// Ink on the paper against what the medium takes.
struct InkLoad {
  double limit = 0;  // 1 = one ink at full strength
  double most = 0;
  PageWindow mostAt;           // the cell
  std::size_t cellsAbove = 0;  // that hold more than the limit, but for the chance of drops
};

// A part of the page in which every drop can be seen.
struct ZoomArea {
  struct Plane {
    std::uint32_t firstPixel = 0, pixels = 0;
    std::vector<std::uint8_t> bits;  // row by row, each from a byte of its own
  };

  std::string name;
  PageWindow window;
  std::uint32_t firstRow = 0, rows = 0;  // of the print
  std::vector<Plane> planes;             // in the order of the print's
  std::vector<std::uint64_t> drops;      // for each of the cells' inks
  Triple lab{};                          // of an even tint of them
};

// Successive swaths of one rule of the movement object.
struct FeedRegion {
  SwathRegion region = SwathRegion::Body;
  std::size_t swaths = 0;
  Range rows;  // of the sheet, that they print
};

struct FeedCheck {
  std::string problem;  // why there is no plan; empty: there is one
  bool sound = false;
  std::size_t swaths = 0;
  int sheetRows = 0;
  std::vector<FeedRegion> regions;
  std::vector<PlanCheck> checks;
};

// The page as it looks, coarser from level to level: sRGB, 3 bytes a pixel.
struct PictureLevel {
  double perInch = 0;
  std::uint32_t width = 0, height = 0;
  std::vector<std::uint8_t> pixels;
};

// A fact of how the print was made, as "colour table" and its name.
using Fact = std::pair<std::string, std::string>;

struct PressCheckSettings {
  InkData inks = DefaultInkData();
  int media = 0;  // 0..5
  InkPrices prices;
  std::vector<PickedArea> zoomAreas;  // that were asked for
  bool picksAreas = true;             // others beside them
  std::vector<Fact> facts;            // that the print itself does not tell
  std::vector<std::string> warnings;  // known from elsewhere
};

struct PressCheck {
  std::string file;
  PageShape page;
  std::string inks, medium;  // names
  std::string currency;      // empty: prices are not known
  std::vector<PlaneUse> planes;
  DropCells cells;
  InkLoad load;
  std::vector<PictureLevel> picture;  // the finest first
  std::vector<ZoomArea> areas;
  std::optional<WantedCheck> wanted;
  FeedCheck feed;
  std::vector<Fact> facts;
  std::vector<std::string> warnings;

  PlaneUse Total() const;
};

// The cells that a print is judged in: a fiftieth of an inch, on long pages a multiple of that.
CellGrid JudgedGrid(const PageShape& page);

// Reads the print once, and the areas once more. `colours` are those of the settings and the
// print's mode; `wanted` are the colours that it ought to have, in its judged cells, null where
// they are not known. The feed is left to the caller. Throws Failure.
PressCheck CheckPrint(SeparationReader& reader, const std::string& file,
                      const PressCheckSettings& settings, const CellColours& colours,
                      const WantedColours* wanted);

// A part of the page around the middle of another, large enough to be looked at.
PageWindow AreaAround(const PageShape& page, const PageWindow& window);

// How the movement object feeds the page.
FeedCheck CheckFeed(Movement& movement, const PageShape& page, const Printhead& head);

// The same numbers for a terminal and for programs (docs/report.md).
std::string PressCheckText(const PressCheck& check);
std::string PressCheckJson(const PressCheck& check);

}  // namespace corvane
