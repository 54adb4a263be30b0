// SPDX-License-Identifier: MIT
#include "app/printer/queue_state.h"

#include <cups/cups.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <future>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "app/support/descriptor.h"
#include "app/support/failure.h"
#include "app/support/input_stream.h"
#include "app/support/interrupt.h"
#include "app/support/lines.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/work_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrinter = "<Printer ", kPrinterEnd = "</Printer>", kJob = "Job ";
constexpr std::string_view kHeld = " state=\"4\"", kProcessing = " state=\"5\"";
constexpr std::string_view kPending = " state=\"3\"";
constexpr std::string_view kAttributes = ".ipp";
constexpr char kStateEnd = '\0';  // is in no text of the framework

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

// What is left of options that are taken apart.
struct Unread {
  std::string_view bytes;

  static ssize_t Take(void* unread, ipp_uchar_t* to, std::size_t size) {
    std::string_view& left = static_cast<Unread*>(unread)->bytes;
    const std::size_t taken = left.copy(reinterpret_cast<char*>(to), size);
    left.remove_prefix(taken);
    return static_cast<ssize_t>(taken);
  }
};

bool AreWhole(std::string_view attributes) {
  Unread unread = {attributes};
  ipp_t* read = ippNew();
  const bool whole = ippReadIO(&unread, &Unread::Take, 1, nullptr, read) == IPP_STATE_DATA;
  ippDelete(read);
  return whole;
}

// False, and nothing is written, when they were cut short.
bool CopyAttributes(const fs::path& from, const fs::path& to) {
  const std::string attributes = ReadText(from);
  if (!AreWhole(attributes)) return false;
  WriteOutput(to, attributes);
  return true;
}

bool KeepAttributes(const fs::path& spool) {
  const fs::path kept = KeptAttributes(spool);
  std::error_code problem;
  fs::create_directories(kept, problem);
  bool all = true;
  for (const std::string& name : NamesIn(spool, kAttributes)) {
    if (fs::exists(kept / name, problem)) continue;
    all = CopyAttributes(spool / name, kept / name) && all;
  }
  for (const std::string& name : NamesIn(kept, kAttributes)) {
    if (!fs::exists(spool / name, problem)) fs::remove(kept / name, problem);
  }
  return all;
}

// A pipe that has a name, which nobody else can get at, beside a file that stands in messages.
class NamedPipe {
 public:
  explicit NamedPipe(const fs::path& file)
      : folder_(file.parent_path(), file), path_(folder_.NextPath()) {
    if (mkfifo(path_.c_str(), S_IRUSR | S_IWUSR) != 0) Fail(file);
    reader_ = Descriptor(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    writer_ = Descriptor::OpenForWriting(path_);
    if (!reader_.IsOpen() || !writer_.IsOpen()) Fail(file);
  }
  ~NamedPipe() { RemoveName(); }
  NamedPipe(const NamedPipe&) = delete;
  NamedPipe& operator=(const NamedPipe&) = delete;

  const fs::path& Path() const { return path_; }
  Descriptor TakeReader() { return std::move(reader_); }
  Descriptor& Writer() { return writer_; }

 private:
  void RemoveName() {
    std::error_code ignored;
    fs::remove(path_, ignored);
  }

  [[noreturn]] void Fail(const fs::path& file) {
    const std::string reason = std::strerror(errno);
    RemoveName();
    throw OutputFailure(fmt::format("{}: no pipe can be made: {}", file.string(), reason));
  }

  WorkFolder folder_;
  fs::path path_;
  Descriptor reader_, writer_;
};

// All up to the end of the state.
std::string ReadState(Descriptor pipe, const std::string& name) {
  InputStream stream(std::move(pipe), name);
  std::string text;
  std::array<char, 1 << 14> bytes;
  while (!text.ends_with(kStateEnd)) {
    const std::size_t size = stream.ReadAvailable(bytes.data(), bytes.size());
    if (size == 0) break;
    text.append(bytes.data(), size);
  }
  return text;
}

// The framework writes a job's name and its user's as they come, and reads one line of at most 2047
// bytes after the other: a line's end within a value, or a longer line, would end the queue there.
std::string WithWholeLines(std::string_view state) {
  constexpr std::size_t kMostValue = 500;
  std::string lines;
  bool isJob = false, isQuoted = false, fits = true;
  std::size_t valueBytes = 0;
  for (std::size_t i = 0; i < state.size(); ++i) {
    if (!isQuoted && (lines.empty() || lines.back() == '\n')) {
      isJob = state.substr(i).starts_with(kJob);
    }
    const bool isEscape = isJob && isQuoted && state[i] == '\\' && i + 1 < state.size();
    const std::string_view text = state.substr(i, isEscape ? 2 : 1);
    if (isEscape) ++i;
    if (isJob && text == "\"") {
      isQuoted = !isQuoted;
      valueBytes = 0;
    } else if (isJob && isQuoted) {
      const bool goesOn = (static_cast<unsigned char>(text[0]) & 0xC0) == 0x80;  // a character
      if (!goesOn) fits = valueBytes + 4 <= kMostValue;
      if (!fits) continue;
      valueBytes += text.size();
      if (text == "\n" || text == "\r") {
        lines += ' ';
        continue;
      }
    }
    lines += text;
  }
  return lines;
}

// The state as the framework writes it, which does not look whether a disk takes what it writes:
// what is written into a pipe arrives, or the reading thread says why not.
std::string StateOf(pappl_system_t* system, const fs::path& file) {
  NamedPipe pipe(file);
  std::future<std::string> reading =
      std::async(std::launch::async, &ReadState, pipe.TakeReader(), file.string());
  const bool saved = papplSystemSaveState(system, pipe.Path().c_str());
  try {
    pipe.Writer().Write(&kStateEnd, 1);
  } catch (const Interrupted&) {
    // The reading thread is gone, and says why.
  }
  std::string text = reading.get();
  if (!saved || !text.ends_with(kStateEnd)) {
    throw Failure(file.string() + ": the framework does not write it");
  }
  text.pop_back();
  return WithWholeLines(text);
}

bool Save(pappl_system_t* system, void* data) {
  static std::mutex mutex;
  const auto& files = *static_cast<const QueueFiles*>(data);
  std::string problem;
  try {
    const std::lock_guard lock(mutex);
    const std::string state = StateOf(system, files.state);
    const bool keeps = KeepAttributes(files.spool);
    WriteOutput(files.state, state);
    if (keeps) return true;
    problem = files.spool.string() + ": the options of a job were cut short";
  } catch (const std::exception& failure) {
    problem = Printable(failure.what());
  } catch (...) {
    problem = "the server is ending";
  }
  papplLog(system, PAPPL_LOGLEVEL_ERROR, "The queue cannot be saved: %s", problem.c_str());
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

void RevivePrinter(const DeviceOfPrinter& deviceOf, std::string& line) {
  std::map<std::string, std::string> printer =
      ValuesOf(std::string_view(line).substr(0, line.rfind('>')), kPrinter);
  const std::string &name = printer["name"], &old = printer["uri"];
  try {
    Replace(fmt::format(" uri=\"{}\"", old), fmt::format(" uri=\"{}\"", deviceOf(name, old)), line);
  } catch (const Failure& failure) {
    throw Failure(fmt::format("the printer {} cannot be used: {}", name, failure.what()));
  }
}

void ReviveJob(int printer, const fs::path& spool, std::string& line) {
  Replace(kProcessing, std::string(kPending), line);
  std::map<std::string, std::string> job = ValuesOf(line, kJob);
  if (job.count("filename") != 0) return;
  const fs::path document = DocumentOf(printer, std::atoi(job["id"].c_str()), spool);
  if (document.empty() || document.string().find_first_of("\"\\") != std::string::npos) return;
  Replace(kHeld, fmt::format(" filename=\"{}\"{}", document.string(), kPending), line);
}

// Options that were cut short are those again that were kept. A job whose options cannot be read is
// no reason to keep the others waiting.
void ReviveAttributes(const fs::path& spool) {
  const fs::path kept = KeptAttributes(spool);
  std::error_code ignored;
  for (const std::string& name : NamesIn(kept, kAttributes)) {
    const fs::path own = spool / name;
    try {
      if (fs::exists(own, ignored) && !AreWhole(ReadText(own))) CopyAttributes(kept / name, own);
    } catch (const Failure& failure) {
      Complain(failure.what());
    }
  }
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

void ReviveJobs(const QueueFiles& files, const DeviceOfPrinter& deviceOf) {
  ReviveAttributes(files.spool);
  if (!fs::exists(files.state)) return;
  const std::string state = ReadText(files.state);
  std::istringstream lines(state);
  std::string revived;
  int printer = 0;
  bool whole = true;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(kPrinter)) {
      printer = std::atoi(ValuesOf(line, kPrinter)["id"].c_str());
      whole = false;
      RevivePrinter(deviceOf, line);
    }
    if (line == kPrinterEnd) whole = true;
    if (line.starts_with(kJob)) ReviveJob(printer, files.spool, line);
    revived += line + "\n";
  }
  if (!whole) {
    throw Failure(files.state.string() +
                  ": was cut short; without this file the server starts with no jobs");
  }
  if (revived != state) WriteOutput(files.state, revived);
}

void ResumePrinters(pappl_system_t* system) {
  // Not before it runs: until then it takes every job that is started for done.
  papplSystemAddTimerCallback(system, std::time(nullptr), 0, &ResumeAll, nullptr);
}

}  // namespace corvane
