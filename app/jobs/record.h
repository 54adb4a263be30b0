// SPDX-License-Identifier: MIT
//
// What is known of a page of a job that has been printed, or that cannot be: a small JSON file
// beside its output (docs/jobs.md).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "app/jobs/manifest.h"

namespace corvane {

// A file of the page; the name is without its folder.
struct OutputDigest {
  std::string name;
  std::uint64_t bytes = 0;
  std::string sha256;
};

// An ink that the page takes.
struct RecordedInk {
  std::string ink;
  std::uint64_t drops = 0;
  double nanolitres = 0;
};

struct PageRecord {
  std::uint64_t page = 0;  // of the job, from 1
  std::string key;         // KeyOf the page
  std::string failure;     // why the page cannot be printed; empty: it is printed
  std::vector<OutputDigest> files;
  std::vector<RecordedInk> inks;
  std::vector<std::string> remarks;  // on a page that is printed, as of a document's interpreter
  double seconds = 0;                // of computing, at the wall
  std::string host;                  // that printed it
  std::string finished;              // UTC, as 2026-01-31T12:34:56Z
  std::uint64_t reusedRows = 0;      // input rows that were taken over from a page like this
  bool fromCache = false;            // nothing was computed for it
};

std::string ToJson(const PageRecord& record);
// Nothing for what is no record.
std::optional<PageRecord> RecordFromJson(const std::string& text);
std::optional<PageRecord> ReadRecord(const std::filesystem::path& path);

// "day/000001.tif" has the record "day/000001.record.json".
std::filesystem::path RecordPathOf(const std::filesystem::path& output);

enum class PageState { Missing, Done, Failed };

// The state of a page and its record, if it is not missing. A page is done when its record has its
// key and its files are there in the recorded sizes; their bytes are not read.
struct PageStanding {
  PageState state = PageState::Missing;
  PageRecord record;
  bool isOfAnotherJob = false;  // what stands in the place of a page that is missing
};
PageStanding StandingOf(const std::filesystem::path& manifest, const JobPage& page);

// For a new record.
std::string UtcNow();

}  // namespace corvane
