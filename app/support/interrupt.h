// SPDX-License-Identifier: MIT
#pragma once

namespace corvane {

// From here on SIGINT, SIGTERM and SIGHUP only raise a flag, so that a command can remove what it
// has begun to write; a second SIGINT ends the program at once. A pipe that nobody reads any more
// no longer ends the program where it writes: Descriptor throws Interrupted.
void CatchInterrupts();

// Thrown by ThrowIfInterrupted; not an error that is reported.
struct Interrupted {
  int signal;
};

void ThrowIfInterrupted();

// Ends the program by the signal, as if it had never been caught.
[[noreturn]] void DieOf(const Interrupted& interrupted);

}  // namespace corvane
