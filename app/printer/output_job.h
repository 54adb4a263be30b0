// SPDX-License-Identifier: MIT
//
// A job of the printer: its pages, printed into files of its own that go to the device one by one.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/commands/print_page.h"
#include "app/inks/ink_use.h"
#include "app/printer/head.h"
#include "app/printer/sheet.h"

namespace corvane {

// What is told of a job in its job.json. Names are a stranger's and go nowhere else.
struct JobDescription {
  std::string printer;
  int number = 0;
  std::int64_t created = 0;  // seconds since 1970; tells jobs of one number apart
  std::string name, user, format;
  int copies = 1;
  bool collated = false;  // set after set; else the copies of a sheet follow it
  int numberUp = 1;       // pages on a sheet, of a document
  std::vector<std::pair<std::string, std::string>> options;  // that count, by the protocol's names
};

// Where the sheets of a job go.
class SheetReceiver {
 public:
  virtual ~SheetReceiver() = default;
  // The printhead data of a sheet, a whole file. `isCancelled` is asked again and again, and its
  // yes throws OutputJob::Cancelled. Throws Failure.
  virtual void Take(const std::filesystem::path& sheet,
                    const std::function<bool()>& isCancelled) = 0;
  // Behind the job's last sheet, in the same way.
  virtual void Finish(const std::function<bool()>& isCancelled) = 0;
};

class OutputJob {
 public:
  // With `receiver` null the sheets stay in the job's folder below `folder`, which is made:
  // "job-00012" with sheet-0001.tif, ..., preview.png of the first and job.json. A job that was cut
  // short and is printed again goes into the folder that it had, and job.json counts the attempts.
  // Else each sheet is handed over and removed, and the folder goes with the job. Throws Failure.
  OutputJob(const std::filesystem::path& folder, JobDescription description,
            SheetReceiver* receiver);
  ~OutputJob();
  OutputJob(const OutputJob&) = delete;
  OutputJob& operator=(const OutputJob&) = delete;

  struct Cancelled {};

  // How often printing it was begun, this time included.
  int Attempt() const { return attempt_; }

  // How pages are converted; to be said before the first one. Throws Failure.
  void Convert(const PrintOptions& options);

  // Prints a page, once for each copy of the job that is not collated. `page` has its image or
  // stream, paper and scale; `isCancelled` is asked between rows and copies, and its yes throws
  // Cancelled. A page that fails leaves no sheet.
  void Print(PageJob page, PageStream* stream, const std::function<bool()>& isCancelled);

  // Behind the last page: delivers the set as often as collated copies are wanted, in the same way.
  void RepeatSet(const std::function<bool()>& isCancelled);

  // The ink of all copies that were delivered since it was asked last.
  std::vector<InkUse> TakeInkUse() { return std::exchange(newInkUse_, {}); }

  // Behind the last copy: has the device take all. Throws as its receiver does.
  void Deliver(const std::function<bool()>& isCancelled) {
    if (receiver_ != nullptr) receiver_->Finish(isCancelled);
  }

  // What converted the document into pixels, for job.json.
  void SetConverter(std::string converter) { converter_ = std::move(converter); }

  // Writes the last job.json: "completed", "canceled" or "aborted", and why.
  void Finish(const std::string& state, const std::string& reason);

  const PageSettings& Settings() const { return settings_; }
  const std::filesystem::path& Folder() const { return folder_; }
  int Sheets() const { return static_cast<int>(sheets_.size()); }

 private:
  struct Sheet {
    std::string file;
    int page = 0;  // of the job, from 1
    int copy = 0;  // from 1
    std::uint32_t width = 0, rows = 0;
  };

  void MakeFolder(const std::filesystem::path& parent);
  bool TakesOver(const std::filesystem::path& folder);
  void Write(const std::string& state, const std::string& reason) const;
  void DeliverCopies(const std::filesystem::path& path, const PrintedSheet& sheet,
                     const std::function<bool()>& isCancelled);
  void DeliverSheet(const std::filesystem::path& path, const PrintedSheet& sheet, int page,
                    int copy, const std::function<bool()>& isCancelled);

  JobDescription description_;
  SheetReceiver* receiver_;
  PageSettings settings_;
  std::string colorTable_, colorTableSha256_, converter_;
  std::filesystem::path folder_;
  int attempt_ = 1;
  int pages_ = 0;
  std::vector<std::pair<std::filesystem::path, PrintedSheet>> set_;  // of a job that is collated
  std::vector<Sheet> sheets_;
  std::vector<InkUse> inkUse_, newInkUse_;
};

}  // namespace corvane
