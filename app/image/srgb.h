// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "app/image/reader.h"
#include "app/image/row_source.h"

namespace corvane {

// The pixels of an image as sRGB, three bytes each, and a fourth with the tag where the image is
// tagged: through the image's profile when it has one
// that fits its pixels, over white where the image is transparent. Without a profile RGB and grey
// are taken for sRGB, and ink amounts are subtracted from white.
std::unique_ptr<RowSource> MakeSrgbRows(std::unique_ptr<ImageReader> image);

// The pixels of a grey image without colour management, one byte each. Throws Failure when the
// image is not grey.
std::unique_ptr<RowSource> MakeGreyRows(std::unique_ptr<ImageReader> image);

// The image with its first row at the top and its first column at the left, as its orientation
// (1 to 8) says. Passes rows on where that keeps their order; else it stores them in a scratch
// file.
std::unique_ptr<RowSource> MakeUprightRows(std::unique_ptr<RowSource> rows, int orientation);

// The orientation of an image that is to stand upright and then turned clockwise by `degrees`, a
// multiple of 90 from 0 on.
int TurnedOrientation(int orientation, int degrees);
// Whether an orientation makes rows of columns.
bool SwapsSides(int orientation);

}  // namespace corvane
