// SPDX-License-Identifier: MIT
#include <filesystem>

#include "app/commands/job.h"
#include "app/jobs/record.h"
#include "app/jobs/report.h"
#include "app/report/report_page.h"
#include "app/support/output_stage.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

// Page by page, as the report is written: a job may have any number.
void CheckNoFileOfJob(const JobReportOptions& options) {
  ManifestReader reader(options.manifest);
  for (JobPage page; reader.Next(&page);) {
    const fs::path output = ResolvePath(options.manifest, page.output);
    CheckOutputNames({options.output},
                     {ResolvePath(options.manifest, page.input), output, RecordPathOf(output)});
  }
}

}  // namespace

int RunJobReport(const JobReportOptions& options) {
  const InkPrices prices = options.prices.empty() ? InkPrices() : ReadInkPrices(options.prices);
  CheckOutputNames({options.output}, {options.manifest, options.prices});
  CheckEnding(options.output, kHtmlEndings);
  CheckNoFileOfJob(options);
  OutputStage stage;
  WriteJobReport(options.manifest, prices, stage.CreateStream(options.output));
  stage.Commit();
  return 0;
}

}  // namespace corvane
