// SPDX-License-Identifier: MIT
//
// Image files, read row by row: PNG, JPEG and TIFF in every bit depth and colour type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace corvane {

// What a page's pixels show, by the last byte of a tagged pixel: other values are as kPhotoTag.
inline constexpr std::uint8_t kGraphicsTag = 0;
inline constexpr std::uint8_t kPhotoTag = 2;

// The samples of a pixel, interleaved: the colour channels, then alpha if there is any, then a tag.
struct PixelForm {
  enum class Colour { Grey, Rgb, Cmyk, Lab };

  Colour colour = Colour::Rgb;
  int bits = 8;         // 8, or 16 in the byte order of the machine
  bool alpha = false;   // not multiplied into the colours
  bool tagged = false;  // 8-bit RGB without alpha alone

  int ColourChannels() const { return colour == Colour::Grey ? 1 : colour == Colour::Cmyk ? 4 : 3; }
  int Channels() const { return ColourChannels() + (alpha ? 1 : 0) + (tagged ? 1 : 0); }
  std::size_t BytesPerPixel() const { return static_cast<std::size_t>(Channels()) * bits / 8; }
};

// One page of an image file, as it is stored.
struct ImageInfo {
  std::string path;
  std::uint32_t width = 0;   // pixels
  std::uint32_t height = 0;  // pixels
  double horizontalDpi = 0;  // 0: the file does not say
  double verticalDpi = 0;
  int orientation = 1;  // where the first row and column belong: 1 to 8 as in TIFF and EXIF
  PixelForm form;
  std::vector<std::uint8_t> profile;  // ICC profile of the pixels; empty: none

  std::size_t RowBytes() const { return form.BytesPerPixel() * width; }
};

// Reads one page. Every member throws Failure, naming the file, when the file is damaged.
class ImageReader {
 public:
  virtual ~ImageReader() = default;

  const ImageInfo& Info() const { return info_; }

  // The next row from the top: `RowBytes()` bytes.
  virtual void ReadRow(std::uint8_t* row) = 0;

 protected:
  ImageInfo info_;
};

// How many pages a file has; reduced copies and masks inside a TIFF file are none.
int CountImagePages(const std::string& path);

// Opens a page (from 0) of a file whose kind is known by its first bytes.
std::unique_ptr<ImageReader> OpenImage(const std::string& path, int page = 0);

// The kinds of file. The reader owns what it opens.
std::unique_ptr<ImageReader> OpenPng(const std::string& path);
std::unique_ptr<ImageReader> OpenJpeg(const std::string& path);
std::unique_ptr<ImageReader> OpenTiff(const std::string& path, int page);
int CountTiffPages(const std::string& path);

// Throws when the sides are zero or beyond reason.
void CheckImageSize(const std::string& path, std::uint64_t width, std::uint64_t height);

// Throws when a decoded image, which its library holds in memory, would have more than 512 MiB.
void CheckHeldSize(const ImageInfo& image);

}  // namespace corvane
