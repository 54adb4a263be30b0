// SPDX-License-Identifier: MIT
#include "app/printer/printed_jobs.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "app/support/failure.h"
#include "app/support/json.h"
#include "app/support/markup.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kJobPrefix = "job-";

// By when something was last put into them, the newest first.
std::vector<fs::path> JobFolders(const fs::path& folder) {
  std::vector<std::pair<fs::file_time_type, fs::path>> found;
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    if (!IsJobFolder(at->path().filename().string())) continue;
    std::error_code gone;
    const fs::file_time_type changed = fs::last_write_time(at->path(), gone);
    if (!gone) found.emplace_back(changed, at->path());
  }
  std::ranges::sort(found, std::greater<>());
  std::vector<fs::path> folders;
  for (auto& [changed, path] : found) folders.push_back(std::move(path));
  return folders;
}

PrintedJob JobFrom(const nlohmann::json& told, const fs::path& folder) {
  const nlohmann::json& asked = told.at("asked");
  PrintedJob job;
  job.folder = folder.filename().string();
  TakeWholeNumber(told, "job", &job.number);
  job.state = told.at("state");
  job.reason = told.value("reason", "");
  job.name = asked.at("name");
  job.user = asked.at("user");
  if (told.contains("converted")) {
    job.media = told["converted"].at("media");
    job.mode = std::to_string(told["converted"].at("mode").get<int>());
  }
  job.sheets = static_cast<int>(told.at("sheets").size());
  std::error_code ignored;
  job.hasThumbnail = fs::is_regular_file(folder / kThumbnailFile, ignored);
  return job;
}

std::string JobAsHtml(const PrintedJob& job, const std::string& thumbnails) {
  const std::string picture =
      job.hasThumbnail ? fmt::format(
                             "<a href=\"{0}{1}\"><img src=\"{0}{1}\" alt=\"first sheet\" "
                             "style=\"max-width:120px;max-height:120px;border:1px solid "
                             "#999\"></a>",
                             MarkupText(thumbnails), MarkupText(job.folder))
                       : "";
  // They are told of at the end.
  const std::string sheets = job.state == "processing" ? "" : std::to_string(job.sheets);
  return fmt::format(
      "<tr><td>{}</td><td>{}</td><td>{}<br>{}</td><td>{}{}{}</td><td>{}</td><td>{}<br>{}</td>"
      "<td>{}</td></tr>\n",
      picture, job.number, MarkupText(job.name), MarkupText(job.user), MarkupText(job.state),
      job.reason.empty() ? "" : "<br>", MarkupText(job.reason), sheets, job.mode,
      MarkupText(job.media), MarkupText(job.folder));
}

}  // namespace

bool IsJobFolder(std::string_view name) {
  return name.starts_with(kJobPrefix) && name.size() > kJobPrefix.size() &&
         name.find_first_not_of("0123456789-", kJobPrefix.size()) == std::string_view::npos;
}

std::vector<PrintedJob> LastJobs(const fs::path& folder, const std::string& printer,
                                 std::size_t most) {
  std::vector<PrintedJob> jobs;
  for (const fs::path& path : JobFolders(folder)) {
    if (jobs.size() == most) break;
    try {
      const nlohmann::json told = ReadJsonFile(path / "job.json");
      if (told.at("printer") == printer) jobs.push_back(JobFrom(told, path));
    } catch (const Failure&) {
      // The folder is only just being made, or is somebody else's.
    } catch (const nlohmann::json::exception&) {
    }
  }
  return jobs;
}

void EndInterruptedJobs(const fs::path& folder, const std::string& printer,
                        const std::function<bool(int job)>& isWaiting) {
  constexpr std::size_t kMostLookedAt = 100;  // of any number
  std::vector<fs::path> folders = JobFolders(folder);
  folders.resize(std::min(folders.size(), kMostLookedAt));
  for (const fs::path& path : folders) {
    try {
      nlohmann::json told = ReadJsonFile(path / "job.json");
      if (told.at("printer") != printer || told.at("state") != "processing") continue;
      if (isWaiting(told.at("job").get<int>())) continue;
      told["state"] = "aborted";
      told["reason"] = "the server has ended";
      WriteOutput(path / "job.json", JsonText(told) + "\n");
    } catch (const Failure& failure) {
      Complain(failure.what());
    } catch (const nlohmann::json::exception&) {
      // It is somebody else's.
    }
  }
}

std::string JobsAsHtml(const std::vector<PrintedJob>& jobs, const std::string& thumbnails) {
  if (jobs.empty()) return "<p>Nothing has been printed yet.</p>\n";
  std::string html =
      "<table class=\"list\"><thead><tr><th>First sheet</th><th>Job</th><th>Name, user</th>"
      "<th>State</th><th>Sheets</th><th>Mode, media</th><th>Folder</th></tr></thead>\n<tbody>\n";
  for (const PrintedJob& job : jobs) html += JobAsHtml(job, thumbnails);
  return html + "</tbody></table>\n";
}

}  // namespace corvane
