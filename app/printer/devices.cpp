// SPDX-License-Identifier: MIT
#include "app/printer/devices.h"

#include <fmt/format.h>
#include <pappl/pappl.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <sstream>
#include <string_view>

#include "app/support/failure.h"
#include "app/support/lines.h"
#include "app/support/message.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kFolderScheme = "folder://";
constexpr std::string_view kPipeScheme = "pipe://";
constexpr std::string_view kSocketScheme = "socket://";

const DeviceRights* rights = nullptr;

bool OpenFolder(pappl_device_t* device, const char* uri, const char*) {
  try {
    FolderOfDevice(uri, *rights);
    return true;
  } catch (const std::exception& failure) {
    papplDeviceError(device, "%s", Printable(failure.what()).c_str());
    return false;
  }
}

void CloseNothing(pappl_device_t*) {}

ssize_t RefuseBytes(pappl_device_t*, const void*, std::size_t) { return -1; }

ssize_t ReadNothing(pappl_device_t*, void*, std::size_t) { return 0; }

pappl_preason_t NoReasons(pappl_device_t*) { return PAPPL_PREASON_NONE; }

// What a job writes to a pipe goes to a command of its own, past the framework.
bool OpenPipe(pappl_device_t* device, const char* uri, const char*) {
  try {
    CommandOfDevice(uri, *rights);
    return true;
  } catch (const std::exception& failure) {
    papplDeviceError(device, "%s", Printable(failure.what()).c_str());
    return false;
  }
}

bool IsHexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

// "a%20b" as "a b".
std::string Decoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && IsHexDigit(text[i + 1]) &&
        IsHexDigit(text[i + 2])) {
      decoded += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
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
    if (commands.contains(name)) {
      throw Failure(
          fmt::format("{}: line {}: {} has a command already", file.string(), number, name));
    }
    std::vector<std::string>& command = commands[name];
    while (words >> word) command.push_back(word);
    if (command.empty()) {
      throw Failure(fmt::format("{}: line {} has no command", file.string(), number));
    }
  }
  return commands;
}

std::string DeviceOfFolder(const fs::path& folder) {
  constexpr std::string_view kPlain = "-._~/";
  std::string uri(kFolderScheme);
  for (const char c : folder.string()) {
    const auto byte = static_cast<unsigned char>(c);
    const bool plain = byte < 0x80 && (std::isalnum(byte) != 0 || kPlain.find(c) != kPlain.npos);
    uri += plain ? std::string(1, c) : fmt::format("%{:02X}", byte);
  }
  return uri;
}

bool IsPipeDevice(const std::string& uri) { return uri.starts_with(kPipeScheme); }

const std::vector<std::string>& CommandOfDevice(const std::string& uri,
                                                const DeviceRights& allowed) {
  const auto command = allowed.commands.find(uri.substr(std::min(uri.size(), kPipeScheme.size())));
  if (!IsPipeDevice(uri) || command == allowed.commands.end()) {
    throw Failure(uri + ": the server was given no command of that name");
  }
  return command->second;
}

bool IsFolderDevice(const std::string& uri) { return uri.starts_with(kFolderScheme); }

fs::path FolderOfDevice(const std::string& uri, const DeviceRights& allowed) {
  const fs::path path =
      IsFolderDevice(uri) ? Decoded(uri.substr(kFolderScheme.size())) : std::string();
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
  if (IsFolderDevice(uri)) {
    FolderOfDevice(uri, allowed);
  } else if (IsPipeDevice(uri)) {
    CommandOfDevice(uri, allowed);
  } else if (!uri.starts_with(kSocketScheme)) {
    throw Failure(uri + ": a device is folder:///PATH, pipe://NAME or socket://HOST:PORT");
  }
}

void AddDeviceSchemes(const DeviceRights& allowed) {
  rights = &allowed;
  papplDeviceAddScheme("folder", PAPPL_DEVTYPE_CUSTOM_LOCAL, nullptr, &OpenFolder, &CloseNothing,
                       &ReadNothing, &RefuseBytes, &NoReasons, nullptr);
  papplDeviceAddScheme("pipe", PAPPL_DEVTYPE_CUSTOM_LOCAL, nullptr, &OpenPipe, &CloseNothing,
                       &ReadNothing, &RefuseBytes, &NoReasons, nullptr);
}

}  // namespace corvane
