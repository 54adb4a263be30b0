// SPDX-License-Identifier: MIT
//
// Where printhead data go: the schemes of devices that the printer application adds to those of its
// framework. What they may reach is said when the server is started, never by a job or by who adds
// a printer.
//
//   folder:///PATH  a folder at or below the server's own; jobs get folders in it
//   pipe://NAME     the command of that name in the server's list of commands
//
// Of the framework's schemes socket://HOST:PORT is taken alone.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "app/support/failure.h"

namespace corvane {

// What a device has not done. The printer is to blame and not the job.
class DeviceFailure : public Failure {
 public:
  using Failure::Failure;
};

struct DeviceRights {
  std::filesystem::path folder;                              // empty: no folder may be written
  std::map<std::string, std::vector<std::string>> commands;  // words, by the names of pipes
};

// Reads a list of commands: a line each, the name and the words behind it, separated by blanks; a
// line that begins with # says nothing. Throws Failure naming file and line, for a second command
// of one name, too.
std::map<std::string, std::vector<std::string>> ReadPipeCommands(const std::filesystem::path& file);

// The URI of a folder: letters that it cannot have are percent-encoded.
std::string DeviceOfFolder(const std::filesystem::path& folder);

// The folder that a device's URI names, if the rights hold for it. Throws Failure.
std::filesystem::path FolderOfDevice(const std::string& uri, const DeviceRights& rights);

// The words of the command that a device's URI names. Throws Failure when the server has none of
// that name.
const std::vector<std::string>& CommandOfDevice(const std::string& uri, const DeviceRights& rights);

// Throws Failure for a folder or command that the rights do not hold for, and for other devices.
void CheckDevice(const std::string& uri, const DeviceRights& rights);

bool IsFolderDevice(const std::string& uri);
bool IsPipeDevice(const std::string& uri);

// Makes the schemes known. The rights are used as long as the process lives.
void AddDeviceSchemes(const DeviceRights& rights);

}  // namespace corvane
