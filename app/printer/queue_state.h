// SPDX-License-Identifier: MIT
//
// The framework's file of printers and jobs, kept so that the server may end at any moment.
#pragma once

#include <pappl/pappl.h>

#include <filesystem>
#include <functional>
#include <string>

namespace corvane {

struct QueueFiles {
  std::filesystem::path state;  // the framework's file
  std::filesystem::path spool;  // its folder of documents and of their jobs' options
};

// Saves it now and whenever the framework does, as a whole or not at all. To be called once it was
// loaded; a job is in it before its document is taken, so that no job is lost that was answered
// for.
void KeepQueue(pappl_system_t* system, const QueueFiles& files);

// The device that a printer has from now on, by its name and the URI that it had. Throws Failure
// for one that may not be used.
using DeviceOfPrinter = std::function<std::string(const std::string& name, const std::string& uri)>;

// To be called before it is loaded: a job that was being printed is one to be printed, and so is
// one whose document came into the spool folder after the file was saved. Options that were cut
// short are those again that the job came with. Throws Failure when the file cannot be read or was
// cut short, and when a printer's device may not be used: the framework would load the queue
// without what is missing, and save it so.
void ReviveJobs(const QueueFiles& files, const DeviceOfPrinter& deviceOf);

// Has the printers go on with the jobs that were loaded, which the framework lets wait for a new
// one, as soon as the system runs.
void ResumePrinters(pappl_system_t* system);

}  // namespace corvane
