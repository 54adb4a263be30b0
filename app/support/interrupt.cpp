// SPDX-License-Identifier: MIT
#include "app/support/interrupt.h"

#include <csignal>
#include <cstdlib>
#include <initializer_list>

namespace corvane {
namespace {

volatile std::sig_atomic_t caught = 0;

void OnSignal(int signal) {
  if (caught != 0) std::signal(signal, SIG_DFL);
  caught = signal;
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
  if (caught != 0) throw Interrupted{caught};
}

void DieOf(const Interrupted& interrupted) {
  std::signal(interrupted.signal, SIG_DFL);
  std::raise(interrupted.signal);
  std::_Exit(128 + interrupted.signal);
}

}  // namespace corvane
