// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "app/image/page_stream.h"

namespace corvane {

// PBM, PGM, PPM (P4 to P6) and PAM (P7) images, one behind the other, of 1 to 16 bits a sample.
// Tuples of PAM: BLACKANDWHITE, GRAYSCALE, RGB, each with _ALPHA too, CMYK, and RGB_TAG, where a
// tag stands before each pixel: 0 untouched, 1 text, 2 image, 4 line art. Images become
// photographs, all others graphics.
std::unique_ptr<PageStream> OpenPnmStream(std::unique_ptr<InputStream> input);

}  // namespace corvane
