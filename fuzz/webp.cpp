// SPDX-License-Identifier: MIT
#include "fuzz/pictures.h"

FUZZ_TARGET(webp, input) { corvane::fuzz::ReadPictures(input); }
