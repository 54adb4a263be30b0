// SPDX-License-Identifier: MIT
#include "app/image/pictures.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "app/support/failure.h"
#include "app/support/platform.h"
#include "app/support/short_memory.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

// How many threads are in a library that reads pictures. Some libraries, and threads of theirs, say
// what is wrong with a picture in lines of their own, and have no switch for it; the program says
// it in one of its own.
std::atomic<int> callsOfLibraries = 0;

class Quiet {
 public:
  Quiet() { ++callsOfLibraries; }
  ~Quiet() { --callsOfLibraries; }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;
};

bool IsUnwanted(const std::FILE* stream) { return callsOfLibraries > 0 && stream == stderr; }

class QuietReader : public ImageReader {
 public:
  explicit QuietReader(std::unique_ptr<ImageReader> reader) : reader_(std::move(reader)) {
    info_ = reader_->Info();
  }
  ~QuietReader() override {
    const Quiet quiet;
    reader_.reset();
  }
  QuietReader(const QuietReader&) = delete;
  QuietReader& operator=(const QuietReader&) = delete;

  void ReadRow(std::uint8_t* row) override {
    const Quiet quiet;
    reader_->ReadRow(row);
  }

 private:
  std::unique_ptr<ImageReader> reader_;
};

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
  const Quiet quiet;
  return std::make_unique<QuietReader>(std::unique_ptr<ImageReader>(open(path, page)));
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
  const auto count =
      FunctionOf<decltype(CorvaneCountPictures)>(kHeif, "CorvaneCountPictures", path);
  const Quiet quiet;
  return count(path);
}

std::unique_ptr<PageStream> OpenCupsRaster(std::unique_ptr<InputStream> input) {
  const auto open =
      FunctionOf<decltype(CorvaneOpenRaster)>(kCups, "CorvaneOpenRaster", input->Name());
  return std::unique_ptr<PageStream>(open(input));
}

}  // namespace corvane

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl50-cpp,cert-dcl51-cpp): these stand
// before those of the C library, by which the system's libraries write to a stream.
extern "C" {

int __vfprintf_chk(std::FILE* stream, int, const char* format, std::va_list arguments) {
  return corvane::IsUnwanted(stream) ? 0 : std::vfprintf(stream, format, arguments);
}

int __fprintf_chk(std::FILE* stream, int flag, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int written = __vfprintf_chk(stream, flag, format, arguments);
  va_end(arguments);
  return written;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl50-cpp,cert-dcl51-cpp)
