// SPDX-License-Identifier: MIT
//
// The program inside a test.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/commands/command_line.h"
#include "tests/app/support/failure_of.h"

namespace corvane {

// Returns the exit status; throws Failure as the command does.
inline int RunCorvane(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "corvane");
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  return RunCommandLine(static_cast<int>(pointers.size()), pointers.data());
}

// What the command prints.
inline std::string Output(const std::vector<std::string>& arguments, int status = 0) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(RunCorvane(arguments), status);
  return testing::internal::GetCapturedStdout();
}

// What the command complains of.
inline std::string Complaint(const std::vector<std::string>& arguments) {
  return FailureOf([&] { RunCorvane(arguments); });
}

}  // namespace corvane
