// SPDX-License-Identifier: MIT
//
// An image from its file to its place on the sheet.
#pragma once

#include <memory>

#include "app/image/reader.h"
#include "app/image/row_source.h"
#include "app/page/place.h"
#include "app/page/placing.h"

namespace corvane {

struct PlacedImage {
  std::unique_ptr<RowSource> rows;  // sRGB, upright and turned; a fourth byte is a tag
  Placement placement;
  int degrees = 0;  // that it is turned by
};

// Throws UsageFailure when there is no room for it, and what MakeSrgbRows throws.
PlacedImage OpenPlaced(std::unique_ptr<ImageReader> image, const Sheet& sheet,
                       const ImagePlacing& placing);

}  // namespace corvane
