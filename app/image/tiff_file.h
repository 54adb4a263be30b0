// SPDX-License-Identifier: MIT
//
// An open TIFF file: its pages, its fields and what its library complains of.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <memory>
#include <string>

namespace corvane {

// What the files of planes that `corvane print` writes call the software that made them.
inline constexpr char kTiffSoftware[] = "Corvane";

struct CloseTiff {
  void operator()(TIFF* file) const { TIFFClose(file); }
};
using TiffFile = std::unique_ptr<TIFF, CloseTiff>;

// Throws Failure with what the library last complained of on this thread, or std::bad_alloc.
[[noreturn]] void FailAsDamaged(const std::string& path);

// At its first directory.
TiffFile OpenTiffFile(const std::string& path);

// At any directory, counted from 0.
TiffFile OpenTiffDirectory(const std::string& path, int directory);

// Whether no directory follows the present one. Throws Failure when the file does not say.
bool IsLastTiffDirectory(TIFF* file, const std::string& path);

// At a page, counted from 0 without reduced images and masks. No other page can be reached by it.
TiffFile OpenTiffPage(const std::string& path, int page);

// Before and after the library decodes; `done` is whether it says that it did. Fails also when it
// did not decode everything: the decoders of fax and JPEG data succeed with blank rows when the
// data end too early or are not understood.
void StartDecoding();
void FinishDecoding(const std::string& path, bool done);

template <typename T>
T Field(TIFF* file, ttag_t tag, T otherwise) {
  T value = otherwise;
  return TIFFGetFieldDefaulted(file, tag, &value) != 0 ? value : otherwise;
}

// Pixels per inch; 0: the file does not say.
struct TiffResolution {
  double horizontal = 0, vertical = 0;
};

TiffResolution ResolutionOf(TIFF* file);

// Layout of the samples in the file.
struct Samples {
  int perPixel = 1;
  int bits = 1;
  int format = SAMPLEFORMAT_UINT;
  int photometric = PHOTOMETRIC_MINISWHITE;
  bool separate = false;
  bool tiled = false;
  int extraCount = 0;  // samples behind the colours
  bool spare = false;  // one of them is of no known kind
  int extra = 0;       // kind of the first sample behind the colours, EXTRASAMPLE_...
};

Samples ReadSamples(TIFF* file);

}  // namespace corvane
