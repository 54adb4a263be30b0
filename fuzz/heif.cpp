// SPDX-License-Identifier: MIT
#include "app/child/child.h"
#include "fuzz/pictures.h"

// The module takes it from the program, of which nothing else here makes it a part.
[[gnu::used]] static auto* const kUsedByTheModule = &corvane::OneLine;

FUZZ_TARGET(heif, input) { corvane::fuzz::ReadPictures(input); }
