// SPDX-License-Identifier: MIT
#include "app/commands/print_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "app/commands/report.h"
#include "app/image/reader.h"
#include "app/jobs/digest.h"
#include "app/page/settings.h"
#include "app/report/report_page.h"
#include "app/support/failure.h"
#include "app/support/output_stage.h"
#include "app/tables/page_tables.h"

namespace corvane {
namespace {

void Add(ReportOptions& report, const char* name, const std::string& value) {
  if (!value.empty()) report.facts.emplace_back(name, value);
}

// What the image asks for, if it is one: a document, ink planes and several pages on a sheet have
// no colours to hold the print against, and overspray widens the rows.
void AddImage(const PrintOptions& options, const PlannedPage& planned, const PrintedPage& page,
              ReportOptions& report) {
  for (const auto& [image, number] : page.cells) {
    Add(report, "image", fmt::format("{}, page {}", image, number + 1));
  }
  if (!page.cells.empty()) return;
  Add(report, "image", fmt::format("{}, page {}", page.image, page.page + 1));
  const bool isGone = planned.isStandardInput;
  if (options.separations || isGone) return;
  if (planned.document) {
    Add(report, "image profile", "of the document's interpreter");
    return;
  }
  const ImageInfo info = OpenImage(planned.job.image, page.page)->Info();
  Add(report, "image profile",
      info.profile.empty() ? std::string("none")
                           : fmt::format("embedded, {} bytes", info.profile.size()));
  if (!options.overspray.empty()) return;
  report.against = planned.job.image;
  report.againstName = page.image;
  report.againstPage = page.page + 1;
  report.placing = options.placing;
  const PageSettings& settings = planned.job.settings;
  report.againstDpi = std::max(settings.horizontalDpi, settings.verticalDpi);
}

void AddPlacing(const PrintOptions& options, const PageJob& job, ReportOptions& report) {
  Add(report, "paper", fmt::format("{:.5g} x {:.5g} mm", job.paper.widthMm, job.paper.heightMm));
  if (options.separations) return;
  const PlacingOptions& placing = options.placing;
  const Margins& margins = job.placing.margins;
  Add(report, "scale",
      placing.scalePercent == 0 ? "fit" : fmt::format("{:g} %", placing.scalePercent));
  Add(report, "margins",
      fmt::format("{:g}, {:g}, {:g}, {:g} mm", margins.left, margins.top, margins.right,
                  margins.bottom));
  Add(report, "rotate", placing.rotation);
  Add(report, "position", placing.position);
  Add(report, "pages on the sheet", options.nup);
}

// What the page was printed with, typed or not.
void AddSettings(const PrintOptions& options, const PageJob& job, ReportOptions& report) {
  const PageSettings& settings = job.settings;
  Add(report, "media", SettingText(kMediaType, settings.mediaType));
  if (!options.separations) {
    const std::string table = FindColorTable(options.colorTable);
    Add(report, "colour table", table);
    Add(report, "its SHA-256", DigestOfFile(table).sha256);
    Add(report, "quality", SettingText(kPrintQuality, settings.printQuality));
    Add(report, "intent", SettingText(kPageIntent, settings.pageIntent));
    Add(report, "preference", SettingText(kColorPreference, settings.colorPreference));
    Add(report, "paper characteristics",
        SettingText(kPaperCharacteristics, settings.paperCharacteristics));
    Add(report, "tags", options.tags);
  }
  Add(report, "resolution",
      fmt::format("{} x {} dpi", settings.horizontalDpi, settings.verticalDpi));
  Add(report, "overspray",
      fmt::format("{}, {} pixels", settings.leftOverspray, settings.rightOverspray));
  AddPlacing(options, job, report);
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

void WriteReport(const PrintOptions& options, const PlannedPage& planned, const PrintedPage& page,
                 const StagedFile& data, StagedFile& report) {
  ReportOptions made;
  made.media = options.media;
  made.inks = options.preview.inks;
  made.warnings = page.remarks;
  AddImage(options, planned, page, made);
  AddSettings(options, planned.job, made);
  ReportOn(made, data, report);
}

}  // namespace corvane
