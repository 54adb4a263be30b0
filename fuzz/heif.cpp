// SPDX-License-Identifier: MIT
#include "app/child/child.h"
#include "fuzz/pictures.h"

// The module takes it from the program, of which nothing else here makes it a part.
[[gnu::used]] static auto* const kUsedByTheModule = &corvane::OneLine;

// Of some damaged AVIF pictures the decoder (dav1d 1.0.0) loses a few bytes, and the library
// (libheif 1.15) the picture that it has begun; nothing of ours makes one.
extern "C" const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier): so called
  return "leak:libdav1d\nleak:heif_image_create\n";
}

FUZZ_TARGET(heif, input) { corvane::fuzz::ReadPictures(input); }
