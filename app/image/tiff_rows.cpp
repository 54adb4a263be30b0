// SPDX-License-Identifier: MIT
#include "app/image/tiff_rows.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "app/support/descriptor.h"
#include "app/support/failure.h"
#include "app/support/limits.h"

namespace corvane {
namespace {

std::uint32_t RowsPerStrip(TIFF* file, std::uint32_t height) {
  return std::clamp<std::uint32_t>(Field<std::uint32_t>(file, TIFFTAG_ROWSPERSTRIP, height), 1,
                                   height);
}

// Strips, decoded in order.
class StripRows : public StoredRows {
 public:
  StripRows(TIFF* file, std::uint16_t sample, const std::string& path)
      : file_(file), sample_(sample), path_(path) {}

  void Read(std::uint32_t y, std::uint8_t* row) override {
    StartDecoding();
    FinishDecoding(path_, TIFFReadScanline(file_, row, y, sample_) >= 0);
  }

 private:
  TIFF* file_;
  std::uint16_t sample_;
  const std::string& path_;
};

// Strips without compression, which may be as large as the image.
class PlainStripRows : public StoredRows {
 public:
  PlainStripRows(TIFF* file, std::uint32_t sample, std::uint32_t height, int bits,
                 const std::string& path)
      : file_(file), bits_(bits), path_(path) {
    rowBytes_ = static_cast<std::size_t>(TIFFScanlineSize(file));
    rowsPerStrip_ = RowsPerStrip(file, height);
    firstStrip_ = sample * ((height - 1) / rowsPerStrip_ + 1);
    reversed_ =
        Field<std::uint16_t>(file, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB) == FILLORDER_LSB2MSB;
  }

  void Read(std::uint32_t y, std::uint8_t* row) override {
    const std::uint32_t strip = firstStrip_ + y / rowsPerStrip_;
    const std::uint64_t inStrip = std::uint64_t{y % rowsPerStrip_} * rowBytes_;
    const std::uint64_t start = TIFFGetStrileOffset(file_, strip);
    // A strip that was never written has no place.
    if (start == 0 || TIFFGetStrileByteCount(file_, strip) < inStrip + rowBytes_) {
      throw Failure(path_ + ": the TIFF image is cut short");
    }
    const std::uint64_t offset = start + inStrip;
    for (std::size_t done = 0; done < rowBytes_;) {
      const std::ptrdiff_t count =
          ReadFileAt(TIFFFileno(file_), offset + done, row + done, rowBytes_ - done);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) throw Failure(path_ + ": the TIFF image is cut short");
      done += static_cast<std::size_t>(count);
    }
    const auto bytes = static_cast<tmsize_t>(rowBytes_);
    if (reversed_) TIFFReverseBits(row, bytes);
    if (!TIFFIsByteSwapped(file_)) return;
    if (bits_ == 16) TIFFSwabArrayOfShort(reinterpret_cast<std::uint16_t*>(row), bytes / 2);
    if (bits_ == 32) TIFFSwabArrayOfLong(reinterpret_cast<std::uint32_t*>(row), bytes / 4);
  }

 private:
  TIFF* file_;
  int bits_;
  const std::string& path_;
  std::size_t rowBytes_;
  std::uint32_t rowsPerStrip_, firstStrip_;
  bool reversed_;
};

// Deflated strips, each as a whole: the library takes a multiple of the time when it has to stop
// behind every row.
class DeflatedStripRows : public StoredRows {
 public:
  DeflatedStripRows(TIFF* file, std::uint16_t sample, std::uint32_t height, const std::string& path)
      : file_(file),
        sample_(sample),
        height_(height),
        path_(path),
        rowBytes_(static_cast<std::size_t>(TIFFScanlineSize(file))),
        rowsPerStrip_(RowsPerStrip(file, height)),
        rows_(rowBytes_ * rowsPerStrip_) {}

  // Larger strips are not worth their memory.
  static bool Fits(TIFF* file) {
    constexpr std::uint64_t kMostBytes = std::uint64_t{4} << 20;
    const auto compression = Field<std::uint16_t>(file, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    return (compression == COMPRESSION_ADOBE_DEFLATE || compression == COMPRESSION_DEFLATE) &&
           TIFFStripSize64(file) <= kMostBytes;
  }

  void Read(std::uint32_t y, std::uint8_t* row) override {
    const std::uint32_t inStrip = y % rowsPerStrip_;
    if (inStrip == 0) ReadStrip(y);
    std::memcpy(row, rows_.data() + inStrip * rowBytes_, rowBytes_);
  }

 private:
  void ReadStrip(std::uint32_t y) {
    const std::size_t bytes = rowBytes_ * std::min(rowsPerStrip_, height_ - y);
    StartDecoding();
    const tmsize_t read = TIFFReadEncodedStrip(file_, TIFFComputeStrip(file_, y, sample_),
                                               rows_.data(), static_cast<tmsize_t>(bytes));
    FinishDecoding(path_, read == static_cast<tmsize_t>(bytes));
  }

  TIFF* file_;
  std::uint16_t sample_;
  std::uint32_t height_;
  const std::string& path_;
  std::size_t rowBytes_;
  std::uint32_t rowsPerStrip_;
  std::vector<std::uint8_t> rows_;
};

// Tiles, a row of them at a time.
class TileRows : public StoredRows {
 public:
  TileRows(TIFF* file, std::uint16_t sample, std::uint32_t width, const std::string& path)
      : file_(file), sample_(sample), width_(width), path_(path) {
    tileWidth_ = Field<std::uint32_t>(file, TIFFTAG_TILEWIDTH, 0);
    tileHeight_ = Field<std::uint32_t>(file, TIFFTAG_TILELENGTH, 0);
    if (tileWidth_ == 0 || tileHeight_ == 0) FailAsDamaged(path_);
    tileRowBytes_ = static_cast<std::size_t>(TIFFTileRowSize(file));
    tileBytes_ = static_cast<std::size_t>(TIFFTileSize(file));
    const std::size_t across = (std::size_t{width} + tileWidth_ - 1) / tileWidth_;
    if (tileRowBytes_ == 0 || tileBytes_ == 0 || across > limits::kTiffTileRowBytes / tileBytes_) {
      throw Failure(path_ + ": the tiles of the TIFF image are too large");
    }
    tiles_.resize(across * tileBytes_);
  }

  void Read(std::uint32_t y, std::uint8_t* row) override {
    if (y % tileHeight_ == 0) Load(y);
    const std::size_t inTile = y % tileHeight_ * tileRowBytes_;
    std::size_t left = static_cast<std::size_t>(TIFFScanlineSize(file_));
    for (const std::uint8_t* tile = tiles_.data(); left > 0; tile += tileBytes_) {
      const std::size_t bytes = std::min(left, tileRowBytes_);
      std::memcpy(row, tile + inTile, bytes);
      row += bytes;
      left -= bytes;
    }
  }

 private:
  void Load(std::uint32_t y) {
    std::uint8_t* tile = tiles_.data();
    for (std::uint32_t x = 0; x < width_; x += tileWidth_, tile += tileBytes_) {
      StartDecoding();
      FinishDecoding(path_, TIFFReadTile(file_, tile, x, y, 0, sample_) >= 0);
    }
  }

  TIFF* file_;
  std::uint16_t sample_;
  std::uint32_t width_, tileWidth_, tileHeight_;
  std::size_t tileRowBytes_, tileBytes_;
  std::vector<std::uint8_t> tiles_;
  const std::string& path_;
};

// A sample of fewer than 16 bits. Packed samples begin in the most significant bits and may
// straddle bytes.
std::uint32_t PackedSample(const std::uint8_t* row, std::size_t index, int bits) {
  const std::size_t firstBit = index * static_cast<std::size_t>(bits);
  std::uint32_t value = 0;
  for (std::size_t bit = firstBit; bit < firstBit + static_cast<std::size_t>(bits); ++bit) {
    value = value << 1 | (row[bit / 8] >> (7 - bit % 8) & 1u);
  }
  return value;
}

template <class T>
T LoadSample(const std::uint8_t* row, std::size_t index) {
  T value;
  std::memcpy(&value, row + sizeof value * index, sizeof value);
  return value;
}

}  // namespace

std::unique_ptr<StoredRows> OpenStoredRows(TIFF* file, const Samples& samples, int sample,
                                           std::uint32_t width, std::uint32_t height,
                                           const std::string& path) {
  const auto plane = static_cast<std::uint16_t>(sample);
  if (samples.tiled) return std::make_unique<TileRows>(file, plane, width, path);
  if (Field<std::uint16_t>(file, TIFFTAG_COMPRESSION, COMPRESSION_NONE) == COMPRESSION_NONE) {
    return std::make_unique<PlainStripRows>(file, plane, height, samples.bits, path);
  }
  if (DeflatedStripRows::Fits(file)) {
    return std::make_unique<DeflatedStripRows>(file, plane, height, path);
  }
  return std::make_unique<StripRows>(file, plane, path);
}

std::uint16_t WideSample(const std::uint8_t* row, std::size_t index, const Samples& samples) {
  const bool isSigned = samples.format == SAMPLEFORMAT_INT;
  switch (samples.bits) {
    case 8:
      return static_cast<std::uint16_t>((row[index] ^ (isSigned ? 0x80u : 0u)) * 257);
    case 16:
      return LoadSample<std::uint16_t>(row, index) ^ (isSigned ? 0x8000 : 0);
    case 32: {
      if (samples.format == SAMPLEFORMAT_IEEEFP) {
        const float value = LoadSample<float>(row, index);
        return value >= 1  ? 65535
               : value > 0 ? static_cast<std::uint16_t>(value * 65535 + 0.5f)
                           : 0;
      }
      const auto value = LoadSample<std::uint32_t>(row, index);
      return static_cast<std::uint16_t>((isSigned ? value ^ 0x80000000 : value) >> 16);
    }
    default:
      return static_cast<std::uint16_t>(PackedSample(row, index, samples.bits) * 65535u /
                                        ((1u << samples.bits) - 1));
  }
}

std::size_t PaletteIndex(const std::uint8_t* row, std::size_t index, int bits) {
  if (bits == 8) return row[index];
  if (bits == 16) return LoadSample<std::uint16_t>(row, index);
  return PackedSample(row, index, bits);
}

}  // namespace corvane
