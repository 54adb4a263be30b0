// SPDX-License-Identifier: MIT
#include "app/paperfeed/plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "app/page/place.h"
#include "app/page/settings.h"
#include "app/support/failure.h"
#include "app/support/units.h"
#include "printmode/page_shape.h"

namespace corvane {
namespace {

// The nozzles that the end-to-end regions leave out at the upper end.
constexpr int kE2ELeftOut = 80;

// How far beyond the bottom zone's end the movement object still gives the zone's advance.
constexpr int kBopZoneTolerance = 6;

int RowsOf(double mm, const PrintMode& mode) {
  return static_cast<int>(std::lround(mm / kMillimetresPerInch * mode.verticalDpi));
}

// The rows that a page has by default: whole input rows, each printed so many times.
int SheetRowsOf(const PaperSize& paper, const PrintMode& mode) {
  const PageSettings page = DefaultSettings(mode, 0);
  const Sheet sheet = MakeSheet(paper, page.horizontalDpi, page.verticalDpi);
  return static_cast<int>(sheet.height * RowsPerRow(Stage::Placed, mode, 0, page.verticalDpi));
}

int ModeFactorOf(const PrintMode& mode, const Printhead& head) {
  if (mode.verticalDpi % head.nozzlesPerInch != 0) {
    throw Failure(fmt::format("{}: {} nozzles per inch do not divide the {} rows per inch of {}",
                              head.name, head.nozzlesPerInch, mode.verticalDpi, mode.name));
  }
  const int factor = mode.verticalDpi / head.nozzlesPerInch;
  if (mode.passes % factor != 0) {
    throw Failure(
        fmt::format("{}: the {} rows from nozzle to nozzle need more passes than the {} of {}",
                    head.name, factor, mode.passes, mode.name));
  }
  return factor;
}

// The longest advance with which `nozzles` pass over every row `passes` times. Where rows lie
// between the nozzles, the advances must be odd and without a common factor, so that successive
// swaths fall on different rows.
int AdvanceFor(int nozzles, int passes, int factor) {
  int advance = nozzles * factor / passes;
  if (factor > 1) {
    while (advance > 0 && (advance % 2 == 0 || std::gcd(advance, factor) != 1)) --advance;
  }
  return advance;
}

int HighestFirstNozzle(const Printhead& head) {
  int highest = 0;
  for (const Cartridge& cartridge : head.cartridges) {
    highest = std::max(highest, cartridge.firstNozzle);
  }
  return highest;
}

// The same rows for every cartridge, whatever height it sits at. A place without a cartridge gets
// the limits of the other one.
NozzleRanges NozzlesOf(const Printhead& head, int count) {
  NozzleRanges ranges;
  for (const Cartridge& cartridge : head.cartridges) {
    ranges[cartridge.location] = {cartridge.firstNozzle, cartridge.firstNozzle + count - 1};
  }
  if (head.cartridges.size() == 1) {
    const int location = head.cartridges[0].location;
    ranges[1 - location] = ranges[location];
  }
  return ranges;
}

void SettleE2E(SwathPlan& plan, int usedNozzles) {
  FeedSettings& settings = plan.settings;
  const int passes = plan.mode->passes;
  const int advance = AdvanceFor(usedNozzles - kE2ELeftOut, passes, settings.modeFactor);
  if (advance < 1) {
    throw Failure(fmt::format("{}: end-to-end printing in {} needs more nozzles than {}",
                              plan.head.name, plan.mode->name, usedNozzles));
  }
  const int move = static_cast<int>(settings.pattern[0]);
  settings.e2ePattern = {static_cast<unsigned short>(advance)};
  settings.e2eNozzles = NozzlesOf(plan.head, usedNozzles - kE2ELeftOut);
  // First region: until the leading edge is under the exit roller. Transition: until the rows that
  // the growing range began have all their passes. Middle: until the range must begin to shrink to
  // be narrow when the trailing edge leaves the feed roller.
  const int reachesExit = plan.headRows + plan.exitRollerRows;
  const int leavesFeed = plan.sheetRows - plan.feedRollerRows;
  settings.e2eLimits = {reachesExit, reachesExit + passes * advance, leavesFeed - passes * move};
  const int shortest = settings.e2eLimits[1] + move - settings.e2eLimits[2];
  if (shortest > 0) {
    const double missingMm = shortest * kMillimetresPerInch / plan.mode->verticalDpi;
    throw Failure(fmt::format("{}: {:.0f} mm too short to be printed end to end in {}",
                              plan.paper.name, std::ceil(missingMm), plan.mode->name));
  }
}

// Derives what the host tells the movement object.
void Settle(SwathPlan& plan) {
  FeedSettings& settings = plan.settings;
  const PrintMode& mode = *plan.mode;
  settings.modeFactor = ModeFactorOf(mode, plan.head);
  const int usable = plan.head.nozzlesPerColumn - HighestFirstNozzle(plan.head);
  const int move = AdvanceFor(usable, mode.passes, settings.modeFactor);
  if (move < 1 || move > 0xFFFF) {
    throw Failure(
        fmt::format("{}: {} nozzles give no advance in {}", plan.head.name, usable, mode.name));
  }
  const int usedNozzles = move * mode.passes / settings.modeFactor;
  settings.pattern = {static_cast<unsigned long>(move)};
  settings.nozzles = NozzlesOf(plan.head, usedNozzles);
  plan.headRows = usedNozzles * settings.modeFactor;

  const int between = plan.headRows + plan.feedRollerRows + plan.exitRollerRows;
  if (plan.sheetRows < between) {
    throw Failure(fmt::format("{}: shorter than the {:.0f} mm from roller to roller",
                              plan.paper.name, between * kMillimetresPerInch / mode.verticalDpi));
  }

  // The bottom zone begins where the trailing edge leaves the feed roller and ends where the last
  // row has all its passes.
  const int slow = AdvanceFor(plan.head.bottomNozzles, mode.passes, settings.modeFactor);
  settings.bopMove = std::clamp(slow, 1, move);
  settings.bopStart = plan.sheetRows - plan.feedRollerRows;
  settings.bopZone = plan.printable.last + 1 + mode.passes * settings.bopMove;
  if (settings.endToEnd) SettleE2E(plan, usedNozzles);
}

std::array<unsigned short, kLocations> Ends(const NozzleRanges& ranges, int Range::*end) {
  return {static_cast<unsigned short>(ranges[0].*end), static_cast<unsigned short>(ranges[1].*end)};
}

void Initialize(Movement& movement, FeedSettings settings) {
  auto minNozzle = Ends(settings.nozzles, &Range::first);
  auto maxNozzle = Ends(settings.nozzles, &Range::last);
  movement.InitializeMovement(
      settings.pattern.data(), static_cast<unsigned char>(settings.pattern.size()),
      static_cast<unsigned short>(settings.modeFactor), minNozzle.data(), maxNozzle.data());
  auto bopMove = static_cast<unsigned short>(settings.bopMove);
  movement.InitializeBOPMovement(&bopMove, 1, 0, 0, static_cast<unsigned long>(settings.bopStart),
                                 static_cast<unsigned long>(settings.bopZone));
  if (!settings.endToEnd) return;
  auto e2eMinNozzle = Ends(settings.e2eNozzles, &Range::first);
  auto e2eMaxNozzle = Ends(settings.e2eNozzles, &Range::last);
  movement.InitializeE2EMovement(static_cast<unsigned long>(settings.e2eLimits[0]),
                                 static_cast<unsigned long>(settings.e2eLimits[1]),
                                 static_cast<unsigned long>(settings.e2eLimits[2]), 0,
                                 e2eMinNozzle.data(), e2eMaxNozzle.data(),
                                 static_cast<unsigned char>(settings.e2ePattern.size()),
                                 settings.e2ePattern.data());
}

// The rule that judges a move from `position`; `index` counts the page's moves.
SwathRegion RegionOf(const FeedSettings& settings, int position, std::size_t index) {
  const int move = static_cast<int>(settings.pattern[index % settings.pattern.size()]);
  if (settings.endToEnd) {
    const int e2eMove = settings.e2ePattern[index % settings.e2ePattern.size()];
    if (position + e2eMove < settings.e2eLimits[0]) return SwathRegion::E2EFirst;
    if (position + e2eMove < settings.e2eLimits[1]) return SwathRegion::E2ETransition;
    const int target = position + move;
    const bool middle = settings.e2eLimits[1] <= target && target < settings.e2eLimits[2];
    return middle ? SwathRegion::E2EMiddle : SwathRegion::E2ELast;
  }
  if (position <= 0 || position + 2 * move < settings.bopStart) return SwathRegion::Body;
  if (position + move < settings.bopStart) return SwathRegion::TwoMovesAway;
  if (position < settings.bopStart) return SwathRegion::OneMoveAway;
  return position + settings.bopMove <= settings.bopZone + kBopZoneTolerance
             ? SwathRegion::BottomZone
             : SwathRegion::PastZone;
}

NozzleRanges LimitsInForce(Movement& movement) {
  NozzleRanges ranges;
  for (int location = 0; location < kLocations; ++location) {
    const auto place = static_cast<tagZRXCartridgeLocationType>(location);
    ranges[location] = {movement.GetMinNozzle(place), movement.GetMaxNozzle(place)};
  }
  return ranges;
}

// Every row takes part in the first swaths that pass over it until it has its passes, so the
// nozzles that a shortened advance leaves without work fire nothing.
class RowBudget {
 public:
  explicit RowBudget(SwathPlan& plan) : plan_(plan), rowsMissing_(plan.printable.Size()) {
    plan.passes.assign(static_cast<std::size_t>(plan.sheetRows), 0);
    plan.nozzlesOver.assign(static_cast<std::size_t>(plan.sheetRows), 0);
  }

  // Chooses the swath's rows and nozzles and counts them.
  void Print(Swath& swath) {
    const int factor = plan_.settings.modeFactor;
    const Range within = RowsWithinLimits(plan_, swath);
    const int front = within.last;  // the row of the highest nozzle
    swath.rows = Narrow(within);
    if (swath.rows.Empty()) {
      frontBeyondRows_ = front > plan_.printable.last;
      return;
    }
    for (int row = swath.rows.first; row <= swath.rows.last; ++row) {
      if (++plan_.passes[row] == plan_.mode->passes) --rowsMissing_;
    }
    // Counted from the highest nozzle: the first and the last one that lie on those rows.
    const int first = (front - swath.rows.last + factor - 1) / factor;
    const int last = (front - swath.rows.first) / factor;
    for (int nozzle = first; nozzle <= last; ++nozzle) {
      ++plan_.nozzlesOver[front - nozzle * factor];
    }
    for (int location = 0; location < kLocations; ++location) {
      const int highest = swath.allowed[location].last;
      swath.used[location] = {highest - last, highest - first};
    }
  }

  // No row is left that a later swath could print.
  bool Done() const { return rowsMissing_ == 0 || frontBeyondRows_; }

 private:
  Range Narrow(Range rows) const {
    const auto full = [this](int row) { return plan_.passes[row] >= plan_.mode->passes; };
    rows.first = std::max(rows.first, plan_.printable.first);
    rows.last = std::min(rows.last, plan_.printable.last);
    while (!rows.Empty() && full(rows.first)) ++rows.first;
    while (!rows.Empty() && full(rows.last)) --rows.last;
    return rows.Empty() ? Range{} : rows;
  }

  SwathPlan& plan_;
  int rowsMissing_;
  bool frontBeyondRows_ = false;
};

void FeedPage(Movement& movement, SwathPlan& plan) {
  // The trailing edge leaves the exit roller there, and nothing moves the sheet any more.
  const int released = plan.sheetRows + plan.headRows + plan.exitRollerRows;
  RowBudget budget(plan);
  int position = plan.startPosition;
  while (!budget.Done() && position < released) {
    Swath swath;
    swath.region = RegionOf(plan.settings, position, plan.swaths.size());
    swath.advance = plan.settings.endToEnd ? movement.GetVerticalMovementE2E(position)
                                           : movement.GetVerticalMovement(position);
    if (swath.advance == 0) break;
    position += swath.advance;
    swath.position = position;
    swath.allowed = LimitsInForce(movement);
    budget.Print(swath);
    plan.swaths.push_back(swath);
  }
  plan.movesReported = movement.GetMovesThisPage() + 1;
}

}  // namespace

const char* NameOf(SwathRegion region) {
  static constexpr const char* kNames[kSwathRegionCount] = {
      "body",      "two moves from zone", "one move from zone", "bottom zone", "past the zone",
      "e2e first", "e2e transition",      "e2e middle",         "e2e last"};
  return kNames[static_cast<int>(region)];
}

Range RowsWithinLimits(const SwathPlan& plan, const Swath& swath) {
  const int factor = plan.settings.modeFactor;
  const int leftOut = plan.settings.nozzles[0].last - swath.allowed[0].last;
  const int front = swath.position - 1 - leftOut * factor;
  return {front + 1 - swath.allowed[0].Size() * factor, front};
}

SwathPlan PlanSwaths(Movement& movement, const PrintMode& mode, const PaperSize& paper,
                     const Printhead& head, bool endToEnd) {
  SwathPlan plan;
  plan.mode = &mode;
  plan.paper = paper;
  plan.head = head;
  plan.settings.endToEnd = endToEnd;
  plan.sheetRows = SheetRowsOf(paper, mode);
  plan.feedRollerRows = RowsOf(head.feedRollerMm, mode);
  plan.exitRollerRows = RowsOf(head.exitRollerMm, mode);
  plan.printable = {0, plan.sheetRows - 1};
  if (!endToEnd) {
    plan.printable.first += RowsOf(head.topMarginMm, mode);
    plan.printable.last -= RowsOf(head.bottomMarginMm, mode);
    if (plan.printable.Empty()) throw Failure(paper.name + ": nothing is left between the margins");
  }
  plan.startPosition = plan.printable.first;
  Settle(plan);
  Initialize(movement, plan.settings);
  FeedPage(movement, plan);
  plan.checks = CheckPlan(plan);
  return plan;
}

}  // namespace corvane
