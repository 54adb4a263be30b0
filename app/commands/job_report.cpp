// SPDX-License-Identifier: MIT
#include "app/commands/job.h"
#include "app/jobs/report.h"
#include "app/support/output_stage.h"

namespace corvane {

int RunJobReport(const JobReportOptions& options) {
  const InkPrices prices = options.prices.empty() ? InkPrices() : ReadInkPrices(options.prices);
  CheckOutputNames({options.output}, {options.manifest, options.prices});
  OutputStage stage;
  WriteJobReport(options.manifest, prices, stage.CreateStream(options.output));
  stage.Commit();
  return 0;
}

}  // namespace corvane
