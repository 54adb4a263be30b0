// SPDX-License-Identifier: MIT
//
// Images for tests, written with the libraries themselves.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace corvane {

// Rows of samples, `channels` a pixel; values fit the bit depth.
struct TestImage {
  int width = 0, height = 0, channels = 1, bits = 8;
  std::vector<std::uint16_t> samples;

  std::uint16_t At(int x, int y, int channel) const {
    return samples[static_cast<std::size_t>((y * width + x) * channels + channel)];
  }
  // Samples packed into rows as PNG and TIFF have them, 16 bits big-endian when asked for.
  std::vector<std::uint8_t> PackedRow(int y, bool bigEndian) const;
};

// Values from a function of (x, y, channel), kept to the depth.
TestImage MakeImage(int width, int height, int channels, int bits,
                    const std::function<int(int x, int y, int channel)>& value);

struct PngOptions {
  int colourType = 2;  // as in the format: 0 grey, 2 RGB, 3 palette, 4 grey alpha, 6 RGB alpha
  bool interlaced = false;
  std::vector<std::uint8_t> palette = {};       // R, G, B
  std::vector<std::uint8_t> paletteAlpha = {};  // of the first entries
  std::vector<std::uint8_t> profile = {};
  double gamma = 0;
  bool srgbPrimaries = false;  // says so beside the gamma
  int orientation = 0;         // in EXIF data behind the pixels; 0: none
};
void WritePng(const std::string& path, const TestImage& image, const PngOptions& options);

struct TiffOptions {
  int photometric = 1;
  int compression = 1;
  int orientation = 1;
  int extraSample = -1;
  bool separate = false;
  int tile = 0;          // pixels along a side; 0: strips
  int rowsPerStrip = 0;  // 0: one strip
  bool bigEndian = false;
  bool lowBitFirst = false;
  std::vector<std::uint8_t> palette = {};  // R, G, B
  bool append = false;                     // one more page
  bool reduced = false;                    // marked as a reduced copy
};
void WriteTiff(const std::string& path, const TestImage& image, const TiffOptions& options);

// Baseline or progressive JPEG at full quality; 4 channels are CMYK with the Adobe mark, stored
// upside down as usual.
void WriteJpeg(const std::string& path, const TestImage& image, bool progressive = false,
               int exifOrientation = 0);

}  // namespace corvane
