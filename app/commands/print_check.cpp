// SPDX-License-Identifier: MIT
#include "app/commands/print_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "app/commands/report.h"
#include "app/commands/standard_input.h"
#include "app/image/kind.h"
#include "app/image/reader.h"
#include "app/jobs/digest.h"
#include "app/report/report_page.h"
#include "app/support/failure.h"
#include "app/support/output_stage.h"
#include "app/tables/page_tables.h"

namespace corvane {
namespace {

void Add(ReportOptions& report, const char* name, const std::string& value) {
  if (!value.empty()) report.facts.emplace_back(name, value);
}

bool ReadsStandardInput(const PrintOptions& options) {
  return std::ranges::find(options.inputs, StandardInput::kArgument) != options.inputs.end();
}

// What the image asks for, if it is one: a document, ink planes and several pages on a sheet have
// no colours to hold the print against, and overspray widens the rows.
void AddImage(const PrintOptions& options, const PrintedPage& page, ReportOptions& report) {
  for (const auto& [image, number] : page.cells) {
    Add(report, "image", fmt::format("{}, page {}", image, number + 1));
  }
  if (!page.cells.empty()) return;
  Add(report, "image", fmt::format("{}, page {}", page.image, page.page + 1));
  const bool isGone = page.image == StandardInput::kName && ReadsStandardInput(options);
  if (options.separations || isGone) return;
  if (IsDocument(KindOfFile(page.image))) {
    Add(report, "image profile", "of the document's interpreter");
    return;
  }
  const ImageInfo info = OpenImage(page.image, page.page)->Info();
  Add(report, "image profile",
      info.profile.empty() ? std::string("none")
                           : fmt::format("embedded, {} bytes", info.profile.size()));
  if (!options.overspray.empty()) return;
  report.against = page.image;
  report.againstPage = page.page + 1;
  report.placing = options.placing;
  const PageSettings settings = PageSettingsFrom(options);
  report.againstDpi = std::max(settings.horizontalDpi, settings.verticalDpi);
}

void AddSettings(const PrintOptions& options, ReportOptions& report) {
  if (!options.separations) {
    const std::string table = FindColorTable(options.colorTable);
    Add(report, "colour table", table);
    Add(report, "its SHA-256", DigestOfFile(table).sha256);
  }
  Add(report, "media", options.media);
  Add(report, "quality", options.quality);
  Add(report, "intent", options.intent);
  Add(report, "preference", options.preference);
  Add(report, "paper characteristics", options.paperCharacteristics);
  Add(report, "tags", options.tags);
  Add(report, "program", "Corvane " CORVANE_VERSION);
}

}  // namespace

void CheckReportOptions(const PrintOptions& options) {
  if (options.report.empty()) return;
  if (options.format != "tiff" || IsPipeOrDevice(options.output)) {
    throw UsageFailure("--report needs TIFF files to read back");
  }
  CheckEnding(options.report, kHtmlEndings);
}

void WriteReport(const PrintOptions& options, const PrintedPage& page,
                 const std::vector<std::string>& warnings, const StagedFile& data,
                 StagedFile& report) {
  ReportOptions made;
  made.media = options.media;
  made.inks = options.preview.inks;
  made.warnings = warnings;
  AddImage(options, page, made);
  AddSettings(options, made);
  ReportOn(made, data, report);
}

}  // namespace corvane
