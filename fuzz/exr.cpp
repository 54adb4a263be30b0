// SPDX-License-Identifier: MIT
#include "fuzz/pictures.h"

FUZZ_TARGET(exr, input) { corvane::fuzz::ReadPictures(input); }
