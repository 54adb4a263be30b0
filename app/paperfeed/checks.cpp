// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>

#include "app/paperfeed/plan.h"

namespace corvane {
namespace {

std::string RowsText(const RowRun& run) {
  const std::string rows = run.rows.Size() == 1
                               ? fmt::format("row {}", run.rows.first)
                               : fmt::format("rows {} to {}", run.rows.first, run.rows.last);
  return fmt::format("{}: {}", rows, run.count);
}

// Every printable row must have the same count; the detail names the rows that have another one.
PlanCheck CheckRowCounts(std::string name, const std::vector<std::uint16_t>& counts, Range rows,
                         int expected) {
  constexpr int kMostNamed = 4;
  PlanCheck check{std::move(name), true, fmt::format("{} on all {} rows", expected, rows.Size())};
  int deviating = 0;
  std::string named;
  for (const RowRun& run : RunsOf(counts, rows)) {
    if (run.count == expected) continue;
    if (deviating++ < kMostNamed) named += (named.empty() ? "" : ", ") + RowsText(run);
  }
  if (deviating > 0) {
    check.passed = false;
    check.detail = fmt::format(
        "not {}: {}{}", expected, named,
        deviating > kMostNamed ? fmt::format(" and {} more runs", deviating - kMostNamed) : "");
  }
  return check;
}

// A check of every swath; `fault` gives what is wrong with one, or nothing.
template <typename Fault>
PlanCheck CheckSwaths(std::string name, const SwathPlan& plan, std::string detail, Fault fault) {
  for (std::size_t i = 0; i < plan.swaths.size(); ++i) {
    const std::string wrong = fault(plan.swaths[i]);
    if (!wrong.empty()) return {std::move(name), false, fmt::format("swath {}: {}", i + 1, wrong)};
  }
  return {std::move(name), true, std::move(detail)};
}

PlanCheck CheckNozzles(const SwathPlan& plan) {
  const Range head{0, plan.head.nozzlesPerColumn - 1};
  return CheckSwaths("nozzles within the head", plan,
                     fmt::format("all within {} to {}", head.first, head.last),
                     [&](const Swath& swath) -> std::string {
                       for (const Range& allowed : swath.allowed) {
                         if (allowed.first >= head.first && allowed.last <= head.last) continue;
                         return fmt::format("limits {} to {}", allowed.first, allowed.last);
                       }
                       return {};
                     });
}

PlanCheck CheckRowsOnSheet(const SwathPlan& plan) {
  return CheckSwaths("swaths on the sheet", plan,
                     fmt::format("all within rows 0 to {}", plan.sheetRows - 1),
                     [&](const Swath& swath) -> std::string {
                       if (swath.rows.Empty()) return {};
                       if (swath.rows.first >= 0 && swath.rows.last < plan.sheetRows) return {};
                       return fmt::format("rows {} to {}", swath.rows.first, swath.rows.last);
                     });
}

PlanCheck CheckSheetHeld(const SwathPlan& plan) {
  const int leavesFeed = plan.sheetRows - plan.feedRollerRows;
  const int reachesExit = plan.headRows + plan.exitRollerRows;
  return CheckSwaths("sheet held by a roller", plan,
                     fmt::format("feed roller to {}, exit roller from {}", leavesFeed, reachesExit),
                     [&](const Swath& swath) -> std::string {
                       const int at = swath.position;
                       if (at <= leavesFeed) return {};
                       if (at >= reachesExit && at <= plan.sheetRows + reachesExit) return {};
                       return fmt::format("no roller holds the sheet at {}", at);
                     });
}

PlanCheck CheckAdvances(const SwathPlan& plan) {
  int position = plan.startPosition;
  PlanCheck check =
      CheckSwaths("advances add up", plan, "", [&](const Swath& swath) -> std::string {
        position += swath.advance;
        if (swath.position == position) return {};
        return fmt::format("at {}, but the advances add up to {}", swath.position, position);
      });
  if (!check.passed) return check;
  check.detail =
      fmt::format("{} moves from {} to {}", plan.swaths.size(), plan.startPosition, position);
  if (plan.movesReported != static_cast<int>(plan.swaths.size())) {
    check.passed = false;
    check.detail += fmt::format(", but the movement object counts {}", plan.movesReported);
  }
  return check;
}

}  // namespace

bool SwathPlan::Sound() const {
  return std::all_of(checks.begin(), checks.end(), [](const PlanCheck& c) { return c.passed; });
}

std::vector<RowRun> RunsOf(const std::vector<std::uint16_t>& counts, Range rows) {
  std::vector<RowRun> runs;
  for (int row = rows.first; row <= rows.last; ++row) {
    if (runs.empty() || runs.back().count != counts[row]) runs.push_back({{row, row}, counts[row]});
    runs.back().rows.last = row;
  }
  return runs;
}

std::vector<PlanCheck> CheckPlan(const SwathPlan& plan) {
  const int passes = plan.mode->passes;
  return {CheckRowCounts("passes over each row", plan.passes, plan.printable, passes),
          CheckRowCounts("nozzles over each row", plan.nozzlesOver, plan.printable,
                         passes / plan.settings.modeFactor),
          CheckNozzles(plan),
          CheckRowsOnSheet(plan),
          CheckSheetHeld(plan),
          CheckAdvances(plan)};
}

}  // namespace corvane
