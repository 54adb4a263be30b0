// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "app/commands/job.h"
#include "app/jobs/standing.h"
#include "app/support/interrupt.h"
#include "app/support/json.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/progress.h"

namespace corvane {
namespace {

constexpr std::size_t kMostShown = 20;  // failures
constexpr double kSecondsPerMinute = 60;

std::string Text(const JobStanding& job) {
  std::string text = fmt::format("{:>8} pages\n{:>8} done\n{:>8} failed\n{:>8} missing\n",
                                 job.pages, job.done, job.failed, job.Missing());
  if (!job.hosts.empty()) text += "\n   pages  pages/min  host\n";
  for (const auto& [name, host] : job.hosts) {
    const double rate =
        host.seconds > 0 ? kSecondsPerMinute * static_cast<double>(host.pages) / host.seconds : 0;
    text += fmt::format("{:>8} {:>10.1f}  {}\n", host.pages, rate, Printable(name));
  }
  if (job.failed > 0) text += "\n  failed  reason\n";
  for (std::size_t i = 0; i < std::min(kMostShown, job.failures.size()); ++i) {
    text += fmt::format("{:>8}  {}\n", job.failures[i].page, Printable(job.failures[i].reason));
  }
  if (job.failed > kMostShown) text += fmt::format("     and  {} more\n", job.failed - kMostShown);
  return text;
}

std::string Json(const JobStanding& job) {
  using Json = nlohmann::ordered_json;
  Json hosts = Json::array(), failures = Json::array();
  for (const auto& [name, host] : job.hosts) {
    hosts.push_back({{"host", name}, {"pages", host.pages}, {"seconds", host.seconds}});
  }
  for (const PageFailure& failure : job.failures) {
    failures.push_back(
        {{"page", failure.page}, {"input", failure.input}, {"reason", failure.reason}});
  }
  const Json json = {
      {"pages", job.pages},         {"done", job.done},
      {"fromCache", job.fromCache}, {"failed", job.failed},
      {"missing", job.Missing()},   {"hosts", hosts},
      {"failures", failures},       {"failuresLeftOut", job.failed - job.failures.size()}};
  return JsonText(json) + '\n';
}

// Looks again and again until no page is missing.
JobStanding Watch(const std::string& manifest) {
  constexpr auto kPause = std::chrono::milliseconds(1000);
  constexpr double kSteps = 1e6;  // of the bar
  JobStanding job = StandingOfJob(manifest);
  const double already = job.settledCost;
  const double ahead = std::max(job.cost - already, 1.0);
  Progress progress("printing", static_cast<std::uint64_t>(kSteps), ProgressStyle::Line);
  std::uint64_t shown = 0;
  while (job.Missing() > 0) {
    std::this_thread::sleep_for(kPause);
    ThrowIfInterrupted();
    job = StandingOfJob(manifest);
    const auto now = static_cast<std::uint64_t>(kSteps * (job.settledCost - already) / ahead);
    progress.Advance(now > shown ? now - shown : 0);
    shown = std::max(shown, now);
  }
  return job;
}

}  // namespace

int RunJobStatus(const JobStatusOptions& options) {
  const JobStanding job = options.watch ? Watch(options.manifest) : StandingOfJob(options.manifest);
  WriteStandardOutput(options.json ? Json(job) : Text(job));
  return 0;
}

}  // namespace corvane
