// SPDX-License-Identifier: MIT
#include "app/child/child.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <mutex>
#include <new>
#include <sstream>
#include <system_error>
#include <thread>
#include <utility>

#include "app/support/failure.h"
#include "app/support/platform.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr rlim_t kMostFileBytes = rlim_t{4} << 30;
constexpr std::size_t kMostComplaint = 400;
constexpr int kPipeBytes = 1 << 20;  // so that a child need not stop for each row

// Where PATH finds a program; empty where it does not.
std::string FindProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  const char* path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "/usr/bin:/bin" : path);
  for (std::string file; std::getline(folders, file, ':');) {
    file.append("/").append(name);
    if (file.starts_with('/') && access(file.c_str(), X_OK) == 0) return file;
  }
  return {};
}

// ---------------------------------------------------------------------------------------------
// The sandbox.

// What programs need of a system, and nobody's own files.
constexpr const char* kSystemFolders[] = {"/usr",
                                          "/bin",
                                          "/sbin",
                                          "/lib",
                                          "/lib32",
                                          "/lib64",
                                          "/etc/alternatives",
                                          "/etc/fonts",
                                          "/etc/ghostscript",
                                          "/etc/ld.so.cache",
                                          "/var/lib/ghostscript",
                                          "/var/cache/fontconfig"};

std::vector<std::string> SandboxWords(const std::string& sandbox, const fs::path& temporary) {
  std::vector<std::string> words = {sandbox,  "--unshare-all", "--die-with-parent", "--dev", "/dev",
                                    "--proc", "/proc",         "--chdir",           "/"};
  for (const char* folder : kSystemFolders) {
    words.insert(words.end(), {"--ro-bind-try", folder, folder});
  }
  words.insert(words.end(), {"--bind", temporary.string(), "/tmp", "--"});
  return words;
}

bool IsInSystem(const std::string& program) {
  std::error_code ignored;
  const std::string file = fs::canonical(program, ignored).string();
  for (const char* folder : kSystemFolders) {
    if (file.starts_with(std::string(folder) + '/')) return true;
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// Between fork and exec: nothing here may take memory or locks.

struct Launch {
  char* const* arguments;
  char* const* environment;
  const int* files;  // what the child gets as 0, 1, 2, 3 and up; all above the last of these
  int fileCount;
  int report;  // takes errno when the program does not start
  pid_t parent;
  rlimit memory, processor, fileSize, core;
};

[[noreturn]] void FailToStart(int report) {
  const int problem = errno;
  [[maybe_unused]] const ssize_t written = write(report, &problem, sizeof problem);
  _exit(127);
}

[[noreturn]] void Run(const Launch& launch) {
  setsid();
  // Whatever ends this program ends its children.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != launch.parent) _exit(127);
  for (int signal = 1; signal < NSIG; ++signal) std::signal(signal, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  if (setrlimit(RLIMIT_AS, &launch.memory) != 0 || setrlimit(RLIMIT_CPU, &launch.processor) != 0 ||
      setrlimit(RLIMIT_FSIZE, &launch.fileSize) != 0 || setrlimit(RLIMIT_CORE, &launch.core) != 0) {
    FailToStart(launch.report);
  }
  for (int i = 0; i < launch.fileCount; ++i) {
    if (dup2(launch.files[i], i) < 0) FailToStart(launch.report);
  }
  const auto first = static_cast<unsigned>(launch.fileCount);
  const auto report = static_cast<unsigned>(launch.report);
  close_range(first, report - 1, 0);
  close_range(report + 1, ~0U, 0);
  execve(launch.arguments[0], launch.arguments, launch.environment);
  FailToStart(launch.report);
}

// A limit of a child, as far as this program may grant it.
rlimit LimitOf(decltype(RLIMIT_AS) resource, rlim_t value, rlim_t more) {
  rlimit own = {};
  getrlimit(resource, &own);
  return {std::min(value, own.rlim_max), std::min(value + more, own.rlim_max)};
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

struct Pipe {
  Descriptor reading, writing;
};

Pipe MakePipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw TransientFailure(fmt::format("no pipe can be made: {}", std::strerror(errno)));
  }
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// A copy that lies above all numbers that a child's files get.
Descriptor Above(const Descriptor& file, int number) {
  Descriptor copy(fcntl(file.Number(), F_DUPFD_CLOEXEC, number));
  if (!copy.IsOpen()) {
    throw TransientFailure(fmt::format("no file can be opened: {}", std::strerror(errno)));
  }
  return copy;
}

// Waits for the end of a child without reaping it.
bool HasEnded(pid_t process, std::chrono::milliseconds most) {
  const auto until = std::chrono::steady_clock::now() + most;
  for (;;) {
    siginfo_t ended = {};
    const int got = waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT);
    if (got == 0 && ended.si_pid == process) return true;
    if (std::chrono::steady_clock::now() >= until) return false;
    std::this_thread::sleep_for(2ms);
  }
}

}  // namespace

// ---------------------------------------------------------------------------------------------

// Takes whatever the child writes to its error stream, so that it never waits, and keeps the
// beginning and the end of each part.
class Child::Complaints {
 public:
  Complaints(Descriptor from, std::string partEnd)
      : from_(std::move(from)), partEnd_(std::move(partEnd)), thread_([this] { Take(); }) {}

  ~Complaints() { Stop(); }

  std::optional<std::string> NextPart(std::chrono::milliseconds most) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, most, [this] { return silent_ || lost_ || !parts_.empty(); });
    if (lost_) throw std::bad_alloc();
    if (parts_.empty()) return std::nullopt;
    std::string part = std::move(parts_.front());
    parts_.pop_front();
    return part;
  }

  bool IsSilent() {
    const std::lock_guard lock(mutex_);
    return silent_ && parts_.empty();
  }

  // The part that has not ended.
  std::string Stop() {
    stopped_ = true;
    if (thread_.joinable()) thread_.join();
    return part_.Text() + line_;
  }

 private:
  static constexpr std::size_t kKept = 1024;  // at either end
  static constexpr int kLookMs = 20;

  class Excerpt {
   public:
    void Add(std::string_view text) {
      const std::string_view head = text.substr(0, kKept - first_.size());
      first_ += head;
      last_ += text.substr(head.size());
      if (last_.size() > kKept) last_.erase(0, last_.size() - kKept);
    }

    std::string Text() const { return first_ + last_; }

   private:
    std::string first_, last_;
  };

  void Take() {
    char bytes[4096];
    for (;;) {
      pollfd wanted = {from_.Number(), POLLIN, 0};
      const int ready = poll(&wanted, 1, kLookMs);
      if (ready <= 0) {
        if (stopped_) break;  // somebody else has the pipe
        continue;
      }
      const ssize_t count = read(from_.Number(), bytes, sizeof bytes);
      if (count == 0 || (count < 0 && errno != EINTR)) break;
      if (count > 0) KeepOrLose({bytes, static_cast<std::size_t>(count)});
    }
    const std::lock_guard lock(mutex_);
    silent_ = true;
    changed_.notify_all();
  }

  void KeepOrLose(std::string_view text) {
    try {
      Keep(text);
    } catch (const std::bad_alloc&) {
      const std::lock_guard lock(mutex_);
      lost_ = true;
      changed_.notify_all();
    }
  }

  void Keep(std::string_view text) {
    if (partEnd_.empty()) return part_.Add(text);
    for (std::size_t end; (end = text.find('\n')) != std::string_view::npos;) {
      line_ += text.substr(0, end);
      text.remove_prefix(end + 1);
      line_ == partEnd_ ? EndPart() : part_.Add(line_ + '\n');
      line_.clear();
    }
    line_ += text;
    if (line_.size() <= partEnd_.size()) return;
    part_.Add(line_);
    line_.clear();
  }

  void EndPart() {
    const std::lock_guard lock(mutex_);
    parts_.push_back(std::exchange(part_, {}).Text());
    changed_.notify_all();
  }

  Descriptor from_;
  const std::string partEnd_;
  Excerpt part_;
  std::string line_;  // that has begun, as long as it may be the end of the part
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::string> parts_;  // that have ended
  bool silent_ = false;
  bool lost_ = false;  // memory was too short for what came
  std::atomic<bool> stopped_ = false;
  std::thread thread_;
};

std::string ChildCommand::NameOfFile(std::size_t place) {
  return fmt::format("/dev/fd/{}", kFirstFile + place);
}

Child::Child(const ChildCommand& command)
    : program_(command.program),
      limits_(command.limits),
      partEnd_(command.partEnd),
      folder_(TemporaryFolder(), TemporaryFolder()) {
  const std::string program = FindProgram(command.program);
  if (program.empty()) {
    throw Failure(
        fmt::format("{} is not installed (Debian package {})", command.program, command.package));
  }
  std::vector<std::string> words;
  sandboxed_ = SandboxWorks() && IsInSystem(program);
  if (sandboxed_) words = SandboxWords(FindProgram("bwrap"), folder_.Path());
  words.push_back(program);
  words.insert(words.end(), command.arguments.begin(), command.arguments.end());
  Start(words, command.files);
}

Child::Child(const std::string& sandbox, std::vector<std::string> words)
    : program_(sandbox), folder_(TemporaryFolder(), TemporaryFolder()) {
  words.push_back("/bin/true");
  Start(words, {});
}

void Child::Start(const std::vector<std::string>& words,
                  const std::vector<const Descriptor*>& given) {
  const std::vector<std::string> environment = {
      "PATH=/usr/bin:/bin", "LC_ALL=C.UTF-8", "HOME=/",
      "TMPDIR=" + (sandboxed_ ? "/tmp" : folder_.Path().string())};
  const std::vector<char*> arguments = Pointers(words), variables = Pointers(environment);

  const int fileCount = ChildCommand::kFirstFile + static_cast<int>(given.size());
  Pipe output = MakePipe(), complaints = MakePipe(), report = MakePipe();
  fcntl(output.reading.Number(), F_SETPIPE_SZ, kPipeBytes);
  const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  std::vector<Descriptor> copies;
  for (const Descriptor* file :
       std::initializer_list<const Descriptor*>{&nothing, &output.writing, &complaints.writing}) {
    copies.push_back(Above(*file, fileCount));
  }
  for (const Descriptor* file : given) copies.push_back(Above(*file, fileCount));
  Descriptor reporting = Above(report.writing, fileCount);
  std::vector<int> files;
  for (const Descriptor& copy : copies) files.push_back(copy.Number());

  const auto seconds = static_cast<rlim_t>(std::ceil(limits_.processorSeconds));
  const Launch launch = {arguments.data(), variables.data(), files.data(), fileCount,
                         reporting.Number(), getpid(), LimitOf(RLIMIT_AS, limits_.memoryBytes, 0),
                         // Told a second before it is killed, so that it shows why it ended.
                         LimitOf(RLIMIT_CPU, seconds, 1), LimitOf(RLIMIT_FSIZE, kMostFileBytes, 0),
                         LimitOf(RLIMIT_CORE, 0, 0)};
  process_ = fork();
  if (process_ == 0) Run(launch);
  if (process_ < 0) {
    throw TransientFailure(
        fmt::format("{}: cannot be started: {}", program_, std::strerror(errno)));
  }

  // Only the child holds them from here on, so that their ends show.
  output.writing.Close();
  complaints.writing.Close();
  report.writing.Close();
  copies.clear();
  reporting.Close();
  int problem = 0;
  ssize_t count;
  do {
    count = read(report.reading.Number(), &problem, sizeof problem);
  } while (count < 0 && errno == EINTR);
  if (count > 0) {
    waitpid(std::exchange(process_, -1), nullptr, 0);
    throw Failure(fmt::format("{}: cannot be started: {}", program_, std::strerror(problem)));
  }
  output_ = std::move(output.reading);
  try {
    complaints_ = std::make_unique<Complaints>(std::move(complaints.reading), partEnd_);
  } catch (const std::system_error&) {
    kill(-process_, SIGKILL);
    waitpid(std::exchange(process_, -1), nullptr, 0);
    throw TransientFailure(program_ + ": no thread can be started to listen to it");
  }
}

Child::~Child() {
  End(kAtOnce);
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder_.Path(), ignored)) {
    if (!WorkFolder::IsLock(entry.path())) fs::remove_all(entry.path(), ignored);
  }
}

std::optional<std::string> Child::NextPart(int milliseconds) {
  return complaints_->NextPart(std::chrono::milliseconds(milliseconds));
}

bool Child::IsSilent() const { return complaints_->IsSilent(); }

std::string Child::End(std::chrono::milliseconds most) {
  if (process_ < 0) return ending_;
  output_.Close();
  wasStopped_ = !HasEnded(process_, most);
  // Before the child is reaped, which gives its number free, so that no other group is hit.
  kill(-process_, SIGKILL);
  int status = 0;
  while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
  }
  process_ = -1;
  complaint_ = OneLine(complaints_->Stop(), kMostComplaint);
  ending_ = wasStopped_ ? "was stopped" : Ending(status);
  if (!ending_.empty() && !complaint_.empty()) ending_ += ": " + complaint_;
  return ending_;
}

std::string Child::Ending(int status) {
  constexpr int kSignalled = 128;  // what a sandbox adds to the signal that ended its program
  int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
  if (sandboxed_ && code > kSignalled) signal = code - kSignalled;
  if (signal == SIGXCPU) {
    return fmt::format("took more than {} s of processor time", limits_.processorSeconds);
  }
  killed_ = signal == SIGKILL;
  if (signal != 0) return fmt::format("was ended by signal {} ({})", signal, strsignal(signal));
  return code == 0 ? std::string() : fmt::format("ended with status {}", code);
}

bool SandboxWorks() {
  static const bool works = [] {
    const std::string sandbox = FindProgram("bwrap");
    if (sandbox.empty() || !IsInSystem(sandbox)) return false;
    try {
      Child trial(sandbox, SandboxWords(sandbox, TemporaryFolder()));
      return trial.End(Child::kInTime).empty();
    } catch (const TransientFailure&) {
      throw;  // says nothing of the sandbox, without which nothing is to be read for that
    } catch (const Failure&) {
      return false;
    }
  }();
  return works;
}

std::string OneLine(const std::string& text, std::size_t most) {
  std::string line;
  for (const char c : text) {
    const bool blank = c == ' ' || static_cast<unsigned char>(c) < ' ' || c == 0x7f;
    if (!blank) {
      line += static_cast<unsigned char>(c) < 0x80 ? c : '?';
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  if (line.ends_with(' ')) line.pop_back();
  constexpr std::string_view kGap = " ... ";
  if (line.size() <= most) return line;
  const std::size_t half = (most - kGap.size()) / 2;
  return line.substr(0, half).append(kGap).append(line.substr(line.size() - half));
}

}  // namespace corvane
