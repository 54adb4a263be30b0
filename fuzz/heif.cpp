// SPDX-License-Identifier: MIT
#include "app/child/child.h"
#include "fuzz/pictures.h"

// The module takes it from the program, of which nothing else here makes it a part.
[[gnu::used]] static auto* const kUsedByTheModule = &corvane::OneLine;

// The decoder of AVIF pictures (dav1d 1.0.0) loses a few bytes of some damaged ones.
extern "C" const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier): so called
  return "leak:libdav1d";
}

FUZZ_TARGET(heif, input) { corvane::fuzz::ReadPictures(input); }
