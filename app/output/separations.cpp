// SPDX-License-Identifier: MIT
#include "app/output/separations.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <string_view>
#include <utility>

#include "app/page/settings.h"
#include "app/support/failure.h"
#include "app/support/short_memory.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

constexpr std::size_t kMostStripBytes = std::size_t{2} << 20;
constexpr std::size_t kSlack = 8;

const char* TextField(TIFF* file, ttag_t tag) {
  char* text = nullptr;
  return TIFFGetField(file, tag, &text) == 0 ? nullptr : text;
}

// The medium in a description. Files of earlier versions do not tell.
int MediaTypeIn(std::string_view description) {
  constexpr std::string_view kMark = ", medium ";
  const std::size_t mark = description.rfind(kMark);
  if (mark == std::string_view::npos) return PageShape().mediaType;
  const auto word = std::ranges::find(kMediaType.words, description.substr(mark + kMark.size()),
                                      &SettingWord::word);
  return word == kMediaType.words.end() ? PageShape().mediaType : word->value;
}

}  // namespace

SeparationReader::SeparationReader(const std::string& path) : path_(path) {
  if (!std::ifstream(path)) FailOfSystem(path, errno);
  do {
    AddPlane(static_cast<tdir_t>(planes_.size()));
  } while (!IsLastTiffDirectory(planes_.back().file.get(), path_));
  row_.resize(shape_.rowBytes + kSlack);
}

const std::uint8_t* SeparationReader::ReadRow() {
  for (std::size_t i = 0; i < planes_.size(); ++i) {
    const PlaneShape& shape = shape_.planes[i];
    std::uint8_t* const to = row_.data() + shape.offset;
    ReadPlaneRow(i, to);
    to[shape.bytes - 1] &= planes_[i].lastByte;
  }
  ++rowNumber_;
  return row_.data();
}

void SeparationReader::ReadPlaneRow(std::size_t index, std::uint8_t* to) {
  Plane& plane = planes_[index];
  const PlaneShape& shape = shape_.planes[index];
  const auto fail = [&] {
    ThrowIfMemoryFailed();
    throw Failure(
        fmt::format("{}: row {} of plane {} cannot be read", path_, rowNumber_, shape.name));
  };
  StartDecoding();
  if (plane.stripBytes == 0) {
    if (TIFFReadScanline(plane.file.get(), to, rowNumber_) < 0) fail();
    FinishDecoding(path_, true);
    return;
  }
  const std::uint32_t strip = rowNumber_ / plane.rowsPerStrip;
  const std::size_t begin = (rowNumber_ % plane.rowsPerStrip) * shape.bytes;
  if (plane.strip.empty() || plane.held != strip) {
    plane.strip.resize(plane.stripBytes);
    const tmsize_t got = TIFFReadEncodedStrip(plane.file.get(), strip, plane.strip.data(),
                                              static_cast<tmsize_t>(plane.stripBytes));
    if (got < static_cast<tmsize_t>(begin + shape.bytes)) {
      plane.strip.clear();
      fail();
    }
    FinishDecoding(path_, true);
    plane.held = strip;
  }
  std::memcpy(to, plane.strip.data() + begin, shape.bytes);
}

void SeparationReader::FailOfKind() const {
  throw Failure(path_ + ": is not a file of binary planes written by corvane print");
}

void SeparationReader::AddPlane(tdir_t directory) {
  Plane plane;
  plane.file = OpenTiffDirectory(path_, directory);
  TIFF* const file = plane.file.get();
  const auto width = Field<std::uint32_t>(file, TIFFTAG_IMAGEWIDTH, 0);
  const auto rows = Field<std::uint32_t>(file, TIFFTAG_IMAGELENGTH, 0);
  const auto horizontal = Field<float>(file, TIFFTAG_XRESOLUTION, 0);
  const auto vertical = Field<float>(file, TIFFTAG_YRESOLUTION, 0);
  const char* const name = TextField(file, TIFFTAG_PAGENAME);
  const char* const description = TextField(file, TIFFTAG_IMAGEDESCRIPTION);
  const Samples samples = ReadSamples(file);
  if (samples.bits != 1 || samples.perPixel != 1 || width == 0 || rows == 0 || samples.tiled ||
      !(horizontal > 0) || !(vertical > 0) || name == nullptr || description == nullptr) {
    FailOfKind();
  }
  int descriptor = 0;
  if (std::sscanf(description, "Print mode %d", &descriptor) != 1) FailOfKind();
  shape_.mode = FindPrintMode(descriptor);
  if (shape_.mode == nullptr || (!planes_.empty() && shape_.rows != rows)) FailOfKind();
  const char* const alternate = std::strstr(description, ", alternate mode ");
  if (alternate != nullptr) std::sscanf(alternate, ", alternate mode %d", &shape_.alternateMode);
  shape_.mediaType = MediaTypeIn(description);
  const char* const title = TextField(file, TIFFTAG_DOCUMENTNAME);
  if (title != nullptr) shape_.title = title;
  shape_.rows = rows;
  shape_.verticalDpi = static_cast<double>(vertical);

  PlaneShape shape;
  shape.name = name;
  const std::optional<Ink> ink = FindInk(shape.name.substr(0, shape.name.find(' ')));
  if (!ink) FailOfKind();
  shape.ink = *ink;
  shape.bit = shape.name.ends_with(" bit 1") ? 1 : 0;
  shape.width = width;
  shape.horizontalDpi = static_cast<double>(horizontal);
  shape.offset = shape_.rowBytes;
  shape.bytes = static_cast<std::size_t>(TIFFScanlineSize64(file));
  shape_.rowBytes += shape.bytes;
  plane.rowsPerStrip = Field<std::uint32_t>(file, TIFFTAG_ROWSPERSTRIP, rows);
  const std::uint64_t stripBytes = TIFFStripSize64(file);
  if (plane.rowsPerStrip > 0 && stripBytes <= kMostStripBytes) {
    plane.stripBytes = static_cast<std::size_t>(stripBytes);
  }
  if (width % 8 != 0) plane.lastByte = static_cast<std::uint8_t>(0xFF00 >> width % 8);
  shape_.planes.push_back(std::move(shape));
  planes_.push_back(std::move(plane));
}

}  // namespace corvane
