// SPDX-License-Identifier: MIT
//
// The swaths of one page: what the host hands to the movement object, what it gets back, and
// whether the page comes out whole.
//
// Unit: positions and advances are rows at the mode's vertical resolution, so the mode factor is
// the number of rows from one nozzle to the next. Position p means that rows 0 to p - 1 of the
// sheet, counted from its leading edge, have come under the highest nozzle in use or gone beyond
// it; nozzle j then lies over row p - 1 - (highest - j) * factor.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "app/page/paper.h"
#include "app/paperfeed/head.h"
#include "movement/movement.h"

namespace corvane {

// Which of the movement object's rules gave a swath's advance.
enum class SwathRegion {
  Body,
  TwoMovesAway,
  OneMoveAway,
  BottomZone,
  PastZone,
  E2EFirst,
  E2ETransition,
  E2EMiddle,
  E2ELast,
};
inline constexpr int kSwathRegionCount = 9;
const char* NameOf(SwathRegion region);

inline constexpr int kLocations = 2;

// Both ends belong to it; empty when `last` is below `first`.
struct Range {
  int first = 0;
  int last = -1;

  bool Empty() const { return last < first; }
  int Size() const { return Empty() ? 0 : last - first + 1; }
  bool operator==(const Range&) const = default;
};

using NozzleRanges = std::array<Range, kLocations>;

// What the host tells the movement object before the first swath.
struct FeedSettings {
  int modeFactor = 0;
  std::vector<unsigned long> pattern;
  NozzleRanges nozzles;
  int bopMove = 0;
  int bopStart = 0;
  int bopZone = 0;
  // End-to-end pages only.
  bool endToEnd = false;
  std::vector<unsigned short> e2ePattern;
  NozzleRanges e2eNozzles;
  std::array<int, 3> e2eLimits{};
};

struct Swath {
  int position = 0;  // where the advance ends and the swath is printed
  int advance = 0;
  SwathRegion region = SwathRegion::Body;
  NozzleRanges allowed;  // the limits in force
  NozzleRanges used;     // the nozzles over rows that still miss passes
  Range rows;            // the rows below the used nozzles
};

struct PlanCheck {
  std::string name;
  bool passed = false;
  std::string detail;
};

struct SwathPlan {
  const PrintMode* mode = nullptr;
  int useAlternateModes = 0;  // changes planes, not the feed
  PaperSize paper;
  Printhead head;
  FeedSettings settings;
  int sheetRows = 0;
  Range printable;         // rows
  int feedRollerRows = 0;  // the distances of the paper path, in rows
  int exitRollerRows = 0;
  int headRows = 0;  // covered by all nozzles in use
  int startPosition = 0;
  std::vector<Swath> swaths;
  int movesReported = 0;                   // the object's own count
  std::vector<std::uint16_t> passes;       // of each sheet row: swaths whose used nozzles span it
  std::vector<std::uint16_t> nozzlesOver;  // of each sheet row: swaths with a nozzle over it
  std::vector<PlanCheck> checks;

  bool Sound() const;
};

// Feeds one page with the object. Throws Failure when the head cannot print the mode or the sheet
// is too short for its paper path.
SwathPlan PlanSwaths(Movement& movement, const PrintMode& mode, const PaperSize& paper,
                     const Printhead& head, bool endToEnd);

// Judges a plan by its swaths and row counts alone.
std::vector<PlanCheck> CheckPlan(const SwathPlan& plan);

// The rows below the nozzles within the limits, printable or not.
Range RowsWithinLimits(const SwathPlan& plan, const Swath& swath);

// Successive rows with the same count.
struct RowRun {
  Range rows;
  int count = 0;
};
std::vector<RowRun> RunsOf(const std::vector<std::uint16_t>& counts, Range rows);

}  // namespace corvane
