// SPDX-License-Identifier: MIT
#include "app/support/interrupt.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <initializer_list>

namespace corvane {
namespace {

// Written by a handler, read by every thread.
std::atomic<int> caught = 0;
static_assert(std::atomic<int>::is_always_lock_free);

void OnSignal(int signal) {
  if (caught.exchange(signal) == 0) return;
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

}  // namespace

#if defined(_WIN32)

void CatchInterrupts() {
  for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, &OnSignal);
}

#else

void CatchInterrupts() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    // A signal that was ignored when the program began (nohup) stays so.
    struct sigaction old = {};
    sigaction(signal, nullptr, &old);
    if (old.sa_handler == SIG_IGN) continue;
    struct sigaction action = {};
    action.sa_handler = &OnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
  }
  std::signal(SIGPIPE, SIG_IGN);
  // A file beyond the size limit is an error like a full disk.
  std::signal(SIGXFSZ, SIG_IGN);
}

#endif

void ThrowIfInterrupted() {
  if (const int signal = caught; signal != 0) throw Interrupted{signal};
}

void DieOf(const Interrupted& interrupted) {
  std::signal(interrupted.signal, SIG_DFL);
  std::raise(interrupted.signal);
  std::_Exit(128 + interrupted.signal);
}

}  // namespace corvane
