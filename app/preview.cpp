// SPDX-License-Identifier: MIT
#include "app/preview.h"

#include <fmt/format.h>
#include <tiffio.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string_view>
#include <vector>

#include "app/failure.h"
#include "app/interrupt.h"
#include "app/output_file.h"
#include "app/output_staged.h"
#include "app/preview_sink.h"
#include "app/print_settings.h"

namespace corvane {
namespace {

struct CloseTiff {
  void operator()(TIFF* file) const { TIFFClose(file); }
};
using TiffFile = std::unique_ptr<TIFF, CloseTiff>;

// The planes of a page side by side, each through a handle of its own on the same file.
class SeparationReader {
 public:
  explicit SeparationReader(const std::string& path) : path_(path) {
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
    do {
      AddPlane(static_cast<tdir_t>(planes_.size()));
    } while (TIFFLastDirectory(planes_.back().get()) == 0);
    row_.resize(shape_.rowBytes);
  }

  const PageShape& Shape() const { return shape_; }

  // The next row of all planes, valid until the next call.
  const std::uint8_t* ReadRow() {
    for (std::size_t i = 0; i < planes_.size(); ++i) {
      std::uint8_t* const to = row_.data() + shape_.planes[i].offset;
      if (TIFFReadScanline(planes_[i].get(), to, rowNumber_) < 0) {
        throw Failure(fmt::format("{}: row {} of plane {} cannot be read", path_, rowNumber_,
                                  shape_.planes[i].name));
      }
    }
    ++rowNumber_;
    return row_.data();
  }

 private:
  [[noreturn]] void FailOfKind() const {
    throw Failure(path_ + ": is not a file of binary planes written by corvane print");
  }

  void AddPlane(tdir_t directory) {
    TiffFile file(TIFFOpen(path_.c_str(), "rm"));
    if (!file || TIFFSetDirectory(file.get(), directory) == 0) FailOfKind();
    std::uint16_t bits = 0, samples = 1;
    std::uint32_t width = 0, rows = 0;
    float horizontal = 0, vertical = 0;
    char *name = nullptr, *description = nullptr;
    TIFFGetFieldDefaulted(file.get(), TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(file.get(), TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetField(file.get(), TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(file.get(), TIFFTAG_IMAGELENGTH, &rows);
    if (bits != 1 || samples != 1 || width == 0 || rows == 0 || TIFFIsTiled(file.get()) ||
        TIFFGetField(file.get(), TIFFTAG_XRESOLUTION, &horizontal) == 0 ||
        TIFFGetField(file.get(), TIFFTAG_YRESOLUTION, &vertical) == 0 || !(horizontal > 0) ||
        !(vertical > 0) || TIFFGetField(file.get(), TIFFTAG_PAGENAME, &name) == 0 ||
        TIFFGetField(file.get(), TIFFTAG_IMAGEDESCRIPTION, &description) == 0) {
      FailOfKind();
    }
    int descriptor = 0;
    if (std::sscanf(description, "Print mode %d", &descriptor) != 1) FailOfKind();
    shape_.mode = FindPrintMode(descriptor);
    if (shape_.mode == nullptr) FailOfKind();
    if (!planes_.empty() && shape_.rows != rows) FailOfKind();
    shape_.rows = rows;
    shape_.verticalDpi = static_cast<double>(vertical);

    PlaneShape plane;
    plane.name = name;
    const std::string ink = plane.name.substr(0, plane.name.find(' '));
    const auto* known = std::find(std::begin(kInkNames), std::end(kInkNames), ink);
    if (known == std::end(kInkNames)) FailOfKind();
    plane.ink = static_cast<Ink>(known - std::begin(kInkNames));
    plane.bit = plane.name.ends_with(" bit 1") ? 1 : 0;
    plane.width = width;
    plane.horizontalDpi = static_cast<double>(horizontal);
    plane.offset = shape_.rowBytes;
    plane.bytes = static_cast<std::size_t>(TIFFScanlineSize64(file.get()));
    shape_.rowBytes += plane.bytes;
    shape_.planes.push_back(std::move(plane));
    planes_.push_back(std::move(file));
  }

  std::string path_;
  std::vector<TiffFile> planes_;
  PageShape shape_;
  std::vector<std::uint8_t> row_;
  std::uint32_t rowNumber_ = 0;
};

}  // namespace

PreviewSettings PreviewSettingsOf(const PreviewOptions& options, int media) {
  PreviewSettings settings;
  if (!options.inks.empty()) settings.inks = ReadInkData(options.inks);
  settings.media = media;
  settings.dpi = options.dpi;
  if (!options.zoom.empty()) settings.zoom = ParseZoom(options.zoom);
  if (!options.only.empty()) settings.only = ParseInkList(options.only);
  return settings;
}

int RunPreview(const PreviewCommandOptions& options) {
  if (options.preview.picture.empty() && options.preview.inkMap.empty()) {
    throw UsageFailure("nothing to draw: name a file with --output or --ink-map");
  }
  const PreviewSettings settings =
      PreviewSettingsOf(options.preview, SettingValue(kMediaType, options.media) - 1);
  SeparationReader reader(options.separations);

  CheckOutputNames({options.preview.picture, options.preview.inkMap},
                   {options.separations, options.preview.inks});
  OutputStage stage;
  const auto create = [&](const std::string& path) {
    return path.empty() ? nullptr : &stage.Create(path);
  };
  PreviewSink sink(settings, create(options.preview.picture), create(options.preview.inkMap));
  sink.StartPage(reader.Shape());
  for (std::uint32_t row = 0; row < reader.Shape().rows; ++row) {
    ThrowIfInterrupted();
    sink.WriteRow(reader.ReadRow());
  }
  sink.EndPage();
  stage.Commit();
  WriteStandardOutput(PreviewNote(settings) + "\n");
  return 0;
}

}  // namespace corvane
