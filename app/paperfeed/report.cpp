// SPDX-License-Identifier: MIT
#include "app/paperfeed/report.h"

#include <fmt/format.h>

#include <iterator>
#include <nlohmann/json.hpp>

#include "app/support/json.h"
#include "app/support/message.h"

namespace corvane {
namespace {

using Json = nlohmann::ordered_json;

std::string RangeText(const Range& range) {
  return range.Empty() ? "-" : fmt::format("{}-{}", range.first, range.last);
}

std::string LimitsText(const NozzleRanges& ranges) {
  return fmt::format("left {}, right {}", RangeText(ranges[0]), RangeText(ranges[1]));
}

std::string SettingsLines(const SwathPlan& plan) {
  const FeedSettings& settings = plan.settings;
  std::string lines =
      fmt::format("  advance {}, nozzles {}\n", settings.pattern[0], LimitsText(settings.nozzles));
  if (settings.endToEnd) {
    lines += fmt::format("  end to end: advance {}, nozzles {}, limits {} {} {}\n",
                         settings.e2ePattern[0], LimitsText(settings.e2eNozzles),
                         settings.e2eLimits[0], settings.e2eLimits[1], settings.e2eLimits[2]);
  } else {
    lines += fmt::format("  bottom zone: advance {}, from {} to {}\n", settings.bopMove,
                         settings.bopStart, settings.bopZone);
  }
  return lines;
}

Json ToJson(const Range& range) {
  return range.Empty() ? Json(nullptr) : Json{{"first", range.first}, {"last", range.last}};
}

Json ToJson(const NozzleRanges& ranges) {
  return {{"left", ToJson(ranges[0])}, {"right", ToJson(ranges[1])}};
}

Json ToJson(const Swath& swath) {
  return {{"position", swath.position},     {"advance", swath.advance},
          {"region", NameOf(swath.region)}, {"limits", ToJson(swath.allowed)},
          {"nozzles", ToJson(swath.used)},  {"rows", ToJson(swath.rows)}};
}

Json ToJson(const FeedSettings& settings) {
  Json json{{"modeFactor", settings.modeFactor},   {"advances", settings.pattern},
            {"nozzles", ToJson(settings.nozzles)}, {"bopAdvance", settings.bopMove},
            {"bopStart", settings.bopStart},       {"bopZone", settings.bopZone}};
  if (settings.endToEnd) {
    json["endToEnd"] = {{"advances", settings.e2ePattern},
                        {"nozzles", ToJson(settings.e2eNozzles)},
                        {"limits", settings.e2eLimits}};
  }
  return json;
}

Json ToJson(const std::vector<RowRun>& runs) {
  Json json = Json::array();
  for (const RowRun& run : runs) {
    json.push_back({{"first", run.rows.first}, {"last", run.rows.last}, {"count", run.count}});
  }
  return json;
}

}  // namespace

std::string SwathSummary(const SwathPlan& plan) {
  const PrintMode& mode = *plan.mode;
  std::string text = fmt::format(
      "{} (mode {}), {} {}, on {}{}\n"
      "{}: {} nozzles at {} per inch; unit 1/{} inch, {} from nozzle to nozzle\n"
      "sheet of {} rows, printed from {} to {}\n",
      mode.name, static_cast<int>(mode.descriptor), mode.passes,
      mode.passes == 1 ? "pass" : "passes", plan.paper.name,
      plan.settings.endToEnd ? " end to end" : "", Printable(plan.head.name),
      plan.head.nozzlesPerColumn, plan.head.nozzlesPerInch, mode.verticalDpi,
      plan.settings.modeFactor, plan.sheetRows, plan.printable.first, plan.printable.last);
  text += SettingsLines(plan);
  for (const PlanCheck& check : plan.checks) {
    text += fmt::format("{:<6} {}: {}\n", check.passed ? "ok" : "FAULT", check.name, check.detail);
  }
  return text;
}

std::string SwathTable(const SwathPlan& plan) {
  constexpr const char* kLine = "{:>5} {:>8} {:>7}  {:<19} {:>9} {:>9} {:>9} {:>9} {:>13}\n";
  std::string text;
  auto out = std::back_inserter(text);
  fmt::format_to(out, fmt::runtime(kLine), "", "", "", "", "left", "left", "right", "right", "");
  fmt::format_to(out, fmt::runtime(kLine), "swath", "position", "advance", "region", "limits",
                 "used", "limits", "used", "rows");
  int number = 0;
  for (const Swath& swath : plan.swaths) {
    fmt::format_to(out, fmt::runtime(kLine), ++number, swath.position, swath.advance,
                   NameOf(swath.region), RangeText(swath.allowed[0]), RangeText(swath.used[0]),
                   RangeText(swath.allowed[1]), RangeText(swath.used[1]), RangeText(swath.rows));
  }
  return text;
}

std::string SwathCsv(const SwathPlan& plan) {
  std::string text = "swath,position,advance,region";
  for (const char* location : {"left", "right"}) {
    text += fmt::format(",{0}_lowest,{0}_highest,{0}_first_used,{0}_last_used", location);
  }
  text += ",first_row,last_row\n";
  const auto ends = [](const Range& range) {
    return range.Empty() ? std::string(",,") : fmt::format(",{},{}", range.first, range.last);
  };
  int number = 0;
  for (const Swath& swath : plan.swaths) {
    text +=
        fmt::format("{},{},{},{}", ++number, swath.position, swath.advance, NameOf(swath.region));
    for (int location = 0; location < kLocations; ++location) {
      text += ends(swath.allowed[location]) + ends(swath.used[location]);
    }
    text += ends(swath.rows) + "\n";
  }
  return text;
}

std::string SwathJson(const SwathPlan& plan) {
  const PrintMode& mode = *plan.mode;
  Json json{{"mode", static_cast<int>(mode.descriptor)},
            {"modeName", mode.name},
            {"useAlternateModes", plan.useAlternateModes},
            {"passes", mode.passes},
            {"unitsPerInch", mode.verticalDpi},
            {"paper", plan.paper.name},
            {"head", plan.head.name},
            {"nozzlesPerColumn", plan.head.nozzlesPerColumn},
            {"nozzlesPerInch", plan.head.nozzlesPerInch},
            {"sheetRows", plan.sheetRows},
            {"printable", ToJson(plan.printable)},
            {"startPosition", plan.startPosition},
            {"settings", ToJson(plan.settings)},
            {"swaths", Json::array()},
            {"passesOverRows", ToJson(RunsOf(plan.passes, plan.printable))},
            {"nozzlesOverRows", ToJson(RunsOf(plan.nozzlesOver, plan.printable))},
            {"checks", Json::array()},
            {"sound", plan.Sound()}};
  for (const Swath& swath : plan.swaths) json["swaths"].push_back(ToJson(swath));
  for (const PlanCheck& check : plan.checks) {
    json["checks"].push_back(
        {{"name", check.name}, {"passed", check.passed}, {"detail", check.detail}});
  }
  return JsonText(json) + "\n";
}

}  // namespace corvane
