// SPDX-License-Identifier: MIT
#include "app/commands/swaths.h"

#include <memory>

#include "app/chain/plugin_library.h"
#include "app/page/settings.h"
#include "app/paperfeed/picture.h"
#include "app/paperfeed/plan.h"
#include "app/paperfeed/report.h"
#include "app/support/output_stage.h"

namespace corvane {
namespace {

constexpr int kPngScale = 2;

std::string ReportOf(const SwathPlan& plan, const SwathsOptions& options) {
  if (options.json) return SwathJson(plan);
  if (options.csv) return SwathCsv(plan);
  if (!options.svg.empty() || !options.png.empty()) return SwathSummary(plan);
  return SwathTable(plan) + "\n" + SwathSummary(plan);
}

void WritePictures(const SwathPlan& plan, const SwathsOptions& options) {
  if (options.svg.empty() && options.png.empty()) return;
  const Drawing drawing = DrawSwaths(plan);
  OutputStage stage;
  if (!options.svg.empty()) stage.CreateStream(options.svg).Append(ToSvg(drawing));
  if (!options.png.empty()) stage.CreateStream(options.png).Append(ToPng(drawing, kPngScale));
  stage.Commit();
}

}  // namespace

int RunSwaths(const SwathsOptions& options) {
  const PrintMode& mode = ParsePrintMode(options.mode);
  const PaperSize paper = ParsePaperSize(options.paper);
  CheckOutputNames({options.svg, options.png}, {options.head});
  CheckEnding(options.svg, kSvgEndings);
  CheckEnding(options.png, kPngEndings);
  const Printhead head = options.head.empty() ? Printhead{} : ReadPrinthead(options.head);

  const PluginLibrary library;
  const std::unique_ptr<Movement> movement(
      static_cast<Movement*>(library.CreateObject("CorvaneMovement")));
  SwathPlan plan = PlanSwaths(*movement, mode, paper, head, options.endToEnd);
  plan.useAlternateModes = options.useAlternateModes;

  WritePictures(plan, options);
  const std::string report = ReportOf(plan, options);
  WriteReportBeside(IsStandardOutput(options.svg) || IsStandardOutput(options.png), options.json,
                    report);
  return plan.Sound() ? 0 : 1;
}

}  // namespace corvane
