// SPDX-License-Identifier: MIT
#include "fuzz/pictures.h"

FUZZ_TARGET(png, input) { corvane::fuzz::ReadPictures(input); }
