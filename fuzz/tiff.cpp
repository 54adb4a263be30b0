// SPDX-License-Identifier: MIT
#include "fuzz/pictures.h"

FUZZ_TARGET(tiff, input) { corvane::fuzz::ReadPictures(input); }
