// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "app/commands/job.h"
#include "app/jobs/digest.h"
#include "app/jobs/standing.h"
#include "app/support/failure.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/work_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

class JobVerifier {
 public:
  explicit JobVerifier(fs::path manifest) : manifest_(std::move(manifest)) {}

  void Take(const JobPage& page, const PageStanding& standing) {
    ++pages_;
    const fs::path output = ResolvePath(manifest_, page.output);
    expected_[output.parent_path()].insert(RecordPathOf(output).filename());
    switch (standing.state) {
      case PageState::Missing:
        expected_[output.parent_path()].insert(output.filename());
        Complain(output, WhyMissing(output, standing));
        break;
      case PageState::Failed:
        Complain(output, "is missing: " + standing.record.failure);
        break;
      case PageState::Done:
        for (const OutputDigest& file : standing.record.files) {
          expected_[output.parent_path()].insert(file.name);
          Compare(output.parent_path() / file.name, file);
        }
    }
  }

  // What lies in the folders of the pages and belongs to none.
  void LookForSurplus() {
    for (const auto& [folder, names] : expected_) {
      std::error_code problem;
      for (fs::directory_iterator at(folder, problem), end; !problem && at != end;
           at.increment(problem)) {
        if (!names.contains(at->path().filename()) && !WorkFolder::IsNamedAsOne(at->path())) {
          Complain(at->path(), "is of no page of the job");
        }
      }
      // A folder that is missing has been named with each of its pages.
      if (problem && problem != std::errc::no_such_file_or_directory) {
        Complain(folder, "cannot be listed: " + problem.message());
      }
    }
  }

  // The exit status.
  int Finish() const {
    WriteStandardOutput(problems_ == 0 ? fmt::format("{} pages, as they were recorded\n", pages_)
                                       : fmt::format("{} pages, {} problem{}\n", pages_, problems_,
                                                     problems_ == 1 ? "" : "s"));
    return problems_ == 0 ? 0 : 1;
  }

 private:
  static std::string WhyMissing(const fs::path& output, const PageStanding& standing) {
    std::error_code ignored;
    if (standing.isOfAnotherJob) return "belongs to another job";
    if (!fs::exists(output, ignored)) return "is missing";
    return fs::exists(RecordPathOf(output), ignored) ? "is not of the size in its record"
                                                     : "has no record";
  }

  void Compare(const fs::path& path, const OutputDigest& recorded) {
    try {
      if (DigestOfFile(path).sha256 != recorded.sha256) Complain(path, "differs from its record");
    } catch (const Failure& failure) {
      Complain(path, failure.what());
    }
  }

  void Complain(const fs::path& path, const std::string& what) {
    ++problems_;
    WriteStandardOutput(Printable(path.string() + ": " + what) + '\n');
  }

  fs::path manifest_;
  std::map<fs::path, std::set<fs::path>> expected_;
  std::uint64_t pages_ = 0, problems_ = 0;
};

}  // namespace

int RunJobVerify(const JobVerifyOptions& options) {
  JobVerifier verifier(options.manifest);
  ForEachStanding(options.manifest, [&](const JobPage& page, const PageStanding& standing) {
    verifier.Take(page, standing);
  });
  verifier.LookForSurplus();
  return verifier.Finish();
}

}  // namespace corvane
