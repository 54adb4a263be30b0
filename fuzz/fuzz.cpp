// SPDX-License-Identifier: MIT
#include "fuzz/fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace corvane::fuzz {

std::vector<Target>& Targets() {
  static std::vector<Target> targets;
  return targets;
}

std::string FileOf(Bytes bytes) {
  static const int file = memfd_create("fuzz", MFD_CLOEXEC);
  const auto size = static_cast<off_t>(bytes.size());
  FUZZ_EXPECT(ftruncate(file, 0) == 0);
  FUZZ_EXPECT(pwrite(file, bytes.data(), bytes.size(), 0) == size);
  return "/proc/self/fd/" + std::to_string(file);
}

void Broken(const char* condition) {
  std::fprintf(stderr, "broken promise: %s\n", condition);
  std::abort();
}

}  // namespace corvane::fuzz
