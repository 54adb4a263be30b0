// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "app/jobs/record.h"

namespace corvane {

// What a host has printed of a job; pages from the cache, which take it no time, are none.
struct HostUse {
  std::uint64_t pages = 0;
  double seconds = 0;  // of all pages, one after the other
};

// A page that cannot be printed.
struct PageFailure {
  std::uint64_t page = 0;  // of the job, from 1
  std::string input;
  std::string reason;
};

// How far a job is.
struct JobStanding {
  std::uint64_t pages = 0, done = 0, failed = 0, fromCache = 0;
  double cost = 0, settledCost = 0;  // of all pages, and of those done or failed
  std::map<std::string, HostUse> hosts;
  std::vector<PageFailure> failures;  // the first ones; `failed` counts all

  std::uint64_t Missing() const { return pages - done - failed; }

  void Add(const JobPage& page, const PageStanding& standing);
};

// Looks at the records of all pages, in order. Throws Failure.
using StandingReceiver = std::function<void(const JobPage& page, const PageStanding& standing)>;
void ForEachStanding(const std::filesystem::path& manifest, const StandingReceiver& receiver);

JobStanding StandingOfJob(const std::filesystem::path& manifest);

}  // namespace corvane
