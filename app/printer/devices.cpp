// SPDX-License-Identifier: MIT
#include "app/printer/devices.h"

#include <fcntl.h>
#include <pappl/pappl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <sstream>
#include <string_view>
#include <system_error>

#include "app/support/descriptor.h"
#include "app/support/failure.h"
#include "app/support/lines.h"
#include "app/support/message.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kFolderScheme = "folder://";
constexpr std::string_view kPipeScheme = "pipe://";

const DeviceRights* rights = nullptr;

// A command that takes what is printed on its standard input, without a shell.
class PipeCommand {
 public:
  explicit PipeCommand(const std::vector<std::string>& words) {
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
    Descriptor read(ends[0]);
    input_ = Descriptor(ends[1]);
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, read.Number(), STDIN_FILENO);
    if (posix_spawnp(&process_, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
      process_ = -1;
      input_.Close();
    }
    posix_spawn_file_actions_destroy(&actions);
  }

  // Waits for the command: what it was given is its own from here on.
  ~PipeCommand() {
    input_.Close();
    while (process_ > 0 && waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }

  PipeCommand(const PipeCommand&) = delete;
  PipeCommand& operator=(const PipeCommand&) = delete;

  bool IsRunning() const { return process_ > 0; }

  ssize_t Write(const void* data, std::size_t size) {
    try {
      return input_.Write(data, size) ? static_cast<ssize_t>(size) : -1;
    } catch (...) {
      return -1;
    }
  }

 private:
  Descriptor input_;
  pid_t process_ = -1;
};

bool OpenFolder(pappl_device_t* device, const char* uri, const char*) {
  try {
    FolderOfDevice(uri, *rights);
    return true;
  } catch (const std::exception& failure) {
    papplDeviceError(device, "%s", Printable(failure.what()).c_str());
    return false;
  }
}

void CloseFolder(pappl_device_t*) {}

ssize_t RefuseBytes(pappl_device_t*, const void*, std::size_t) { return -1; }

ssize_t ReadNothing(pappl_device_t*, void*, std::size_t) { return 0; }

pappl_preason_t NoReasons(pappl_device_t*) { return PAPPL_PREASON_NONE; }

// The words of a pipe's command; null when the server has none of that name.
const std::vector<std::string>* CommandOf(const std::string& uri, const DeviceRights& allowed) {
  if (!uri.starts_with(kPipeScheme)) return nullptr;
  const auto command = allowed.commands.find(uri.substr(kPipeScheme.size()));
  return command == allowed.commands.end() ? nullptr : &command->second;
}

bool OpenPipe(pappl_device_t* device, const char* uri, const char*) {
  const std::vector<std::string>* command = CommandOf(uri, *rights);
  if (command == nullptr) {
    papplDeviceError(device, "The server was given no command for %s", Printable(uri).c_str());
    return false;
  }
  auto pipe = std::make_unique<PipeCommand>(*command);
  if (!pipe->IsRunning()) {
    papplDeviceError(device, "The command of %s does not start", Printable(uri).c_str());
    return false;
  }
  papplDeviceSetData(device, pipe.release());
  return true;
}

void ClosePipe(pappl_device_t* device) {
  delete static_cast<PipeCommand*>(papplDeviceGetData(device));
  papplDeviceSetData(device, nullptr);
}

ssize_t WritePipe(pappl_device_t* device, const void* data, std::size_t size) {
  return static_cast<PipeCommand*>(papplDeviceGetData(device))->Write(data, size);
}

}  // namespace

std::map<std::string, std::vector<std::string>> ReadPipeCommands(const fs::path& file) {
  std::istringstream lines(ReadText(file));
  std::map<std::string, std::vector<std::string>> commands;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.starts_with('#')) continue;
    std::istringstream words(line);
    std::string name, word;
    if (!(words >> name)) continue;
    std::vector<std::string>& command = commands[name];
    while (words >> word) command.push_back(word);
    if (command.empty()) {
      throw Failure(file.string() + ": line " + std::to_string(number) + " has no command");
    }
  }
  return commands;
}

bool IsFolderDevice(const std::string& uri) { return uri.starts_with(kFolderScheme); }

fs::path FolderOfDevice(const std::string& uri, const DeviceRights& allowed) {
  const fs::path path = IsFolderDevice(uri) ? uri.substr(kFolderScheme.size()) : std::string();
  if (!path.is_absolute()) throw Failure(uri + ": is not folder:///PATH");
  if (allowed.folder.empty()) throw Failure(uri + ": the server was started without a folder");
  // Links count for what they lead to, so that nothing leads out.
  const fs::path root = fs::weakly_canonical(allowed.folder);
  fs::path folder = fs::weakly_canonical(path);
  const auto [end, at] = std::mismatch(root.begin(), root.end(), folder.begin(), folder.end());
  if (end != root.end()) {
    throw Failure(uri + ": is not below the server's folder " + allowed.folder.string());
  }
  return folder;
}

void CheckDevice(const std::string& uri, const DeviceRights& allowed) {
  if (IsFolderDevice(uri)) FolderOfDevice(uri, allowed);
  if (uri.starts_with(kPipeScheme) && CommandOf(uri, allowed) == nullptr) {
    throw Failure(uri + ": the server was given no command of that name");
  }
}

void AddDeviceSchemes(const DeviceRights& allowed) {
  rights = &allowed;
  papplDeviceAddScheme("folder", PAPPL_DEVTYPE_CUSTOM_LOCAL, nullptr, &OpenFolder, &CloseFolder,
                       &ReadNothing, &RefuseBytes, &NoReasons, nullptr);
  papplDeviceAddScheme("pipe", PAPPL_DEVTYPE_CUSTOM_LOCAL, nullptr, &OpenPipe, &ClosePipe,
                       &ReadNothing, &WritePipe, &NoReasons, nullptr);
}

}  // namespace corvane
