// SPDX-License-Identifier: MIT
#pragma once

#include <cups/raster.h>

#include <string>

#include "app/image/page_stream.h"

namespace corvane {

// The page that a raster header describes, under a name for messages. Throws Failure for what is
// neither sRGB with 24 bits nor grey with 8.
StreamedPage PageOfRaster(const cups_page_header2_t& header, const std::string& name);

}  // namespace corvane
