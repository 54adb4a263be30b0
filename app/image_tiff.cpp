// SPDX-License-Identifier: MIT
//
// TIFF images: strips, tiles and separate planes of 1 to 32 bits a sample. Rows are decoded one
// after the other; of a tiled image one row of tiles is held. What has no row of its own here
// (subsampled or logarithmic colours) goes through the library's own conversion, a band at a time.
#include <fmt/format.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "app/failure.h"
#include "app/image_reader.h"

namespace corvane {
namespace {

// What the library last complained of on this thread.
thread_local std::string lastError;

void KeepError(const char*, const char* format, va_list arguments) {
  char text[256];
  std::vsnprintf(text, sizeof text, format, arguments);
  lastError = text;
}

struct CloseTiff {
  void operator()(TIFF* file) const { TIFFClose(file); }
};
using TiffFile = std::unique_ptr<TIFF, CloseTiff>;

[[noreturn]] void Fail(const std::string& path) {
  throw Failure(
      fmt::format("{}: damaged TIFF image{}{}", path, lastError.empty() ? "" : ": ", lastError));
}

TiffFile OpenFile(const std::string& path) {
  static const bool prepared = [] {
    TIFFSetErrorHandler(&KeepError);
    TIFFSetWarningHandler(nullptr);
    return true;
  }();
  static_cast<void>(prepared);
  lastError.clear();
  // Not mapped: the pages of a mapped file would stay in memory until its end.
  TiffFile file(TIFFOpen(path.c_str(), "rm"));
  if (!file) Fail(path);
  return file;
}

template <typename T>
T Field(TIFF* file, ttag_t tag, T otherwise) {
  T value = otherwise;
  return TIFFGetFieldDefaulted(file, tag, &value) != 0 ? value : otherwise;
}

bool IsPage(TIFF* file) {
  constexpr std::uint32_t kNoPage = FILETYPE_REDUCEDIMAGE | FILETYPE_MASK;
  return (Field<std::uint32_t>(file, TIFFTAG_SUBFILETYPE, 0) & kNoPage) == 0;
}

// Moves to a page, counted without reduced images and masks.
void GoToPage(TIFF* file, const std::string& path, int page) {
  for (int left = page;; TIFFReadDirectory(file)) {
    if (IsPage(file) && left-- == 0) return;
    if (TIFFLastDirectory(file)) break;
  }
  // A file of nothing but reduced images still shows its first.
  if (page != 0 || TIFFSetDirectory(file, 0) == 0) Fail(path);
}

// Layout of the samples in the file.
struct Samples {
  int perPixel = 1;
  int bits = 1;
  int format = SAMPLEFORMAT_UINT;
  int photometric = PHOTOMETRIC_MINISWHITE;
  bool separate = false;
  bool tiled = false;
  int extra = 0;  // kind of the first sample behind the colours, EXTRASAMPLE_...
};

Samples ReadSamples(TIFF* file) {
  Samples samples;
  samples.perPixel = Field<std::uint16_t>(file, TIFFTAG_SAMPLESPERPIXEL, 1);
  samples.bits = Field<std::uint16_t>(file, TIFFTAG_BITSPERSAMPLE, 1);
  samples.format = Field<std::uint16_t>(file, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
  if (samples.format == SAMPLEFORMAT_VOID) samples.format = SAMPLEFORMAT_UINT;
  const int guess = samples.perPixel >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
  samples.photometric =
      Field<std::uint16_t>(file, TIFFTAG_PHOTOMETRIC, static_cast<std::uint16_t>(guess));
  samples.separate = samples.perPixel > 1 &&
                     Field<std::uint16_t>(file, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) ==
                         PLANARCONFIG_SEPARATE;
  samples.tiled = TIFFIsTiled(file) != 0;
  std::uint16_t count = 0;
  std::uint16_t* kinds = nullptr;
  if (TIFFGetFieldDefaulted(file, TIFFTAG_EXTRASAMPLES, &count, &kinds) != 0 && count > 0) {
    samples.extra = kinds[0];
  }
  return samples;
}

// ---------------------------------------------------------------------------------------------
// Sources of stored rows, `TIFFScanlineSize` bytes each, in the byte and bit order of the machine.
class StoredRows {
 public:
  virtual ~StoredRows() = default;
  virtual void Read(std::uint32_t y, std::uint8_t* row) = 0;
};

// Strips, decoded in order.
class StripRows : public StoredRows {
 public:
  StripRows(TIFF* file, std::uint16_t sample, const std::string& path)
      : file_(file), sample_(sample), path_(path) {}

  void Read(std::uint32_t y, std::uint8_t* row) override {
    lastError.clear();
    if (TIFFReadScanline(file_, row, y, sample_) < 0) Fail(path_);
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
    rowsPerStrip_ = Field<std::uint32_t>(file, TIFFTAG_ROWSPERSTRIP, height);
    rowsPerStrip_ = std::clamp<std::uint32_t>(rowsPerStrip_, 1, height);
    firstStrip_ = sample * ((height - 1) / rowsPerStrip_ + 1);
    reversed_ =
        Field<std::uint16_t>(file, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB) == FILLORDER_LSB2MSB;
  }

  void Read(std::uint32_t y, std::uint8_t* row) override {
    const std::uint32_t strip = firstStrip_ + y / rowsPerStrip_;
    const std::uint64_t offset =
        TIFFGetStrileOffset(file_, strip) + std::uint64_t{y % rowsPerStrip_} * rowBytes_;
    for (std::size_t done = 0; done < rowBytes_;) {
      const ssize_t count =
          pread(TIFFFileno(file_), row + done, rowBytes_ - done, static_cast<off_t>(offset + done));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) throw Failure(path_ + ": the TIFF image is cut short");
      done += static_cast<std::size_t>(count);
    }
    const auto bytes = static_cast<tmsize_t>(rowBytes_);
    if (bits_ < 16 && reversed_) TIFFReverseBits(row, bytes);
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

// Tiles, a row of them at a time.
class TileRows : public StoredRows {
 public:
  TileRows(TIFF* file, std::uint16_t sample, std::uint32_t width, std::uint32_t height,
           const std::string& path)
      : file_(file), sample_(sample), width_(width), height_(height), path_(path) {
    tileWidth_ = Field<std::uint32_t>(file, TIFFTAG_TILEWIDTH, 0);
    tileHeight_ = Field<std::uint32_t>(file, TIFFTAG_TILELENGTH, 0);
    if (tileWidth_ == 0 || tileHeight_ == 0) Fail(path_);
    tileRowBytes_ = static_cast<std::size_t>(TIFFTileRowSize(file));
    tileBytes_ = static_cast<std::size_t>(TIFFTileSize(file));
    const std::size_t across = (std::size_t{width} + tileWidth_ - 1) / tileWidth_;
    constexpr std::size_t kMostTileRowBytes = std::size_t{1} << 30;
    if (tileRowBytes_ == 0 || tileBytes_ == 0 || across > kMostTileRowBytes / tileBytes_) {
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
      lastError.clear();
      if (TIFFReadTile(file_, tile, x, y, 0, sample_) < 0) Fail(path_);
    }
  }

  TIFF* file_;
  std::uint16_t sample_;
  std::uint32_t width_, height_, tileWidth_, tileHeight_;
  std::size_t tileRowBytes_, tileBytes_;
  std::vector<std::uint8_t> tiles_;
  const std::string& path_;
};

// ---------------------------------------------------------------------------------------------
// Sample `index` of a stored row as 16 bits of full scale.
std::uint16_t WideSample(const std::uint8_t* row, std::size_t index, int bits, int format) {
  switch (bits) {
    case 8: {
      const unsigned value = row[index] ^ (format == SAMPLEFORMAT_INT ? 0x80u : 0u);
      return static_cast<std::uint16_t>(value * 257);
    }
    case 16: {
      std::uint16_t value;
      std::memcpy(&value, row + 2 * index, sizeof value);
      return format == SAMPLEFORMAT_INT ? value ^ 0x8000 : value;
    }
    case 32: {
      if (format == SAMPLEFORMAT_IEEEFP) {
        float value;
        std::memcpy(&value, row + 4 * index, sizeof value);
        return value >= 1  ? 65535
               : value > 0 ? static_cast<std::uint16_t>(value * 65535 + 0.5f)
                           : 0;
      }
      std::uint32_t value;
      std::memcpy(&value, row + 4 * index, sizeof value);
      return static_cast<std::uint16_t>((format == SAMPLEFORMAT_INT ? value ^ 0x80000000 : value) >>
                                        16);
    }
    default: {
      // Packed samples, the first in the most significant bits; they may straddle bytes.
      const std::size_t firstBit = index * static_cast<std::size_t>(bits);
      std::uint32_t value = 0;
      for (std::size_t bit = firstBit; bit < firstBit + static_cast<std::size_t>(bits); ++bit) {
        value = value << 1 | (row[bit / 8] >> (7 - bit % 8) & 1u);
      }
      return static_cast<std::uint16_t>((value * 65535u) / ((1u << bits) - 1));
    }
  }
}

// The unscaled value of a palette sample.
std::size_t PaletteIndex(const std::uint8_t* row, std::size_t index, int bits) {
  if (bits == 8) return row[index];
  if (bits == 16) {
    std::uint16_t value;
    std::memcpy(&value, row + 2 * index, sizeof value);
    return value;
  }
  const std::size_t firstBit = index * static_cast<std::size_t>(bits);
  std::size_t value = 0;
  for (std::size_t bit = firstBit; bit < firstBit + static_cast<std::size_t>(bits); ++bit) {
    value = value << 1 | (row[bit / 8] >> (7 - bit % 8) & 1u);
  }
  return value;
}

class TiffReader : public ImageReader {
 public:
  TiffReader(const std::string& path, int page) {
    info_.path = path;
    files_.push_back(OpenFile(path));
    GoToPage(File(), path, page);
    samples_ = ReadSamples(File());
    Describe();
    if (byLibrary_) {
      OpenBands();
    } else {
      OpenRows(page);
    }
  }

  void ReadRow(std::uint8_t* row) override {
    if (byLibrary_) {
      ReadBandRow(row);
    } else if (direct_) {
      rows_[0]->Read(y_, row);
    } else {
      for (std::size_t i = 0; i < rows_.size(); ++i) rows_[i]->Read(y_, stored_[i].data());
      Convert(row);
    }
    ++y_;
  }

 private:
  TIFF* File() const { return files_[0].get(); }

  void Describe() {
    info_.width = Field<std::uint32_t>(File(), TIFFTAG_IMAGEWIDTH, 0);
    info_.height = Field<std::uint32_t>(File(), TIFFTAG_IMAGELENGTH, 0);
    CheckImageSize(info_.path, info_.width, info_.height);
    const int orientation = Field<std::uint16_t>(File(), TIFFTAG_ORIENTATION, 1);
    info_.orientation = orientation >= 1 && orientation <= 8 ? orientation : 1;
    DescribeResolution();
    DescribeColour();
    std::uint32_t size = 0;
    void* profile = nullptr;
    if (!byLibrary_ && TIFFGetField(File(), TIFFTAG_ICCPROFILE, &size, &profile) != 0) {
      const auto* bytes = static_cast<const std::uint8_t*>(profile);
      info_.profile.assign(bytes, bytes + size);
    }
  }

  void DescribeResolution() {
    float horizontal = 0, vertical = 0;
    const auto unit = Field<std::uint16_t>(File(), TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    if (unit == RESUNIT_NONE || !TIFFGetField(File(), TIFFTAG_XRESOLUTION, &horizontal) ||
        !TIFFGetField(File(), TIFFTAG_YRESOLUTION, &vertical)) {
      return;
    }
    const double perInch = unit == RESUNIT_CENTIMETER ? 2.54 : 1;
    info_.horizontalDpi = horizontal * perInch;
    info_.verticalDpi = vertical * perInch;
  }

  void DescribeColour() {
    const auto compression = Field<std::uint16_t>(File(), TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    if (TIFFIsCODECConfigured(compression) == 0) {
      throw Failure(
          fmt::format("{}: TIFF compression {} is not supported", info_.path, compression));
    }
    int colours = 1;
    switch (samples_.photometric) {
      case PHOTOMETRIC_MINISWHITE:
      case PHOTOMETRIC_MINISBLACK:
        info_.form.colour = PixelForm::Colour::Grey;
        break;
      case PHOTOMETRIC_PALETTE:
        info_.form.colour = PixelForm::Colour::Rgb;
        ReadPalette();
        break;
      case PHOTOMETRIC_RGB:
        info_.form.colour = PixelForm::Colour::Rgb;
        colours = 3;
        break;
      case PHOTOMETRIC_YCBCR:
        // The JPEG codec converts by itself.
        byLibrary_ = compression != COMPRESSION_JPEG;
        if (!byLibrary_) TIFFSetField(File(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        colours = 3;
        break;
      case PHOTOMETRIC_SEPARATED:
        info_.form.colour = PixelForm::Colour::Cmyk;
        colours = 4;
        break;
      case PHOTOMETRIC_CIELAB:
      case PHOTOMETRIC_ICCLAB:
        info_.form.colour = PixelForm::Colour::Lab;
        colours = 3;
        break;
      default:
        byLibrary_ = true;
    }
    if (byLibrary_) {
      info_.form = {PixelForm::Colour::Rgb, 8, true};
      return;
    }
    const bool palette = samples_.photometric == PHOTOMETRIC_PALETTE;
    const bool packed = samples_.bits < 16 && samples_.format == SAMPLEFORMAT_UINT;
    const bool wide = samples_.bits == 16 || samples_.bits == 32;
    const bool known = samples_.format == SAMPLEFORMAT_IEEEFP
                           ? samples_.bits == 32
                           : wide || packed || samples_.bits == 8;
    const bool lab = info_.form.colour == PixelForm::Colour::Lab;
    if (!known || samples_.bits == 0 || samples_.perPixel < colours ||
        samples_.perPixel > kMostSamples || (lab && samples_.bits != 8 && samples_.bits != 16)) {
      throw Failure(fmt::format("{}: TIFF pixels of {} samples of {} bits are not supported",
                                info_.path, samples_.perPixel, samples_.bits));
    }
    info_.form.bits = !palette && (samples_.bits > 8) ? 16 : 8;
    info_.form.alpha =
        !palette && samples_.perPixel > colours &&
        (samples_.extra == EXTRASAMPLE_ASSOCALPHA || samples_.extra == EXTRASAMPLE_UNASSALPHA);
  }

  void ReadPalette() {
    std::uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
    if (TIFFGetField(File(), TIFFTAG_COLORMAP, &red, &green, &blue) == 0) Fail(info_.path);
    const std::size_t count = std::size_t{1} << samples_.bits;
    // Some programs store 8 bits where 16 belong.
    std::uint16_t largest = 0;
    for (std::size_t i = 0; i < count; ++i)
      largest = std::max({largest, red[i], green[i], blue[i]});
    const int shift = largest > 255 ? 8 : 0;
    palette_.resize(3 * count);
    for (std::size_t i = 0; i < count; ++i) {
      palette_[3 * i] = static_cast<std::uint8_t>(red[i] >> shift);
      palette_[3 * i + 1] = static_cast<std::uint8_t>(green[i] >> shift);
      palette_[3 * i + 2] = static_cast<std::uint8_t>(blue[i] >> shift);
    }
  }

  // Separate planes are read through a handle each, so that each decodes its strips in order.
  void OpenRows(int page) {
    const int planes = samples_.separate ? UsedSamples() : 1;
    while (static_cast<int>(files_.size()) < planes) {
      files_.push_back(OpenFile(info_.path));
      GoToPage(files_.back().get(), info_.path, page);
    }
    const tmsize_t rowBytes = TIFFScanlineSize(File());
    const std::uint64_t needed =
        (std::uint64_t{info_.width} * samples_.bits * (samples_.separate ? 1 : samples_.perPixel) +
         7) /
        8;
    if (rowBytes <= 0 || static_cast<std::uint64_t>(rowBytes) < needed) Fail(info_.path);
    const auto compression = Field<std::uint16_t>(File(), TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    for (int i = 0; i < planes; ++i) {
      const auto sample = static_cast<std::uint16_t>(i);
      TIFF* file = files_[static_cast<std::size_t>(i)].get();
      if (samples_.tiled) {
        rows_.push_back(
            std::make_unique<TileRows>(file, sample, info_.width, info_.height, info_.path));
      } else if (compression == COMPRESSION_NONE) {
        rows_.push_back(std::make_unique<PlainStripRows>(file, sample, info_.height, samples_.bits,
                                                         info_.path));
      } else {
        rows_.push_back(std::make_unique<StripRows>(file, sample, info_.path));
      }
      stored_.emplace_back(static_cast<std::size_t>(rowBytes));
    }
    direct_ = !samples_.separate && samples_.bits == info_.form.bits &&
              samples_.format == SAMPLEFORMAT_UINT && samples_.perPixel == info_.form.Channels() &&
              samples_.photometric != PHOTOMETRIC_MINISWHITE &&
              samples_.photometric != PHOTOMETRIC_PALETTE &&
              samples_.photometric != PHOTOMETRIC_CIELAB &&
              !(info_.form.alpha && samples_.extra == EXTRASAMPLE_ASSOCALPHA) &&
              static_cast<std::size_t>(rowBytes) == info_.RowBytes();
  }

  int UsedSamples() const {
    return samples_.photometric == PHOTOMETRIC_PALETTE ? 1 : info_.form.Channels();
  }

  void Convert(std::uint8_t* row) const {
    if (samples_.photometric == PHOTOMETRIC_PALETTE) {
      ConvertPalette(row);
      return;
    }
    const int channels = info_.form.Channels();
    const std::size_t step = samples_.separate ? 1 : static_cast<std::size_t>(samples_.perPixel);
    std::uint16_t pixel[kMostSamples];
    for (std::size_t x = 0; x < info_.width; ++x) {
      for (int i = 0; i < channels; ++i) {
        const auto channel = static_cast<std::size_t>(i);
        const std::uint8_t* stored = stored_[samples_.separate ? channel : 0].data();
        const std::size_t index = samples_.separate ? x : x * step + channel;
        pixel[i] = WideSample(stored, index, samples_.bits, samples_.format);
      }
      Normalise(pixel);
      if (info_.form.bits == 8) {
        for (int i = 0; i < channels; ++i) *row++ = static_cast<std::uint8_t>(pixel[i] >> 8);
      } else {
        std::memcpy(row, pixel, 2 * static_cast<std::size_t>(channels));
        row += 2 * channels;
      }
    }
  }

  // Black on white as white on black, Lab with its offset, colours without their alpha.
  void Normalise(std::uint16_t* pixel) const {
    if (samples_.photometric == PHOTOMETRIC_MINISWHITE) {
      pixel[0] = static_cast<std::uint16_t>(65535 - pixel[0]);
    } else if (samples_.photometric == PHOTOMETRIC_CIELAB) {
      // a and b are signed in the file; 16 bits hold 256ths of them.
      for (int i = 1; i <= 2; ++i) {
        const std::uint32_t shifted = pixel[i] ^ 0x8000u;
        pixel[i] = static_cast<std::uint16_t>(
            samples_.bits == 8 ? shifted : std::min(shifted * 257 / 256, 65535u));
      }
    }
    if (!info_.form.alpha || samples_.extra != EXTRASAMPLE_ASSOCALPHA) return;
    const int colours = info_.form.ColourChannels();
    const std::uint32_t alpha = pixel[colours];
    if (alpha == 0) return;
    for (int i = 0; i < colours; ++i) {
      const std::uint32_t value = (pixel[i] * 65535u + alpha / 2) / alpha;
      pixel[i] = static_cast<std::uint16_t>(std::min<std::uint32_t>(value, 65535));
    }
  }

  void ConvertPalette(std::uint8_t* row) const {
    const auto step = static_cast<std::size_t>(samples_.separate ? 1 : samples_.perPixel);
    for (std::size_t x = 0; x < info_.width; ++x) {
      const std::size_t index = PaletteIndex(stored_[0].data(), x * step, samples_.bits);
      std::memcpy(row + 3 * x, palette_.data() + 3 * index, 3);
    }
  }

  // ---------------------------------------------------------------------------------------------
  // The library's own conversion to RGB with alpha, a strip or a row of tiles at a time.

  void OpenBands() {
    TIFFSetField(File(), TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    char reason[1024] = "";
    if (TIFFRGBAImageOK(File(), reason) == 0) {
      throw Failure(fmt::format("{}: {}", info_.path, reason));
    }
    if (samples_.tiled) {
      bandWidth_ = Field<std::uint32_t>(File(), TIFFTAG_TILEWIDTH, 0);
      bandHeight_ = Field<std::uint32_t>(File(), TIFFTAG_TILELENGTH, 0);
    } else {
      bandWidth_ = info_.width;
      bandHeight_ =
          std::min(Field<std::uint32_t>(File(), TIFFTAG_ROWSPERSTRIP, info_.height), info_.height);
    }
    constexpr std::uint64_t kMostBandPixels = std::uint64_t{1} << 28;
    if (bandWidth_ == 0 || bandHeight_ == 0 ||
        (std::uint64_t{info_.width} + bandWidth_) * bandHeight_ > kMostBandPixels) {
      throw Failure(info_.path + ": the strips of the TIFF image are too large");
    }
    across_ = (info_.width + bandWidth_ - 1) / bandWidth_;
    band_.resize(std::size_t{across_} * bandWidth_ * bandHeight_);
  }

  void LoadBand() {
    std::uint32_t* tile = band_.data();
    for (std::uint32_t x = 0; x < info_.width; x += bandWidth_) {
      lastError.clear();
      const int done = samples_.tiled ? TIFFReadRGBATileExt(File(), x, y_, tile, 1)
                                      : TIFFReadRGBAStripExt(File(), y_, tile, 1);
      if (done == 0) Fail(info_.path);
      tile += std::size_t{bandWidth_} * bandHeight_;
    }
  }

  void ReadBandRow(std::uint8_t* row) {
    if (y_ % bandHeight_ == 0) LoadBand();
    // The library stores a band bottom row first.
    const std::uint32_t rows =
        samples_.tiled ? bandHeight_
                       : std::min(bandHeight_, info_.height - y_ / bandHeight_ * bandHeight_);
    const std::uint32_t line = rows - 1 - y_ % bandHeight_;
    for (std::uint32_t x = 0; x < info_.width; ++x) {
      const std::size_t tile = std::size_t{x / bandWidth_} * bandWidth_ * bandHeight_;
      const std::uint32_t pixel = band_[tile + std::size_t{line} * bandWidth_ + x % bandWidth_];
      *row++ = static_cast<std::uint8_t>(TIFFGetR(pixel));
      *row++ = static_cast<std::uint8_t>(TIFFGetG(pixel));
      *row++ = static_cast<std::uint8_t>(TIFFGetB(pixel));
      *row++ = static_cast<std::uint8_t>(TIFFGetA(pixel));
    }
  }

  static constexpr int kMostSamples = 16;

  std::vector<TiffFile> files_;
  Samples samples_;
  std::vector<std::uint8_t> palette_;  // R, G, B of each index
  std::vector<std::unique_ptr<StoredRows>> rows_;
  std::vector<std::vector<std::uint8_t>> stored_;
  bool direct_ = false;  // stored rows are delivered as they are
  std::uint32_t y_ = 0;

  bool byLibrary_ = false;
  std::uint32_t bandWidth_ = 0, bandHeight_ = 0, across_ = 0;
  std::vector<std::uint32_t> band_;
};

}  // namespace

int CountTiffPages(const std::string& path) {
  const TiffFile file = OpenFile(path);
  int pages = 0;
  for (bool more = true; more; more = TIFFReadDirectory(file.get()) != 0) {
    pages += IsPage(file.get()) ? 1 : 0;
  }
  return std::max(pages, 1);
}

std::unique_ptr<ImageReader> OpenTiff(const std::string& path, int page) {
  return std::make_unique<TiffReader>(path, page);
}

}  // namespace corvane
