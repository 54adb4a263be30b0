// SPDX-License-Identifier: MIT
#include "app/printer/queue_state.h"

#include <cups/cups.h>
#include <fmt/format.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <mutex>
#include <string_view>
#include <system_error>

#include "app/support/output_stage.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrinter = "<Printer ", kJob = "Job ";
constexpr std::string_view kHeld = " state=\"4\"", kProcessing = " state=\"5\"";
constexpr std::string_view kPending = " state=\"3\"";
constexpr std::string_view kAttributes = ".ipp";

bool Save(pappl_system_t* system, void* data) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  const auto& file = *static_cast<const fs::path*>(data);
  const fs::path unfinished = file.string() + ".new";
  std::error_code problem;
  if (papplSystemSaveState(system, unfinished.c_str())) {
    fs::rename(unfinished, file, problem);
    if (!problem) return true;
  }
  papplLog(system, PAPPL_LOGLEVEL_ERROR, "%s: the queue cannot be saved", file.c_str());
  return false;
}

// In the thread that takes the job, before it takes the document.
void SaveNewJob(pappl_system_t* system, pappl_printer_t*, pappl_job_t*, pappl_event_t event,
                void* data) {
  if ((event & PAPPL_EVENT_JOB_CREATED) != 0) Save(system, data);
}

std::map<std::string, std::string> ValuesOf(std::string_view line, std::string_view word) {
  cups_option_t* options = nullptr;
  const int count = cupsParseOptions(std::string(line.substr(word.size())).c_str(), 0, &options);
  std::map<std::string, std::string> values;
  for (int i = 0; i < count; ++i) values[options[i].name] = options[i].value;
  cupsFreeOptions(count, options);
  return values;
}

// The document of a job, as the framework names it; empty when none is there.
fs::path DocumentOf(int printer, int job, const fs::path& spool) {
  const std::string prefix = fmt::format("p{:05}j{:09}-", printer, job);
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator(spool, ignored)) {
    const std::string name = entry.path().filename();
    if (name.starts_with(prefix) && !name.ends_with(kAttributes)) return entry.path();
  }
  return {};
}

// Values are quoted and the quotes in them are escaped, so these texts are found nowhere else.
void Replace(std::string_view old, const std::string& text, std::string& line) {
  const std::size_t at = line.find(old);
  if (at != std::string::npos) line.replace(at, old.size(), text);
}

void ReviveJob(int printer, const fs::path& spool, std::string& line) {
  Replace(kProcessing, std::string(kPending), line);
  std::map<std::string, std::string> job = ValuesOf(line, kJob);
  if (job.count("filename") != 0) return;
  const fs::path document = DocumentOf(printer, std::atoi(job["id"].c_str()), spool);
  if (document.empty() || document.string().find_first_of("\"\\") != std::string::npos) return;
  Replace(kHeld, fmt::format(" filename=\"{}\"{}", document.string(), kPending), line);
}

void Resume(pappl_printer_t* printer, void*) { papplPrinterResume(printer); }

bool ResumeAll(pappl_system_t* system, void*) {
  papplSystemIteratePrinters(system, &Resume, nullptr);
  return false;
}

}  // namespace

void KeepQueue(pappl_system_t* system, const fs::path& file) {
  static fs::path kept;
  kept = file;
  papplSystemSetSaveCallback(system, &Save, &kept);
  papplSystemSetEventCallback(system, &SaveNewJob, &kept);
  Save(system, &kept);
}

void ReviveJobs(const fs::path& file, const fs::path& spool) {
  std::ifstream lines(file);
  if (!lines) return;
  std::string revived;
  int printer = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(kPrinter)) printer = std::atoi(ValuesOf(line, kPrinter)["id"].c_str());
    if (line.starts_with(kJob)) ReviveJob(printer, spool, line);
    revived += line + "\n";
  }
  WriteOutput(file, revived);
}

void ResumePrinters(pappl_system_t* system) {
  // Not before it runs: until then it takes every job that is started for done.
  papplSystemAddTimerCallback(system, std::time(nullptr), 0, &ResumeAll, nullptr);
}

}  // namespace corvane
