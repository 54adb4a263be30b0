// SPDX-License-Identifier: MIT
#include "app/printer/pipe_command.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>
#include <utility>

#include "app/printer/devices.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;

constexpr auto kLook = 20ms;
constexpr auto kLongestEnd = 2s;  // of a command that is asked to end

// The attributes and actions of a start.
class Start {
 public:
  explicit Start(int input) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
    posix_spawnattr_init(&attributes_);
    sigset_t ignoredHere;
    sigemptyset(&ignoredHere);
    sigaddset(&ignoredHere, SIGPIPE);
    sigaddset(&ignoredHere, SIGXFSZ);
    posix_spawnattr_setsigdefault(&attributes_, &ignoredHere);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  ~Start() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  Start(const Start&) = delete;
  Start& operator=(const Start&) = delete;

  // 0, or what is wrong.
  int Run(char* const* arguments, pid_t& process) {
    return posix_spawnp(&process, arguments[0], &actions_, &attributes_, arguments, environ);
  }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

}  // namespace

PipeCommand::PipeCommand(std::string name, const std::vector<std::string>& words)
    : name_(std::move(name)) {
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) Fail(std::strerror(errno));
  const Descriptor read(ends[0]);
  input_ = Descriptor(ends[1]);
  fcntl(input_.Number(), F_SETFL, O_NONBLOCK);
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const int problem = Start(read.Number()).Run(arguments.data(), process_);
  if (problem == 0) return;
  process_ = -1;
  Fail(fmt::format("does not start: {}", std::strerror(problem)));
}

PipeCommand::~PipeCommand() {
  input_.Close();
  const auto until = std::chrono::steady_clock::now() + kLongestEnd;
  if (process_ > 0) kill(-process_, SIGTERM);
  while (process_ > 0 && !EndStatus()) {
    if (std::chrono::steady_clock::now() > until) kill(-process_, SIGKILL);
    std::this_thread::sleep_for(kLook);
  }
}

bool PipeCommand::Write(const char* data, std::size_t size,
                        const std::function<bool()>& isCancelled) {
  while (size > 0) {
    if (isCancelled()) return false;
    pollfd wanted = {input_.Number(), POLLOUT, 0};
    if (poll(&wanted, 1, static_cast<int>(kLook.count())) <= 0) continue;
    const ssize_t done = write(input_.Number(), data, size);
    if (done < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (done < 0) Fail(errno == EPIPE ? "has ended before it took all" : std::strerror(errno));
    data += done;
    size -= static_cast<std::size_t>(done);
  }
  return true;
}

bool PipeCommand::Finish(const std::function<bool()>& isCancelled) {
  input_.Close();
  std::optional<int> status;
  while (!(status = EndStatus())) {
    if (isCancelled()) return false;
    std::this_thread::sleep_for(kLook);
  }
  if (WIFSIGNALED(*status)) Fail(fmt::format("was ended by signal {}", WTERMSIG(*status)));
  if (WEXITSTATUS(*status) != 0) Fail(fmt::format("ended with status {}", WEXITSTATUS(*status)));
  return true;
}

// Nothing, as long as it runs.
std::optional<int> PipeCommand::EndStatus() {
  int status = 0;
  const pid_t ended = waitpid(process_, &status, WNOHANG);
  if (ended == 0 || (ended < 0 && errno == EINTR)) return std::nullopt;
  process_ = -1;
  return status;
}

void PipeCommand::Fail(const std::string& what) const {
  throw DeviceFailure(fmt::format("{}: the command {}", name_, what));
}

}  // namespace corvane
