// SPDX-License-Identifier: MIT
#include "fuzz/pictures.h"

FUZZ_TARGET(cups_raster, input) { corvane::fuzz::ReadPictures(input); }
