// SPDX-License-Identifier: MIT
#include "app/printer/raster_header.h"

#include <fmt/format.h>

#include "app/image/raster_sheet.h"
#include "app/image/reader.h"
#include "app/support/failure.h"
#include "app/support/units.h"

namespace corvane {

StreamedPage PageOfRaster(const cups_page_header2_t& header, const std::string& name) {
  StreamedPage described;
  ImageInfo& image = described.image;
  image.path = name;
  image.width = header.cupsWidth;
  image.height = header.cupsHeight;
  CheckImageSize(image.path, image.width, image.height);
  image.horizontalDpi = header.HWResolution[0];
  image.verticalDpi = header.HWResolution[1];
  const bool grey = header.cupsColorSpace == CUPS_CSPACE_SW && header.cupsBitsPerPixel == 8;
  if (!grey && !(header.cupsColorSpace == CUPS_CSPACE_SRGB && header.cupsBitsPerPixel == 24)) {
    throw Failure(
        fmt::format("{}: raster is taken as sRGB with 24 bits or grey with 8", image.path));
  }
  image.form.colour = grey ? PixelForm::Colour::Grey : PixelForm::Colour::Rgb;
  const double width = RasterSheetSide(header.cupsPageSize[0], header.PageSize[0], 0, image.width,
                                       header.HWResolution[0]);
  const double height = RasterSheetSide(header.cupsPageSize[1], header.PageSize[1], 0, image.height,
                                        header.HWResolution[1]);
  described.mediaWidthMm = width / kPointsPerInch * kMillimetresPerInch;
  described.mediaHeightMm = height / kPointsPerInch * kMillimetresPerInch;
  return described;
}

}  // namespace corvane
