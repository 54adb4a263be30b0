// SPDX-License-Identifier: MIT
#include "app/printer/queue_state.h"

#include <cups/cups.h>
#include <fcntl.h>
#include <fmt/format.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "app/support/descriptor.h"
#include "app/support/output_stage.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrinter = "<Printer ", kJob = "Job ";
constexpr std::string_view kHeld = " state=\"4\"", kProcessing = " state=\"5\"";
constexpr std::string_view kPending = " state=\"3\"";
constexpr std::string_view kAttributes = ".ipp";

// The framework writes the options of every waiting job anew whenever it saves the queue, over the
// old ones, and a server that is killed meanwhile would forget them: what they were when the job
// came is kept in a folder beside.
fs::path KeptAttributes(const fs::path& spool) { return spool.parent_path() / "attributes"; }

std::vector<std::string> NamesIn(const fs::path& folder, std::string_view ending) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    std::string name = at->path().filename();
    if (name.ends_with(ending)) names.push_back(std::move(name));
  }
  return names;
}

bool AreWhole(const fs::path& attributes) {
  const Descriptor file(open(attributes.c_str(), O_RDONLY | O_CLOEXEC));
  ipp_t* read = ippNew();
  const bool whole = file.IsOpen() && ippReadFile(file.Number(), read) == IPP_STATE_DATA;
  ippDelete(read);
  return whole;
}

// Whole or not at all.
bool Copy(const fs::path& from, const fs::path& to) {
  const fs::path unfinished = to.string() + ".new";
  std::error_code problem;
  fs::copy_file(from, unfinished, fs::copy_options::overwrite_existing, problem);
  if (!problem) fs::rename(unfinished, to, problem);
  return !problem;
}

bool KeepAttributes(const fs::path& spool) {
  const fs::path kept = KeptAttributes(spool);
  std::error_code problem;
  fs::create_directories(kept, problem);
  bool all = !problem;
  for (const std::string& name : NamesIn(spool, kAttributes)) {
    if (fs::exists(kept / name, problem)) continue;
    all = AreWhole(spool / name) && Copy(spool / name, kept / name) && all;
  }
  for (const std::string& name : NamesIn(kept, kAttributes)) {
    if (!fs::exists(spool / name, problem)) fs::remove(kept / name, problem);
  }
  return all;
}

bool Save(pappl_system_t* system, void* data) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  const auto& files = *static_cast<const QueueFiles*>(data);
  const fs::path unfinished = files.state.string() + ".new";
  std::error_code problem;
  if (papplSystemSaveState(system, unfinished.c_str())) {
    const bool keeps = KeepAttributes(files.spool);
    fs::rename(unfinished, files.state, problem);
    if (keeps && !problem) return true;
  }
  papplLog(system, PAPPL_LOGLEVEL_ERROR, "%s: the queue cannot be saved", files.state.c_str());
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

void KeepQueue(pappl_system_t* system, const QueueFiles& files) {
  static QueueFiles kept;
  kept = files;
  papplSystemSetSaveCallback(system, &Save, &kept);
  papplSystemSetEventCallback(system, &SaveNewJob, &kept);
  Save(system, &kept);
}

void ReviveJobs(const QueueFiles& files) {
  const fs::path kept = KeptAttributes(files.spool);
  std::error_code ignored;
  for (const std::string& name : NamesIn(kept, kAttributes)) {
    const fs::path own = files.spool / name;
    if (fs::exists(own, ignored) && !AreWhole(own)) Copy(kept / name, own);
  }
  std::ifstream lines(files.state);
  if (!lines) return;
  std::string revived;
  int printer = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(kPrinter)) printer = std::atoi(ValuesOf(line, kPrinter)["id"].c_str());
    if (line.starts_with(kJob)) ReviveJob(printer, files.spool, line);
    revived += line + "\n";
  }
  WriteOutput(files.state, revived);
}

void ResumePrinters(pappl_system_t* system) {
  // Not before it runs: until then it takes every job that is started for done.
  papplSystemAddTimerCallback(system, std::time(nullptr), 0, &ResumeAll, nullptr);
}

}  // namespace corvane
