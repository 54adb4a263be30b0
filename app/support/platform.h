// SPDX-License-Identifier: MIT
//
// What the operating system tells about this run.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace corvane {

// The file of the program itself.
std::filesystem::path ProgramFile();

std::string HostName();

// That this process may use; at least 1.
int ProcessorCount();

// The most memory that this process has taken.
std::uint64_t PeakMemoryBytes();

// Of the terminal that the error stream goes to; 0 when that is none.
int TerminalColumns();

}  // namespace corvane
