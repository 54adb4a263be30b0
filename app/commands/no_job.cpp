// SPDX-License-Identifier: MIT
//
// For systems on which nobody has tried runs that share the pages of a job.
#include "app/commands/job.h"
#include "app/support/failure.h"

namespace corvane {
namespace {

[[noreturn]] void Refuse() {
  throw Failure("job: does not run on this system; print prints several pages");
}

}  // namespace

int RunJobMake(const JobMakeOptions&) { Refuse(); }

int RunJobRun(const JobRunOptions&) { Refuse(); }

int RunJobStatus(const JobStatusOptions&) { Refuse(); }

int RunJobVerify(const JobVerifyOptions&) { Refuse(); }

int RunJobReport(const JobReportOptions&) { Refuse(); }

}  // namespace corvane
