// SPDX-License-Identifier: MIT
//
// Kinds of input whose libraries may be missing, where the program is built or where it runs. Each
// is a module beside the program, corvane-NAME.so, that is loaded when such an input is met: nobody
// else waits until the many libraries behind it are loaded. A module uses the program's own
// functions, so the program exports them.
#pragma once

#include <memory>
#include <string>

#include "app/image/page_stream.h"
#include "app/image/reader.h"

namespace corvane {

// These load the module. They throw Failure, naming the input and the package of the library, when
// it is missing.
std::unique_ptr<ImageReader> OpenWebp(const std::string& path);
std::unique_ptr<ImageReader> OpenJxl(const std::string& path);
std::unique_ptr<ImageReader> OpenExr(const std::string& path);

// HEIC and AVIF.
std::unique_ptr<ImageReader> OpenHeif(const std::string& path, int page);
int CountHeifPages(const std::string& path);

// PWG raster and CUPS raster, versions 1 to 3, of 1 (black and grey alone), 8 or 16 bits a colour:
// grey, black, RGB, sRGB, Adobe RGB and CMYK, pixel by pixel or colour by colour in each row. A
// page whose header has an imaging box smaller than its sheet has the margins around it in white.
std::unique_ptr<PageStream> OpenCupsRaster(std::unique_ptr<InputStream> input);

}  // namespace corvane

// What the modules define; the caller owns what is returned.
extern "C" {
corvane::ImageReader* CorvaneOpenPicture(const std::string& path, int page);
int CorvaneCountPictures(const std::string& path);  // of HEIF files
corvane::PageStream* CorvaneOpenRaster(std::unique_ptr<corvane::InputStream>& input);
}
