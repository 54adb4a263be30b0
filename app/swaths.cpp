// SPDX-License-Identifier: MIT
#include "app/swaths.h"

#include <memory>

#include "app/output_file.h"
#include "app/plugin_library.h"
#include "app/print_settings.h"
#include "app/swaths_picture.h"
#include "app/swaths_plan.h"
#include "app/swaths_report.h"

namespace corvane {
namespace {

constexpr int kPngScale = 2;

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

void WritePictures(const SwathPlan& plan, const SwathsOptions& options) {
  if (options.svg.empty() && options.png.empty()) return;
  const Drawing drawing = DrawSwaths(plan);
  if (!options.svg.empty()) WriteWhole(options.svg, ToSvg(drawing));
  if (!options.png.empty()) WriteWhole(options.png, ToPng(drawing, kPngScale));
}

}  // namespace

int RunSwaths(const SwathsOptions& options) {
  const PrintMode& mode = ParsePrintMode(options.mode);
  const PaperSize paper = ParsePaperSize(options.paper);
  CheckOutputNames({options.svg, options.png}, {options.head});
  const Printhead head = options.head.empty() ? Printhead{} : ReadPrinthead(options.head);

  const PluginLibrary library;
  const std::unique_ptr<Movement> movement(
      static_cast<Movement*>(library.CreateObject("CorvaneMovement")));
  SwathPlan plan = PlanSwaths(*movement, mode, paper, head, options.endToEnd);
  plan.useAlternateModes = options.useAlternateModes;

  WritePictures(plan, options);
  WriteStandardOutput(ReportOf(plan, options));
  return plan.Sound() ? 0 : 1;
}

}  // namespace corvane
