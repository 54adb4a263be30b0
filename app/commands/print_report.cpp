// SPDX-License-Identifier: MIT
#include "app/commands/print_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "app/support/json.h"
#include "app/support/message.h"

namespace corvane {
namespace {

using Json = nlohmann::ordered_json;

std::uint64_t RowsOf(const PrintReport& report) {
  std::uint64_t rows = 0;
  for (const PrintedPage& page : report.pages) rows += page.shape.rows;
  return rows;
}

double RowsPerSecond(const PrintReport& report) {
  return report.seconds > 0 ? static_cast<double>(RowsOf(report)) / report.seconds : 0;
}

// 1234567 as "1 234 567".
std::string Grouped(std::uint64_t number) {
  const std::string digits = std::to_string(number);
  std::string text;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) text += ' ';
    text += digits[i];
  }
  return text;
}

std::string PageText(const PrintedPage& page) {
  const PageShape& shape = page.shape;
  std::string text = fmt::format(
      "{}\n  mode {} {}{}: {} x {} pixels at {:.0f} x {:.0f} dpi, {} {}\n",
      Printable(fmt::format("{}", fmt::join(page.files, ", "))),
      static_cast<int>(shape.mode->descriptor), shape.mode->name,
      shape.alternateMode == 0 ? "" : fmt::format(" (alternate {})", shape.alternateMode),
      shape.planes[0].width, shape.rows, shape.planes[0].horizontalDpi, shape.verticalDpi,
      shape.planes.size(), shape.planes.size() == 1 ? "plane" : "planes");
  double total = 0;
  for (const InkUse& use : page.inkUse) {
    total += use.nanolitres;
    text += fmt::format("  {:<2} {:>13} drops {:>7.2f} % {:>10.1f} nl\n",
                        kInkNames[static_cast<int>(use.ink)], Grouped(use.drops), use.percent,
                        use.nanolitres);
  }
  text += fmt::format("  ink in all {:.1f} nl\n", total);
  if (!page.note.empty()) text += fmt::format("  preview: {}\n", Printable(page.note));
  return text;
}

Json PageJson(const PrintedPage& page) {
  Json planes = Json::array(), drops = Json::object(), inks = Json::object();
  for (const PlaneShape& plane : page.shape.planes) {
    planes.push_back(
        {{"name", plane.name}, {"width", plane.width}, {"horizontalDpi", plane.horizontalDpi}});
  }
  for (const InkUse& use : page.inkUse) {
    const char* ink = kInkNames[static_cast<int>(use.ink)];
    drops[ink] = use.drops;
    inks[ink] = {{"drops", use.drops}, {"percent", use.percent}, {"nanolitres", use.nanolitres}};
  }
  Json json = {{"image", page.image},
               {"page", page.page + 1},
               {"copy", page.copy},
               {"copies", page.copies},
               {"files", page.files},
               {"mode", static_cast<int>(page.shape.mode->descriptor)},
               {"modeName", page.shape.mode->name},
               {"useAlternateModes", page.shape.alternateMode},
               {"rows", page.shape.rows},
               {"verticalDpi", page.shape.verticalDpi},
               {"planes", planes},
               {"drops", drops},
               {"inks", inks}};
  if (!page.cells.empty()) {
    Json cells = Json::array();
    for (const auto& [image, number] : page.cells) {
      cells.push_back({{"image", image}, {"page", number + 1}});
    }
    json["cells"] = std::move(cells);
  }
  return json;
}

}  // namespace

std::string ReportText(const PrintReport& report) {
  std::string text;
  for (const PrintedPage& page : report.pages) text += PageText(page);
  constexpr double kMebibyte = 1 << 20;
  return text + fmt::format("{} {} in {:.2f} s, {:.0f} rows/s, peak memory {:.0f} MiB\n",
                            report.pages.size(), report.pages.size() == 1 ? "page" : "pages",
                            report.seconds, RowsPerSecond(report),
                            static_cast<double>(report.peakMemoryBytes) / kMebibyte);
}

void WriteReportJson(const PrintReport& report,
                     const std::function<void(std::string_view text)>& write) {
  write("{\n  \"pages\": [");
  const char* separator = "\n    ";
  for (const PrintedPage& page : report.pages) {
    write(separator + JsonText(PageJson(page), -1));
    separator = ",\n    ";
  }
  Json failures = Json::array();
  for (const FailedPage& page : report.failures) {
    failures.push_back({{"image", page.image}, {"page", page.page + 1}, {"reason", page.reason}});
  }
  Json rest = {{"failures", failures},
               {"seconds", report.seconds},
               {"rowsPerSecond", RowsPerSecond(report)},
               {"peakMemoryBytes", report.peakMemoryBytes}};
  if (!report.remarks.empty()) rest["remarks"] = report.remarks;
  if (report.sandboxed) rest["renderer"] = {{"sandboxed", *report.sandboxed}};
  write("\n  ],");
  write(JsonText(rest).substr(1) + '\n');
}

}  // namespace corvane
