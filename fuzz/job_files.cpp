// SPDX-License-Identifier: MIT
//
// What jobs are read from: manifests, tables of pages, and records.
#include <sstream>

#include "app/commands/print_settings.h"
#include "app/jobs/csv.h"
#include "app/jobs/manifest.h"
#include "app/jobs/record.h"
#include "fuzz/fuzz.h"

namespace {

using namespace corvane;

void ReadManifest(const std::string& path) {
  ManifestReader manifest(path);
  JobPage page;
  std::uint64_t pages = 0;
  while (manifest.Next(&page)) {
    FUZZ_EXPECT(page.number == ++pages);
    FUZZ_EXPECT(KeyOf(page).size() == 64);
    fuzz::Succeeds([&] { PrintOptionsFrom(page.settings); });
  }
  FUZZ_EXPECT(pages == manifest.Totals().pages);
}

void ReadTable(const std::string& text) {
  std::istringstream stream(text);
  CsvReader table(stream, "table");
  std::vector<std::string> cells;
  while (table.Next(&cells)) FUZZ_EXPECT(cells.size() == table.Columns().size());
}

}  // namespace

FUZZ_TARGET(job_files, input) {
  const std::string path = fuzz::FileOf(input), text(fuzz::TextOf(input));
  fuzz::Succeeds([&] { ReadManifest(path); });
  fuzz::Succeeds([&] { ReadTable(text); });
  if (const auto record = RecordFromJson(text)) FUZZ_EXPECT(RecordFromJson(ToJson(*record)));
}
