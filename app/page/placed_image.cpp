// SPDX-License-Identifier: MIT
#include "app/page/placed_image.h"

#include <utility>

#include "app/image/srgb.h"

namespace corvane {
namespace {

ImageSize SizeOf(const ImageInfo& image, int orientation) {
  if (!SwapsSides(orientation)) {
    return {image.width, image.height, image.horizontalDpi, image.verticalDpi};
  }
  return {image.height, image.width, image.verticalDpi, image.horizontalDpi};
}

}  // namespace

PlacedImage OpenPlaced(std::unique_ptr<ImageReader> image, const Sheet& sheet,
                       const ImagePlacing& placing) {
  const ImageInfo& info = image->Info();
  PlacedImage placed;
  placed.degrees = DegreesOf(placing, SizeOf(info, info.orientation), sheet);
  const int orientation = TurnedOrientation(info.orientation, placed.degrees);
  placed.placement = PlaceImage(SizeOf(info, orientation), sheet, placing);
  placed.rows = MakeUprightRows(MakeSrgbRows(std::move(image)), orientation);
  return placed;
}

}  // namespace corvane
