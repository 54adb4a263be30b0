// SPDX-License-Identifier: MIT
#include "app/jobs/standing.h"

#include "app/support/interrupt.h"

namespace corvane {

void JobStanding::Add(const JobPage& page, const PageStanding& standing) {
  constexpr std::size_t kMostFailures = 1000;
  ++pages;
  cost += page.cost;
  if (standing.state == PageState::Missing) return;
  settledCost += page.cost;
  const PageRecord& record = standing.record;
  if (standing.state == PageState::Failed) {
    ++failed;
    if (failures.size() < kMostFailures) {
      failures.push_back({page.number, page.input, record.failure});
    }
    return;
  }
  ++done;
  if (record.fromCache) {
    ++fromCache;
    return;
  }
  HostUse& host = hosts[record.host];
  ++host.pages;
  host.seconds += record.seconds;
}

void ForEachStanding(const std::filesystem::path& manifest, const StandingReceiver& receiver) {
  ManifestReader reader(manifest);
  for (JobPage page; reader.Next(&page);) {
    ThrowIfInterrupted();
    receiver(page, StandingOf(manifest, page));
  }
}

JobStanding StandingOfJob(const std::filesystem::path& manifest) {
  JobStanding job;
  ForEachStanding(manifest, [&](const JobPage& page, const PageStanding& standing) {
    job.Add(page, standing);
  });
  return job;
}

}  // namespace corvane
