// SPDX-License-Identifier: MIT
//
// Memory that is short within a library, which answers it as it answers damage, or goes on without
// what it found no room for. An allocation that fails sets errno, which nothing sets back.
#pragma once

#include <cerrno>
#include <new>

namespace corvane {

inline void StartWatchingMemory() { errno = 0; }

// Throws std::bad_alloc when an allocation of this thread has failed since.
inline void ThrowIfMemoryFailed() {
  if (errno == ENOMEM) throw std::bad_alloc();
}

}  // namespace corvane
