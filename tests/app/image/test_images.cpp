// SPDX-License-Identifier: MIT
#include "tests/app/image/test_images.h"

#include <png.h>
#include <tiffio.h>

#include <cstdio>
#include <cstring>

#include <jpeglib.h>

namespace corvane {

std::vector<std::uint8_t> TestImage::PackedRow(int y, bool bigEndian) const {
  const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
  std::vector<std::uint8_t> row((count * static_cast<std::size_t>(bits) + 7) / 8);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint16_t value = samples[static_cast<std::size_t>(y) * count + i];
    if (bits == 16) {
      row[2 * i + (bigEndian ? 0 : 1)] = static_cast<std::uint8_t>(value >> 8);
      row[2 * i + (bigEndian ? 1 : 0)] = static_cast<std::uint8_t>(value);
      continue;
    }
    for (int b = 0; b < bits; ++b) {
      const std::size_t bit = i * static_cast<std::size_t>(bits) + static_cast<std::size_t>(b);
      if (value >> (bits - 1 - b) & 1) row[bit / 8] |= static_cast<std::uint8_t>(0x80 >> bit % 8);
    }
  }
  return row;
}

TestImage MakeImage(int width, int height, int channels, int bits,
                    const std::function<int(int, int, int)>& value) {
  TestImage image{width, height, channels, bits, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < channels; ++c) {
        image.samples.push_back(static_cast<std::uint16_t>(value(x, y, c) & ((1 << bits) - 1)));
      }
    }
  }
  return image;
}

namespace {

// EXIF data that say this alone, behind the mark that JPEG has in front of them.
std::vector<std::uint8_t> ExifOf(int orientation) {
  return {
      'E', 'x', 'i', 'f', 0,    0, 'M', 'M', 0, 42, 0, 0, 0,
      8,   0,   1,   1,   0x12, 0, 3,   0,   0, 0,  1, 0, static_cast<std::uint8_t>(orientation),
      0,   0,   0,   0,   0,    0};
}

}  // namespace

void WritePng(const std::string& path, const TestImage& image, const PngOptions& options) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file);
  png_set_IHDR(png, info, static_cast<png_uint_32>(image.width),
               static_cast<png_uint_32>(image.height), image.bits, options.colourType,
               options.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (!options.palette.empty()) {
    png_set_PLTE(png, info, reinterpret_cast<png_const_colorp>(options.palette.data()),
                 static_cast<int>(options.palette.size() / 3));
  }
  if (!options.paletteAlpha.empty()) {
    png_set_tRNS(png, info, options.paletteAlpha.data(),
                 static_cast<int>(options.paletteAlpha.size()), nullptr);
  }
  if (!options.profile.empty()) {
    png_set_iCCP(png, info, "profile", 0, options.profile.data(),
                 static_cast<png_uint_32>(options.profile.size()));
  }
  if (options.gamma > 0) png_set_gAMA(png, info, options.gamma);
  if (options.srgbPrimaries) png_set_cHRM(png, info, .3127, .329, .64, .33, .3, .6, .15, .06);
  std::vector<std::vector<std::uint8_t>> rows;
  std::vector<png_bytep> pointers;
  for (int y = 0; y < image.height; ++y) rows.push_back(image.PackedRow(y, true));
  for (auto& row : rows) pointers.push_back(row.data());
  png_write_info(png, info);
  png_write_image(png, pointers.data());
  if (options.orientation != 0) {
    std::vector<std::uint8_t> exif = ExifOf(options.orientation);
    exif.erase(exif.begin(), exif.begin() + 6);
    png_write_chunk(png, reinterpret_cast<png_const_bytep>("eXIf"), exif.data(), exif.size());
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  std::fclose(file);
}

namespace {

TestImage Channel(const TestImage& image, int channel) {
  return MakeImage(image.width, image.height, 1, image.bits,
                   [&](int x, int y, int) { return image.At(x, y, channel); });
}

TestImage Tile(const TestImage& image, int left, int top, int side) {
  return MakeImage(side, side, image.channels, image.bits, [&](int x, int y, int c) {
    const bool inside = left + x < image.width && top + y < image.height;
    return inside ? image.At(left + x, top + y, c) : 0;
  });
}

void WriteTiffPixels(TIFF* tiff, const TestImage& image, const TiffOptions& options,
                     std::uint16_t sample) {
  if (options.tile == 0) {
    for (int y = 0; y < image.height; ++y) {
      std::vector<std::uint8_t> row = image.PackedRow(y, false);
      TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), sample);
    }
    return;
  }
  for (int top = 0; top < image.height; top += options.tile) {
    for (int left = 0; left < image.width; left += options.tile) {
      const TestImage part = Tile(image, left, top, options.tile);
      std::vector<std::uint8_t> bytes;
      for (int y = 0; y < options.tile; ++y) {
        const std::vector<std::uint8_t> row = part.PackedRow(y, false);
        bytes.insert(bytes.end(), row.begin(), row.end());
      }
      TIFFWriteTile(tiff, bytes.data(), static_cast<std::uint32_t>(left),
                    static_cast<std::uint32_t>(top), 0, sample);
    }
  }
}

}  // namespace

void WriteTiff(const std::string& path, const TestImage& image, const TiffOptions& options) {
  const std::string mode =
      std::string(options.append ? "a" : "w") + (options.bigEndian ? "b" : "l");
  TIFF* tiff = TIFFOpen(path.c_str(), mode.c_str());
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, image.width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, image.height);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, image.bits);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, image.channels);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, options.photometric);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, options.compression);
  TIFFSetField(tiff, TIFFTAG_ORIENTATION, options.orientation);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG,
               options.separate ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
  if (options.lowBitFirst) TIFFSetField(tiff, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB);
  if (options.reduced) TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE);
  if (options.extraSample >= 0) {
    const std::uint16_t kind[1] = {static_cast<std::uint16_t>(options.extraSample)};
    TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, kind);
  }
  if (options.tile != 0) {
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, options.tile);
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, options.tile);
  } else {
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP,
                 options.rowsPerStrip != 0 ? options.rowsPerStrip : image.height);
  }
  if (!options.palette.empty()) {
    std::vector<std::uint16_t> map[3];
    for (int c = 0; c < 3; ++c) {
      for (std::size_t i = 0; i < std::size_t{1} << image.bits; ++i) {
        const std::size_t at = 3 * i + static_cast<std::size_t>(c);
        map[c].push_back(static_cast<std::uint16_t>(
            at < options.palette.size() ? options.palette[at] * 257 : 0));
      }
    }
    TIFFSetField(tiff, TIFFTAG_COLORMAP, map[0].data(), map[1].data(), map[2].data());
  }
  if (options.separate) {
    for (int c = 0; c < image.channels; ++c) {
      WriteTiffPixels(tiff, Channel(image, c), options, static_cast<std::uint16_t>(c));
    }
  } else {
    WriteTiffPixels(tiff, image, options, 0);
  }
  TIFFClose(tiff);
}

void WriteJpeg(const std::string& path, const TestImage& image, bool progressive,
               int exifOrientation) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  jpeg_compress_struct jpeg = {};
  jpeg_error_mgr errors;
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  jpeg_stdio_dest(&jpeg, file);
  jpeg.image_width = static_cast<JDIMENSION>(image.width);
  jpeg.image_height = static_cast<JDIMENSION>(image.height);
  jpeg.input_components = image.channels;
  jpeg.in_color_space = image.channels == 1   ? JCS_GRAYSCALE
                        : image.channels == 4 ? JCS_CMYK
                                              : JCS_RGB;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, 100, TRUE);
  if (image.channels == 3) jpeg.comp_info[0].h_samp_factor = jpeg.comp_info[0].v_samp_factor = 1;
  if (progressive) jpeg_simple_progression(&jpeg);
  jpeg_start_compress(&jpeg, TRUE);
  if (exifOrientation != 0) {
    const std::vector<std::uint8_t> exif = ExifOf(exifOrientation);
    jpeg_write_marker(&jpeg, JPEG_APP0 + 1, exif.data(), static_cast<unsigned>(exif.size()));
  }
  for (int y = 0; y < image.height; ++y) {
    std::vector<std::uint8_t> row = image.PackedRow(y, true);
    if (image.channels == 4) {
      for (std::uint8_t& value : row) value = static_cast<std::uint8_t>(~value);
    }
    JSAMPROW rows[1] = {row.data()};
    jpeg_write_scanlines(&jpeg, rows, 1);
  }
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
  std::fclose(file);
}

}  // namespace corvane
