// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "app/chain/plugin_library.h"
#include "app/drawing/drawing.h"
#include "app/paperfeed/picture.h"
#include "app/paperfeed/plan.h"
#include "app/paperfeed/report.h"
#include "app/support/failure.h"
#include "movement/corvane_movement.h"
#include "printmode/print_modes.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/paths.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::AllOf;
using testing::HasSubstr;

SwathPlan Plan(int descriptor, const char* paper, bool endToEnd, const Printhead& head = {}) {
  CorvaneMovement movement;
  return PlanSwaths(movement, *FindPrintMode(descriptor), ParsePaperSize(paper), head, endToEnd);
}

std::string FaultsOf(const SwathPlan& plan) {
  std::string faults;
  for (const PlanCheck& check : plan.checks) {
    if (!check.passed) faults += check.name + ": " + check.detail + "\n";
  }
  return faults;
}

TEST(Swaths, EveryModePrintsEveryRowItsNumberOfPasses) {
  for (const PrintMode& mode : kPrintModes) {
    for (const char* paper : {"A3", "A4", "Letter", "4x6in", "210x1000mm"}) {
      for (bool endToEnd : {false, true}) {
        const SwathPlan plan = Plan(mode.descriptor, paper, endToEnd);
        EXPECT_EQ(FaultsOf(plan), "") << mode.name << " " << paper << " " << endToEnd;
        const auto first = plan.passes.begin() + plan.printable.first;
        const auto end = plan.passes.begin() + plan.printable.last + 1;
        EXPECT_EQ(std::count(first, end, mode.passes), plan.printable.Size());
        const auto printed = plan.passes.size() - static_cast<std::size_t>(std::count(
                                                      plan.passes.begin(), plan.passes.end(), 0));
        EXPECT_EQ(printed, static_cast<std::size_t>(plan.printable.Size()));
      }
    }
  }
}

// As many rows as a page of the sheet has, whose input rows are whole.
TEST(Swaths, PassOverTheRowsOfAPrintedPage) {
  EXPECT_EQ(Plan(53, "A4", true).sheetRows, 14032);
  EXPECT_EQ(Plan(53, "A3", true).sheetRows, 19842);
  EXPECT_EQ(Plan(12, "A4", true).sheetRows, 7016);
}

TEST(Swaths, TheLoadedObjectFeedsAsTheLinkedOne) {
  const PluginLibrary library(harness::PluginFile());
  for (bool endToEnd : {false, true}) {
    const std::unique_ptr<Movement> movement(
        static_cast<Movement*>(library.CreateObject("CorvaneMovement")));
    const SwathPlan loaded =
        PlanSwaths(*movement, *FindPrintMode(54), ParsePaperSize("A4"), {}, endToEnd);
    EXPECT_EQ(SwathCsv(loaded), SwathCsv(Plan(54, "A4", endToEnd)));
  }
}

// A page end to end, region by region: the range grows by 80 nozzles, and shrinks by them again.
TEST(Swaths, EndToEndRegionsFollowTheirOrder) {
  const SwathPlan plan = Plan(83, "A4", true);
  std::vector<SwathRegion> order;
  for (const Swath& swath : plan.swaths) {
    if (order.empty() || order.back() != swath.region) order.push_back(swath.region);
  }
  EXPECT_EQ(order, (std::vector{SwathRegion::E2EFirst, SwathRegion::E2ETransition,
                                SwathRegion::E2EMiddle, SwathRegion::E2ELast}));
  const int highest = plan.settings.nozzles[1].last;
  EXPECT_EQ(plan.swaths.front().allowed[1].last, highest - 80);
  EXPECT_EQ(plan.swaths.front().advance, 80 * 2 + plan.settings.e2ePattern[0]);
  EXPECT_EQ(plan.swaths[plan.swaths.size() / 2].allowed[1].last, highest);
  EXPECT_EQ(plan.swaths.back().allowed[1].last, highest - 80);
  EXPECT_EQ(plan.swaths.back().advance, plan.settings.e2ePattern[0]);
}

// The fixed step of 80 nozzles is longer than this head's advance: rows are left out, and said so.
TEST(Swaths, RowsThatTheRulesDoNotReachAreReported) {
  Printhead head;
  head.nozzlesPerColumn = 150;
  const SwathPlan plan = Plan(8, "A4", true, head);
  EXPECT_FALSE(plan.Sound());
  EXPECT_THAT(FaultsOf(plan), HasSubstr("passes over each row: not 1: rows 396 to 409: 0"));
  EXPECT_THAT(SwathSummary(plan), HasSubstr("FAULT"));
}

TEST(Swaths, ChecksFindFaults) {
  const struct {
    const char* fault;
    std::function<void(SwathPlan&)> make;
  } cases[] = {
      {"passes over each row: not 8: row 1000: 7", [](SwathPlan& p) { --p.passes[1000]; }},
      {"passes over each row: not 8: rows 1000 to 1001: 9, row 2000: 0",
       [](SwathPlan& p) { ++p.passes[1000], ++p.passes[1001], p.passes[2000] = 0; }},
      {"nozzles over each row: not 4: row 1000: 5", [](SwathPlan& p) { ++p.nozzlesOver[1000]; }},
      {"nozzles within the head: swath 3: limits 4 to 672",
       [](SwathPlan& p) { p.swaths[2].allowed[1].last = 672; }},
      {"swaths on the sheet: swath 1: rows -1 to 1",
       [](SwathPlan& p) {
         p.swaths[0].rows = {-1, 1};
       }},
      {"sheet held by a roller: swath 98: no roller holds the sheet at 17000",
       [](SwathPlan& p) { p.swaths[97].position = 17000; }},
      {"advances add up: swath 2: at 476, but the advances add up to 475",
       [](SwathPlan& p) { --p.swaths[1].advance; }},
      {"the movement object counts 97", [](SwathPlan& p) { --p.movesReported; }},
  };
  for (const auto& c : cases) {
    SwathPlan plan = Plan(54, "A4", false);
    c.make(plan);
    plan.checks = CheckPlan(plan);
    EXPECT_THAT(FaultsOf(plan), HasSubstr(c.fault));
  }
}

TEST(Swaths, HeadsAndSheetsThatCannotPrintAreRefused) {
  Printhead wide, coarse, shortHead;
  wide.nozzlesPerInch = 1200;
  coarse.nozzlesPerInch = 200;
  shortHead.nozzlesPerColumn = 84;
  const struct {
    int mode;
    const char* paper;
    bool endToEnd;
    Printhead head;
    const char* message;
  } cases[] = {
      {8, "A4", false, wide, "do not divide the 600 rows"},
      {8, "A4", false, coarse, "the 3 rows from nozzle to nozzle need more passes than the 1 of"},
      {8, "A4", true, shortHead, "needs more nozzles than 80"},
      {8, "100x50mm", false, {}, "shorter than the 52 mm from roller to roller"},
      {8, "100x120mm", true, {}, "mm too short to be printed end to end"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(FailureOf([&] { Plan(c.mode, c.paper, c.endToEnd, c.head); }),
                HasSubstr(c.message));
  }
}

TEST(Swaths, HeadDescriptions) {
  const ScratchFolder folder;
  const auto read = [&](const std::string& text) {
    return ReadPrinthead(folder.Write("head.json", text));
  };
  const Printhead head = read(R"({"nozzlesPerColumn": 400, "feedRollerMm": 2.5,
                                  "cartridges": [{"name": "K", "location": 1}]})");
  EXPECT_EQ(head.nozzlesPerColumn, 400);
  EXPECT_EQ(head.feedRollerMm, 2.5);
  EXPECT_EQ(head.nozzlesPerInch, Printhead{}.nozzlesPerInch);
  const SwathPlan plan = Plan(8, "A4", false, head);
  EXPECT_EQ(plan.settings.nozzles[0], plan.settings.nozzles[1]);

  const struct {
    const char* text;
    const char* message;
  } broken[] = {
      {"{", "not JSON at byte 2"},
      {"[]", "not an object"},
      {R"({"nozzlesPerColum": 1})", "unknown member \"nozzlesPerColum\""},
      {R"({"nozzlesPerColumn": 0})", "not a whole number from 1 to 20000"},
      {R"({"nozzlesPerColumn": 1e99})", "not a whole number"},
      {R"({"nozzlesPerColumn": 2.5})", "not a whole number"},
      {R"({"nozzlesPerInch": 1e309})", "\"nozzlesPerInch\" is beyond the numbers there are"},
      {R"({"exitRollerMm": "3"})", "not a number from 0 to 1000"},
      {R"({"name": 3})", "not a text"},
      {R"({"cartridges": {}})", "not a list"},
      {R"({"cartridges": []})", "no cartridge"},
      {R"({"cartridges": [{"location": 2}]})", "cartridge 1: \"location\" is not"},
      {R"({"cartridges": [{}, {}]})", "cartridge 2: location 0 is taken"},
  };
  for (const auto& c : broken) {
    const std::string failure = FailureOf([&] { read(c.text); });
    EXPECT_THAT(failure, AllOf(HasSubstr("head.json: "), HasSubstr(c.message)));
  }
  EXPECT_THROW(ReadPrinthead(folder.File("missing.json")), Failure);
}

TEST(Swaths, ReportsListEverySwath) {
  const SwathPlan plan = Plan(83, "A4", true);
  const auto lines = [](const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  };
  EXPECT_EQ(lines(SwathTable(plan)), plan.swaths.size() + 2);
  EXPECT_EQ(lines(SwathCsv(plan)), plan.swaths.size() + 1);
  const auto json = nlohmann::json::parse(SwathJson(plan));
  EXPECT_EQ(json["swaths"].size(), plan.swaths.size());
  EXPECT_EQ(json["swaths"][0]["advance"], plan.swaths[0].advance);
  EXPECT_EQ(json["passesOverRows"][0]["count"], 16);
  EXPECT_EQ(json["sound"], true);
}

// The pictures of a plan without and of one with a fault: each has a mark for every swath, and only
// the second shows a fault's colour.
TEST(Swaths, PictureShowsEverySwathAndFaults) {
  SwathPlan plan = Plan(54, "A4", false);
  const Drawing sound = DrawSwaths(plan);
  plan.passes[5000] = 7;
  plan.checks = CheckPlan(plan);
  const std::string svg = ToSvg(sound);
  const std::string faulty = ToSvg(DrawSwaths(plan));
  const auto count = [](const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
    return found;
  };
  // Solid marks: rows, advance and two nozzle ranges a swath, and the legend's.
  std::size_t body = 0;
  for (const Swath& swath : plan.swaths) body += swath.region == SwathRegion::Body;
  EXPECT_EQ(count(svg, "fill=\"#3b6fb0\"/>"), 4 * body + 1);
  EXPECT_THAT(svg, HasSubstr("The plan holds"));
  EXPECT_EQ(count(svg, "#c62828"), 0u);
  EXPECT_GT(count(faulty, "#c62828"), 0u);
}

}  // namespace
}  // namespace corvane
