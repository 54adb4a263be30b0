// SPDX-License-Identifier: MIT
//
// Which pages of a job a task prints: the pages are cut into stretches of equal estimated cost.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "app/jobs/manifest.h"

namespace corvane {

// Task `task`, from 0, of `of`.
struct Share {
  int task = 0;
  int of = 1;
};

// Reads an environment variable; null when it is not set.
using Environment = std::function<const char*(const char* name)>;

// The share of a task: what is given, else what the environment of an array's task says: that of
// Slurm, of a Kubernetes indexed job or of AWS Batch; all pages without any. `of` alone takes the
// task from the environment and not its count, which a Kubernetes job does not tell and which
// Slurm tells wrong when only some tasks are submitted again. Throws UsageFailure.
Share ShareFrom(std::optional<int> task, std::optional<int> of, const Environment& environment);

// Tells page after page whether it belongs to a share. A page belongs where the middle of its cost
// lies, so two shares differ by no more than the dearest page's cost, and every page belongs to
// one.
class ShareOfPages {
 public:
  ShareOfPages(const Share& share, const JobTotals& totals) : share_(share), totals_(totals) {}

  // To be asked for all pages of the job, in order.
  bool Has(const JobPage& page);

 private:
  Share share_;
  JobTotals totals_;
  double before_ = 0;  // cost of the pages before
};

// Pages that this process may well print at a time: the cores that it may run on, fewer where a
// cluster or a container gives it fewer.
int UsableCores(const Environment& environment);

}  // namespace corvane
