// SPDX-License-Identifier: MIT
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

#include "app/commands/command_line.h"
#include "app/commands/job.h"
#include "app/support/abnormal_end.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/message.h"
#include "app/support/platform.h"

namespace {

constexpr const char* kOutOfMemory = "corvane: out of memory\n";

// Memory that goes back when there is no more, so that what is cleared up has some.
constexpr std::size_t kReserveBytes = std::size_t{1} << 20;
std::atomic<void*> reserve;

[[noreturn]] void GiveReserveBack() {
  std::free(reserve.exchange(nullptr));  // NOLINT(cppcoreguidelines-no-malloc): taken by malloc
  throw std::bad_alloc();
}

// What a command without memory ends with: `job run` may succeed when it is tried again.
int statusWithoutMemory = 1;

// Where there is no memory at all not every failure can be caught: the JSON library takes some to
// destroy values, and an exception needs a place.
[[noreturn]] void EndWithoutUnwinding() {
  if (reserve != nullptr) std::abort();
  corvane::EndAbnormally(statusWithoutMemory);
}

}  // namespace

int main(int argc, char** argv) {
  corvane::KeepMemoryTogether();
  reserve = std::malloc(kReserveBytes);  // NOLINT(cppcoreguidelines-no-malloc): must not throw
  if (argc > 2 && std::strcmp(argv[1], "job") == 0 && std::strcmp(argv[2], "run") == 0) {
    statusWithoutMemory = corvane::kTryAgain;
  }
  std::set_new_handler(GiveReserveBack);
  std::set_terminate(EndWithoutUnwinding);
  try {
    return corvane::RunCommandLine(argc, argv);
  } catch (const corvane::UsageFailure& failure) {
    corvane::Complain(failure.what());
    return 2;
  } catch (const corvane::Interrupted& interrupted) {
    corvane::DieOf(interrupted);
  } catch (const std::bad_alloc&) {
    std::fputs(kOutOfMemory, stderr);
    return statusWithoutMemory;
  } catch (const std::exception& failure) {
    corvane::Complain(failure.what());
  }
  return 1;
}
