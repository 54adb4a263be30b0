// SPDX-License-Identifier: MIT
#include "app/image/pictures.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>

#include "app/support/failure.h"
#include "app/support/platform.h"
#include "app/support/short_memory.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

struct Module {
  const char* name;
  const char* inputs;   // that it reads
  const char* package;  // that it is built with
};

constexpr Module kWebp = {"webp", "WebP pictures", "libwebp-dev"};
constexpr Module kHeif = {"heif", "HEIC and AVIF pictures", "libheif-dev"};
constexpr Module kJxl = {"jxl", "JPEG XL pictures", "libjxl-dev"};
constexpr Module kExr = {"exr", "OpenEXR pictures", "libopenexr-dev"};
constexpr Module kCups = {"cups_raster", "raster streams", "libcups2-dev"};

// A function of the module, which stays loaded. Throws Failure for the input that needs it.
template <class Function>
Function* FunctionOf(const Module& module, const char* symbol, const std::string& input) {
  const fs::path folder = ProgramFile().parent_path();
  const std::string name = fmt::format("corvane-{}.so", module.name);
  std::error_code ignored;
  fs::path file = folder / "../lib" / name;  // where it is built
  if (!fs::exists(file, ignored)) file = folder / CORVANE_PLUGIN_DIR / name;
  if (!fs::exists(file, ignored)) {
    throw Failure(fmt::format("{}: {} are not read by this build: install {} and build again",
                              input, module.inputs, module.package));
  }
  StartWatchingMemory();
  void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_NODELETE);
  void* const function = library == nullptr ? nullptr : dlsym(library, symbol);
  if (function == nullptr) {
    ThrowIfMemoryFailed();
    throw Failure(fmt::format("{}: {} cannot be read: {}", input, module.inputs, dlerror()));
  }
  return reinterpret_cast<Function*>(function);
}

std::unique_ptr<ImageReader> OpenPicture(const Module& module, const std::string& path, int page) {
  const auto open = FunctionOf<decltype(CorvaneOpenPicture)>(module, "CorvaneOpenPicture", path);
  return std::unique_ptr<ImageReader>(open(path, page));
}

}  // namespace

std::unique_ptr<ImageReader> OpenWebp(const std::string& path) {
  return OpenPicture(kWebp, path, 0);
}

std::unique_ptr<ImageReader> OpenJxl(const std::string& path) { return OpenPicture(kJxl, path, 0); }

std::unique_ptr<ImageReader> OpenExr(const std::string& path) { return OpenPicture(kExr, path, 0); }

std::unique_ptr<ImageReader> OpenHeif(const std::string& path, int page) {
  return OpenPicture(kHeif, path, page);
}

int CountHeifPages(const std::string& path) {
  return FunctionOf<decltype(CorvaneCountPictures)>(kHeif, "CorvaneCountPictures", path)(path);
}

std::unique_ptr<PageStream> OpenCupsRaster(std::unique_ptr<InputStream> input) {
  const auto open =
      FunctionOf<decltype(CorvaneOpenRaster)>(kCups, "CorvaneOpenRaster", input->Name());
  return std::unique_ptr<PageStream>(open(input));
}

}  // namespace corvane
