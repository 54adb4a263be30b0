// SPDX-License-Identifier: MIT
//
// The jobs in a printer's folder, as their job.json tells of them.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// The picture of a job's first sheet, in the job's folder.
inline constexpr char kThumbnailFile[] = "preview.png";

struct PrintedJob {
  std::string folder;  // its name
  int number = 0;
  std::string state;        // "processing", "completed", "canceled" or "aborted"
  std::string reason;       // why it is not completed; may be empty
  std::string name, user;   // a stranger's words
  std::string mode, media;  // empty where it was refused for what it asked for
  int sheets = 0;
  bool hasThumbnail = false;
};

// The last jobs of the printer of that name, at most `most`, the newest first. Folders without a
// readable job.json are left out.
std::vector<PrintedJob> LastJobs(const std::filesystem::path& folder, const std::string& printer,
                                 std::size_t most);

// Of the last jobs of that printer which job.json tells to be printed, ends those that are not
// waited for, as "aborted": the server has ended with them.
void EndInterruptedJobs(const std::filesystem::path& folder, const std::string& printer,
                        const std::function<bool(int job)>& isWaiting);

// Whether this is how job folders are named.
bool IsJobFolder(std::string_view name);

// What a page shows of the jobs, as HTML. `thumbnails` is the address of a picture, which the name
// of a job's folder is added to.
std::string JobsAsHtml(const std::vector<PrintedJob>& jobs, const std::string& thumbnails);

}  // namespace corvane
