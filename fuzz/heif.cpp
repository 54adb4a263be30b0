// SPDX-License-Identifier: MIT
#include "fuzz/pictures.h"

FUZZ_TARGET(heif, input) { corvane::fuzz::ReadPictures(input); }
