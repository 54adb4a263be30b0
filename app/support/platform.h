// SPDX-License-Identifier: MIT
//
// What the operating system tells about this run.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace corvane {

// For std::fopen: to be read as bytes, and by no child of this process.
extern const char* const kReadStream;

// Where temporary files lie: TMPDIR or /tmp; on Windows the user's own folder for them.
std::filesystem::path TemporaryFolder();

// The file of the program itself.
std::filesystem::path ProgramFile();

// The same text for all spellings under which the file system finds one file: on Windows letters
// of either case.
std::string FileNameKey(const std::filesystem::path& name);

std::string HostName();

// That this process may use; at least 1.
int ProcessorCount();

// The most memory that this process has taken.
std::uint64_t PeakMemoryBytes();

// For a program of many pages, before its first thread starts: what a page has freed the next one
// finds. The GNU C library would keep a part for each of a dozen threads, and buffers of a page
// among what is kept of all, so that the program grew with their number.
void KeepMemoryTogether();

// Of the terminal that the error stream goes to; 0 when that is none.
int TerminalColumns();

}  // namespace corvane
