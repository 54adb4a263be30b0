// SPDX-License-Identifier: MIT
#include "app/jobs/report.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "app/support/failure.h"
#include "app/support/json.h"
#include "app/support/markup.h"
#include "printmode/print_mode.h"

namespace corvane {
namespace {

constexpr double kNanolitresPerMillilitre = 1e6;
constexpr double kNanolitresPerLitre = 1e9;
constexpr double kSecondsPerMinute = 60;

constexpr std::string_view kHead = R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><title>{0}</title><style>
body {{ font: 15px/1.45 system-ui, sans-serif; margin: 2em auto; max-width: 60em; padding: 0 1em; }}
table {{ border-collapse: collapse; margin: 0.5em 0 2em; }}
th, td {{ padding: 0.2em 0.9em; text-align: right; border-bottom: 1px solid #ddd; }}
th:first-child, td:first-child, .text {{ text-align: left; }}
</style></head><body>
<h1>{0}</h1>
)";

// A table that is written row by row.
class HtmlTable {
 public:
  HtmlTable(StagedFile& file, std::string_view title, const std::vector<std::string>& columns)
      : file_(file) {
    file_.Append(fmt::format("<h2>{}</h2>\n<table><tr>", title));
    for (const std::string& column : columns) file_.Append("<th>" + MarkupText(column) + "</th>");
    file_.Append("</tr>\n");
  }

  void Row(const std::vector<std::string>& cells) {
    std::string row = "<tr>";
    for (const std::string& cell : cells) row += "<td>" + MarkupText(cell) + "</td>";
    file_.Append(row + "</tr>\n");
  }

  void Finish() { file_.Append("</table>\n"); }

 private:
  StagedFile& file_;
};

struct Totals {
  JobStanding job;
  std::map<std::string, RecordedInk> inks;
  double seconds = 0;
};

Totals TotalsOf(const std::filesystem::path& manifest) {
  Totals totals;
  ForEachStanding(manifest, [&](const JobPage& page, const PageStanding& standing) {
    totals.job.Add(page, standing);
    if (standing.state != PageState::Done) return;
    totals.seconds += standing.record.seconds;
    for (const RecordedInk& ink : standing.record.inks) {
      RecordedInk& total = totals.inks[ink.ink];
      total.ink = ink.ink;
      total.drops += ink.drops;
      total.nanolitres += ink.nanolitres;
    }
  });
  return totals;
}

void WriteSummary(const Totals& totals, StagedFile& file) {
  const JobStanding& job = totals.job;
  HtmlTable table(file, "Pages", {"In all", "Printed", "From the cache", "Failed", "Missing"});
  table.Row({fmt::to_string(job.pages), fmt::to_string(job.done), fmt::to_string(job.fromCache),
             fmt::to_string(job.failed), fmt::to_string(job.Missing())});
  table.Finish();
}

void WriteInks(const Totals& totals, const InkPrices& prices, StagedFile& file) {
  std::vector<std::string> columns = {"Ink", "Drops", "ml"};
  if (prices.Known()) columns.push_back(prices.currency);
  HtmlTable table(file, "Ink", columns);
  double millilitres = 0, cost = 0;
  const auto row = [&](const std::string& name, const std::string& drops, double volume,
                       double price) {
    std::vector<std::string> cells = {name, drops, fmt::format("{:.3f}", volume)};
    if (prices.Known()) cells.push_back(fmt::format("{:.2f}", price));
    table.Row(cells);
  };
  for (const auto& [name, ink] : totals.inks) {
    const double volume = ink.nanolitres / kNanolitresPerMillilitre;
    row(name, fmt::to_string(ink.drops), volume, prices.Of(ink));
    millilitres += volume;
    cost += prices.Of(ink);
  }
  row("All", "", millilitres, cost);
  table.Finish();
}

void WriteHosts(const Totals& totals, StagedFile& file) {
  HtmlTable table(file, "Hosts", {"Host", "Pages", "Seconds", "Pages a minute on a core"});
  for (const auto& [name, host] : totals.job.hosts) {
    const double rate =
        host.seconds > 0 ? kSecondsPerMinute * static_cast<double>(host.pages) / host.seconds : 0;
    table.Row({name, fmt::to_string(host.pages), fmt::format("{:.1f}", host.seconds),
               fmt::format("{:.1f}", rate)});
  }
  table.Finish();
}

void WriteFailures(const Totals& totals, StagedFile& file) {
  if (totals.job.failed == 0) return;
  HtmlTable table(file, "Failures", {"Page", "Input", "Reason"});
  for (const PageFailure& failure : totals.job.failures) {
    table.Row({fmt::to_string(failure.page), failure.input, failure.reason});
  }
  const std::uint64_t more = totals.job.failed - totals.job.failures.size();
  if (more > 0) table.Row({"", "", fmt::format("and {} more", more)});
  table.Finish();
}

const char* NameOf(PageState state) {
  switch (state) {
    case PageState::Done:
      return "printed";
    case PageState::Failed:
      return "failed";
    default:
      return "missing";
  }
}

void WritePages(const std::filesystem::path& manifest, const InkPrices& prices, StagedFile& file) {
  std::vector<std::string> columns = {"Page", "Input", "Of it", "State", "Host", "Seconds", "ml"};
  if (prices.Known()) columns.push_back(prices.currency);
  HtmlTable table(file, "Every page", columns);
  ForEachStanding(manifest, [&](const JobPage& page, const PageStanding& standing) {
    const PageRecord& record = standing.record;
    double nanolitres = 0, cost = 0;
    for (const RecordedInk& ink : record.inks) {
      nanolitres += ink.nanolitres;
      cost += prices.Of(ink);
    }
    std::vector<std::string> cells = {fmt::to_string(page.number),
                                      page.input,
                                      fmt::to_string(page.inputPage),
                                      NameOf(standing.state),
                                      record.host,
                                      fmt::format("{:.2f}", record.seconds),
                                      fmt::format("{:.3f}", nanolitres / kNanolitresPerMillilitre)};
    if (prices.Known()) cells.push_back(fmt::format("{:.4f}", cost));
    table.Row(cells);
  });
  table.Finish();
}

}  // namespace

double InkPrices::Of(const RecordedInk& ink) const {
  const auto price = perLitre.find(ink.ink);
  return price == perLitre.end() ? 0 : price->second * ink.nanolitres / kNanolitresPerLitre;
}

InkPrices ReadInkPrices(const std::filesystem::path& path) {
  const nlohmann::json json = ReadJsonFile(path);
  try {
    InkPrices prices;
    json.at("currency").get_to(prices.currency);
    json.at("perLitre").get_to(prices.perLitre);
    for (const auto& [ink, price] : prices.perLitre) {
      if (!FindInk(ink)) throw Failure(fmt::format("{}: {} is no ink", path.string(), ink));
      if (!(price >= 0)) {
        throw Failure(fmt::format("{}: the price of {} is less than nothing", path.string(), ink));
      }
    }
    return prices;
  } catch (const nlohmann::json::exception&) {
    throw Failure(path.string() + ": is no list of ink prices");
  }
}

void WriteJobReport(const std::filesystem::path& manifest, const InkPrices& prices,
                    StagedFile& file) {
  const Totals totals = TotalsOf(manifest);
  file.Append(fmt::format(kHead, MarkupText(manifest.filename().string())));
  WriteSummary(totals, file);
  WriteInks(totals, prices, file);
  WriteHosts(totals, file);
  WriteFailures(totals, file);
  WritePages(manifest, prices, file);
  file.Append("</body></html>\n");
}

}  // namespace corvane
