// SPDX-License-Identifier: MIT
//
// The manifest of a job: one JSON object a line, a line a page (docs/jobs.md).
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "app/support/output_stage.h"

namespace corvane {

// Options of `corvane print` by their long names, with what was typed behind them; "true" for an
// option that takes nothing.
using PrintSettings = std::map<std::string, std::string>;

// A page of a job. Paths are as they stand in the manifest: relative to its folder, or absolute.
struct JobPage {
  std::uint64_t number = 0;  // in the job, from 1
  std::string input;
  std::string inputSha256;
  std::uint64_t inputBytes = 0;
  int inputPage = 1;  // of the input, from 1
  PrintSettings settings;
  std::string tagsSha256;        // of the file that the settings name; empty: none
  std::string colorTableSha256;  // of the file that the settings name, or of the program's own
  std::string output;            // the printhead data
  std::string program;           // version that the page is to be printed by
  double cost = 0;               // estimated, in units that only compare pages
};

// Whether a setting of this value names a file: what the file holds counts, not where it lies.
bool NamesFile(const std::string& setting, const std::string& value);

// What the page's bytes depend on, as one digest: equal keys, equal outputs. Not where the input
// and the output lie.
std::string KeyOf(const JobPage& page);

// The same but for the input and the tags: pages with equal keys may be alike in parts.
std::string FormKeyOf(const JobPage& page);

// What the last line says of all pages.
struct JobTotals {
  std::uint64_t pages = 0;
  double cost = 0;
};

// The manifest is written from page to page, so a job of any length takes the same memory.
class ManifestWriter {
 public:
  explicit ManifestWriter(StagedFile& file) : file_(file) {}

  // Throws Failure for a text that is no UTF-8, which JSON cannot hold.
  void Add(const JobPage& page);
  void Finish();

  const JobTotals& Totals() const { return totals_; }

 private:
  StagedFile& file_;
  JobTotals totals_;
};

// Reads a manifest from the first page to the last. Its members throw Failure, naming the line,
// for what is no manifest, for one that is cut short, and for pages out of order.
class ManifestReader {
 public:
  explicit ManifestReader(const std::filesystem::path& path);

  // Of the whole job, from the last line.
  const JobTotals& Totals() const { return totals_; }
  // False behind the last page.
  bool Next(JobPage* page);

 private:
  [[noreturn]] void FailAsNoJob() const;
  [[noreturn]] void Fail(const std::string& what) const;

  std::filesystem::path path_;
  std::ifstream file_;
  std::uint64_t line_ = 0;
  JobTotals totals_;
};

// A path of the manifest, as this process reaches it.
std::filesystem::path ResolvePath(const std::filesystem::path& manifest, const std::string& path);

// A path for the manifest: relative to its folder if it lies in it, so that a job can be moved as
// a whole, else absolute.
std::string PathForManifest(const std::filesystem::path& manifest,
                            const std::filesystem::path& path);

}  // namespace corvane
