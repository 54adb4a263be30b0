// SPDX-License-Identifier: MIT
#include "fuzz/pictures.h"

FUZZ_TARGET(jpeg, input) { corvane::fuzz::ReadPictures(input); }
