// SPDX-License-Identifier: MIT
//
// Descriptions of a printhead and its paper path, and the plan of a page that follows from one.
#include "app/paperfeed/head.h"
#include "app/page/settings.h"
#include "app/paperfeed/picture.h"
#include "app/paperfeed/plan.h"
#include "app/paperfeed/report.h"
#include "fuzz/fuzz.h"
#include "movement/corvane_movement.h"

FUZZ_TARGET(head, input) {
  using namespace corvane;
  const std::string path = fuzz::FileOf(input);
  fuzz::Succeeds([&] {
    const Printhead head = ReadPrinthead(path);
    for (const bool endToEnd : {false, true}) {
      CorvaneMovement movement;
      const SwathPlan plan = PlanSwaths(movement, ParsePrintMode(endToEnd ? "54" : "12"),
                                        ParsePaperSize("100x150mm"), head, endToEnd);
      FUZZ_EXPECT(!plan.checks.empty());
      FUZZ_EXPECT(!SwathJson(plan).empty() && !SwathTable(plan).empty());
      FUZZ_EXPECT(!ToSvg(DrawSwaths(plan)).empty());
    }
  });
}
