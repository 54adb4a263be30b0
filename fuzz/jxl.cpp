// SPDX-License-Identifier: MIT
#include "fuzz/pictures.h"

FUZZ_TARGET(jxl, input) { corvane::fuzz::ReadPictures(input); }
