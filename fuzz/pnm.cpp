// SPDX-License-Identifier: MIT
#include "fuzz/pictures.h"

FUZZ_TARGET(pnm, input) { corvane::fuzz::ReadPictures(input); }
