// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

namespace corvane {

// What went wrong, in one line that names the file or argument. Ends the command with status 1.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A command line that cannot be carried out. Ends the command with status 2.
class UsageFailure : public Failure {
 public:
  using Failure::Failure;
};

}  // namespace corvane
