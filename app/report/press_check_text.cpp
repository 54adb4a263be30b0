// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "app/report/press_check.h"
#include "app/support/json.h"
#include "app/support/message.h"
#include "app/support/units.h"

namespace corvane {
namespace {

using Json = nlohmann::ordered_json;

std::array<double, 4> Millimetres(const PageWindow& window) {
  return {window.left * kMillimetresPerInch, window.top * kMillimetresPerInch,
          window.width * kMillimetresPerInch, window.height * kMillimetresPerInch};
}

std::string WindowText(const PageWindow& window) {
  return fmt::format("{:.1f}", fmt::join(Millimetres(window), ","));
}

Json ToJson(const PlaneUse& use, bool priced) {
  Json json = {{"name", use.name}, {"drops", use.drops}, {"nanolitres", use.nanolitres}};
  if (priced) json["cost"] = use.cost;
  return json;
}

Json ToJson(const ZoomArea& area, const std::vector<Ink>& inks) {
  Json drops = Json::object();
  for (std::size_t i = 0; i < inks.size(); ++i) {
    drops[kInkNames[static_cast<std::size_t>(inks[i])]] = area.drops[i];
  }
  return {{"name", area.name},
          {"millimetres", Millimetres(area.window)},
          {"drops", drops},
          {"lab", area.lab}};
}

Json ToJson(const DifferenceOver& over) {
  return {{"name", over.name},       {"millimetres", Millimetres(over.window)},
          {"cells", over.cells},     {"mean", over.mean},
          {"most95", over.most95},   {"most", over.most},
          {"clipped", over.clipped}, {"faults", over.faults},
          {"edges", over.edges}};
}

Json ToJson(const FeedCheck& feed) {
  if (!feed.problem.empty()) return {{"problem", feed.problem}};
  Json regions = Json::array(), checks = Json::array();
  for (const FeedRegion& region : feed.regions) {
    regions.push_back({{"region", NameOf(region.region)},
                       {"swaths", region.swaths},
                       {"firstRow", region.rows.first},
                       {"lastRow", region.rows.last}});
  }
  for (const PlanCheck& check : feed.checks) {
    checks.push_back({{"name", check.name}, {"passed", check.passed}, {"detail", check.detail}});
  }
  return {{"sound", feed.sound},
          {"swaths", feed.swaths},
          {"sheetRows", feed.sheetRows},
          {"regions", regions},
          {"checks", checks}};
}

Json LoadJson(const PressCheck& check) {
  const InkLoad& load = check.load;
  return {{"limit", load.limit},
          {"most", load.most},
          {"mostAt", Millimetres(load.mostAt)},
          {"cells", check.cells.grid.Cells()},
          {"cellsPerInch", check.cells.grid.perInch},
          {"cellsAbove", load.cellsAbove}};
}

std::string DifferenceLine(const DifferenceOver& over) {
  return fmt::format(
      "    {:<5} mean {:>5.2f}, 95 % {:>5.2f}, most {:>5.2f}; clipped {}, faults {}\n", over.name,
      over.mean, over.most95, over.most, over.clipped, over.faults);
}

std::string FeedText(const FeedCheck& feed) {
  if (!feed.problem.empty()) return fmt::format("  feed: no plan: {}\n", Printable(feed.problem));
  std::string text =
      fmt::format("  feed: {} swaths, {}\n", feed.swaths, feed.sound ? "sound" : "with FAULTS");
  for (const FeedRegion& region : feed.regions) {
    text += fmt::format("    {:<19} {:>4} swaths, rows {} to {}\n", NameOf(region.region),
                        region.swaths, region.rows.first, region.rows.last);
  }
  for (const PlanCheck& check : feed.checks) {
    if (!check.passed) text += fmt::format("    FAULT {}: {}\n", check.name, check.detail);
  }
  return text;
}

std::string InkText(const PressCheck& check) {
  std::string text;
  const auto line = [&](const PlaneUse& use) {
    text += fmt::format("  {:<8} {:>13} drops {:>11.1f} nl", use.name, use.drops, use.nanolitres);
    if (!check.currency.empty()) {
      text += fmt::format(" {:>10.4f} {}", use.cost, Printable(check.currency));
    }
    text += '\n';
  };
  for (const PlaneUse& use : check.planes) line(use);
  line(check.Total());
  return text;
}

}  // namespace

std::string PressCheckText(const PressCheck& check) {
  const PageShape& page = check.page;
  const InkLoad& load = check.load;
  std::string text =
      fmt::format("{}\n  mode {} {}{}, {} rows at {:g} dpi; {} on {}\n", Printable(check.file),
                  static_cast<int>(page.mode->descriptor), page.mode->name,
                  page.alternateMode == 0 ? "" : fmt::format(" (alternate {})", page.alternateMode),
                  page.rows, page.verticalDpi, Printable(check.inks), Printable(check.medium));
  text += InkText(check);
  text += fmt::format("  ink up to {:.0f} % at {} mm, limit {:.0f} %; {} of {} cells above it\n",
                      load.most * 100, WindowText(load.mostAt), load.limit * 100, load.cellsAbove,
                      check.cells.grid.Cells());
  if (check.wanted) {
    text += fmt::format("  against {} (CIEDE2000)\n", Printable(check.wanted->image));
    text += DifferenceLine(check.wanted->page);
    for (const DifferenceOver& region : check.wanted->regions) text += DifferenceLine(region);
  }
  text += "  worth a look\n";
  for (const ZoomArea& area : check.areas) {
    text += fmt::format("    {:<17} {} mm, Lab {:.1f}\n", area.name, WindowText(area.window),
                        fmt::join(area.lab, " "));
  }
  text += FeedText(check.feed);
  for (const auto& [name, value] : check.facts) {
    text += fmt::format("  {}: {}\n", Printable(name), Printable(value));
  }
  for (const std::string& warning : check.warnings) {
    text += fmt::format("  warning: {}\n", Printable(warning));
  }
  return text;
}

std::string PressCheckJson(const PressCheck& check) {
  const PageShape& page = check.page;
  const bool priced = !check.currency.empty();
  Json planes = Json::array(), areas = Json::array(), facts = Json::object();
  for (const PlaneUse& use : check.planes) planes.push_back(ToJson(use, priced));
  for (const ZoomArea& area : check.areas) areas.push_back(ToJson(area, check.cells.inks));
  for (const auto& [name, value] : check.facts) facts[name] = value;
  Json json = {{"file", check.file},
               {"document", page.title},
               {"mode", static_cast<int>(page.mode->descriptor)},
               {"modeName", page.mode->name},
               {"useAlternateModes", page.alternateMode},
               {"rows", page.rows},
               {"verticalDpi", page.verticalDpi},
               {"inks", check.inks},
               {"medium", check.medium},
               {"planes", planes},
               {"all", ToJson(check.Total(), priced)},
               {"inkLoad", LoadJson(check)},
               {"areas", areas}};
  if (priced) json["currency"] = check.currency;
  if (check.wanted) {
    Json regions = Json::array();
    for (const DifferenceOver& over : check.wanted->regions) regions.push_back(ToJson(over));
    json["against"] = {
        {"image", check.wanted->image}, {"page", ToJson(check.wanted->page)}, {"regions", regions}};
  }
  json["feed"] = ToJson(check.feed);
  json["facts"] = facts;
  json["warnings"] = check.warnings;
  return JsonText(json) + '\n';
}

}  // namespace corvane
