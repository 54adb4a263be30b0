// SPDX-License-Identifier: MIT
//
// Pages that were printed before, by what their bytes depend on.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "app/jobs/manifest.h"
#include "app/jobs/record.h"

namespace corvane {

// A folder of printed pages that several runs, on several machines, may use at a time. A page is
// known by its key and by the very program and plug-in that printed it. Files are linked, not
// copied, where the cache lies on the same file system.
class PageCache {
 public:
  // Makes the folder when it is missing. Throws Failure.
  explicit PageCache(std::filesystem::path folder);

  // Puts the page's files under the names that belong to `output`, which is its printhead data,
  // and returns their digests and ink use. Nothing when the page was not printed before, and when
  // what is kept of it is not what was printed: that is removed.
  std::optional<PageRecord> Take(const JobPage& page, const std::filesystem::path& output) const;

  // Keeps a page that has been printed. A cache that cannot take it is not the page's problem, so
  // nothing is thrown.
  void Keep(const JobPage& page, const std::filesystem::path& output,
            const PageRecord& record) const;

 private:
  std::filesystem::path EntryOf(const JobPage& page) const;

  std::filesystem::path folder_;
  std::string program_;  // digest of the program and the plug-in
};

}  // namespace corvane
