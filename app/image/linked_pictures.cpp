// SPDX-License-Identifier: MIT
//
// For systems on which a module cannot use the program's own functions: WebP pictures are read by
// the program itself, and the other kinds not at all.
#include "app/image/pictures.h"
#include "app/support/failure.h"

namespace corvane {
namespace {

[[noreturn]] void Refuse(const std::string& input, const char* kind) {
  throw Failure(input + ": " + kind + " are not read on this system");
}

}  // namespace

std::unique_ptr<ImageReader> OpenWebp(const std::string& path) {
  return std::unique_ptr<ImageReader>(CorvaneOpenPicture(path, 0));
}

std::unique_ptr<ImageReader> OpenJxl(const std::string& path) { Refuse(path, "JPEG XL pictures"); }

std::unique_ptr<ImageReader> OpenExr(const std::string& path) { Refuse(path, "OpenEXR pictures"); }

std::unique_ptr<ImageReader> OpenHeif(const std::string& path, int) {
  Refuse(path, "HEIC and AVIF pictures");
}

int CountHeifPages(const std::string& path) { Refuse(path, "HEIC and AVIF pictures"); }

std::unique_ptr<PageStream> OpenCupsRaster(std::unique_ptr<InputStream> input) {
  Refuse(input->Name(), "raster streams");
}

}  // namespace corvane
