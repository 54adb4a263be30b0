// SPDX-License-Identifier: MIT
#include "app/swaths.h"

#include <memory>

#include "app/output_file.h"
#include "app/plugin_library.h"
#include "app/print_mode_name.h"
#include "app/swaths_plan.h"
#include "app/swaths_report.h"

namespace corvane {
namespace {

std::string ReportOf(const SwathPlan& plan, const SwathsOptions& options) {
  if (options.json) return SwathJson(plan);
  if (options.csv) return SwathCsv(plan);
  if (!options.svg.empty() || !options.png.empty()) return SwathSummary(plan);
  return SwathTable(plan) + "\n" + SwathSummary(plan);
}

void WriteWhole(const std::string& path, const std::string& bytes) {
  OutputFile file(path);
  file.Write(bytes);
  file.Commit();
}

}  // namespace

int RunSwaths(const SwathsOptions& options) {
  const PrintMode& mode = PrintModeNamed(options.mode);
  const PaperSize paper = ParsePaperSize(options.paper);
  const Printhead head = options.head.empty() ? Printhead{} : ReadPrinthead(options.head);

  const PluginLibrary library;
  const std::unique_ptr<Movement> movement(
      static_cast<Movement*>(library.CreateObject("CorvaneMovement")));
  const SwathPlan plan = PlanSwaths(*movement, mode, paper, head, options.endToEnd);

  WriteWhole("", ReportOf(plan, options));
  return plan.Sound() ? 0 : 1;
}

}  // namespace corvane
