// SPDX-License-Identifier: MIT
//
// `corvane job`: pages by the thousand, over cores and machines (docs/jobs.md).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "app/jobs/manifest.h"

namespace corvane {

// Exit statuses of `corvane job run`, beside 0 when all pages of the share are there.
inline constexpr int kPagesFailed = 3;  // some cannot be printed; trying again does not help
inline constexpr int kTryAgain = 75;    // what stopped it may pass: EX_TEMPFAIL

struct JobMakeOptions {
  std::string manifest;
  std::vector<std::string> inputs;  // files, patterns, and "-" for a list on the standard input
  std::string csv;                  // a record a line, its columns named for options; empty: none
  std::string output;               // folder of the pages; empty: named for the manifest
  PrintSettings settings;           // of all pages, unless a record says otherwise
};

struct JobRunOptions {
  std::string manifest;
  int tasks = 0;  // pages at a time; 0: one for each core
  std::optional<int> task, of;
  bool retryFailed = false;
  std::string cache;  // folder; empty: none
  std::string progress = "auto";
  bool quiet = false;
};

struct JobStatusOptions {
  std::string manifest;
  bool json = false;
  bool watch = false;
};

struct JobVerifyOptions {
  std::string manifest;
};

struct JobReportOptions {
  std::string manifest;
  std::string output;
  std::string prices;  // file; empty: ink without its cost
};

// They return the exit status and throw Failure.
int RunJobMake(const JobMakeOptions& options);
int RunJobRun(const JobRunOptions& options);
int RunJobStatus(const JobStatusOptions& options);
int RunJobVerify(const JobVerifyOptions& options);
int RunJobReport(const JobReportOptions& options);

}  // namespace corvane
