// SPDX-License-Identifier: MIT
#include "app/commands/compare.h"

#include <fmt/format.h>

#include <cstddef>

#include "app/output/separations.h"
#include "app/page/settings.h"
#include "app/report/difference.h"
#include "app/report/press_check.h"
#include "app/report/report_page.h"
#include "app/support/failure.h"
#include "app/support/output_stage.h"

namespace corvane {
namespace {

constexpr std::size_t kShownRegions = 8;

// Both prints with the places that differ most, for the eye.
void WritePage(const CompareOptions& options, SeparationReader& first, SeparationReader& second,
               const PrintComparison& comparison, const InkData& inks, int media) {
  const PageShape& page = first.Shape();
  const CellColours colours(inks, media, *page.mode);
  PressCheckSettings settings;
  settings.inks = inks;
  settings.media = media;
  settings.picksAreas = false;
  for (const DifferentRegion& region : comparison.regions) {
    if (settings.zoomAreas.size() == kShownRegions) break;
    settings.zoomAreas.push_back({fmt::format("difference {}", settings.zoomAreas.size() + 1),
                                  AreaAround(page, region.window)});
  }
  PressCheck check = CheckPrint(first, options.first, settings, colours, nullptr);
  check.feed.problem = "prints are compared, not fed";
  const PressCheck other = CheckPrint(second, options.second, settings, colours, nullptr);
  WriteOutput(options.output, ComparisonPage(comparison, check, other, colours, inks, media));
}

int Compare(const CompareOptions& options) {
  CheckOutputNames({options.output}, {options.first, options.second, options.inks});
  CheckEnding(options.output, kHtmlEndings);
  const InkData inks = InksFrom(options.inks);
  const int typed = SettingValueOr(kMediaType, options.media, 0);
  SeparationReader first(options.first), second(options.second);
  const int media = (typed != 0 ? typed : first.Shape().mediaType) - 1;
  const PrintComparison comparison = ComparePrints(first, second, inks, media);
  if (!options.quiet || options.json) {
    WriteReportBeside(IsStandardOutput(options.output), options.json,
                      options.json ? ComparisonJson(comparison, options.first, options.second)
                                   : ComparisonText(comparison, options.first, options.second));
  }
  if (comparison.Equal()) return 0;
  if (!options.output.empty() && comparison.otherForm.empty()) {
    WritePage(options, first, second, comparison, inks, media);
  }
  return 1;
}

}  // namespace

int RunCompare(const CompareOptions& options) {
  try {
    return NamingMemory(options.first, [&] { return Compare(options); });
  } catch (const Failure& failure) {
    throw UsageFailure(failure.what());
  }
}

}  // namespace corvane
