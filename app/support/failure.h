// SPDX-License-Identifier: MIT
#pragma once

#include <new>
#include <stdexcept>
#include <string>

#include "app/support/abnormal_end.h"

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

// What may pass by itself: a disk that is full, a server that is away. Trying again may succeed.
class TransientFailure : public Failure {
 public:
  using Failure::Failure;
};

// An output that cannot be written. What comes after it would not fare better.
class OutputFailure : public TransientFailure {
 public:
  using TransientFailure::TransientFailure;
};

// Throws what the system says of a file by errno: a TransientFailure where a later try may find it
// readable, since its disk or server is away or this machine has run out of something.
[[noreturn]] void FailOfSystem(const std::string& file, int problem);

// The result of `work`; memory that is short in it becomes a failure of what `name` names.
template <typename Work>
auto NamingMemory(const std::string& name, const Work& work) {
  const NameInWork inWork(name);
  try {
    return work();
  } catch (const std::bad_alloc&) {
    throw TransientFailure(name + ": out of memory");
  }
}

// The result of `work`, which is done a second time when it fails for good: a library that lacks a
// file, a thread or memory may call what it reads damaged. `work` leaves nothing when it fails.
template <typename Work>
auto TryTwice(const Work& work) {
  try {
    return work();
  } catch (const UsageFailure&) {
    throw;
  } catch (const TransientFailure&) {
    throw;
  } catch (const Failure&) {
    return work();
  }
}

}  // namespace corvane
