// SPDX-License-Identifier: MIT
#pragma once

#include "fuzz/fuzz.h"

namespace corvane::fuzz {

// Reads the pages of an image file as `corvane print` does: the pixels as sRGB, turned upright.
void ReadPictures(Bytes file);

}  // namespace corvane::fuzz
