// SPDX-License-Identifier: MIT
//
// TIFF images: strips, tiles and separate planes of 1 to 32 bits a sample. There are two readers:
// one takes the stored samples, row by row, and of a tiled image holds one row of tiles; one has
// the library convert what it does not know (subsampled or logarithmic colours), a band at a time.
#include <fmt/format.h>
#include <tiffio.h>

#include <algorithm>
#include <cstring>

#include "app/image/reader.h"
#include "app/image/tiff_file.h"
#include "app/image/tiff_rows.h"
#include "app/support/failure.h"
#include "app/support/limits.h"

namespace corvane {
namespace {

// What both readers know of a page.
class TiffReader : public ImageReader {
 protected:
  TiffReader(const std::string& path, TiffFile file) : samples_(ReadSamples(file.get())) {
    info_.path = path;
    files_.push_back(std::move(file));
    info_.width = Field<std::uint32_t>(File(), TIFFTAG_IMAGEWIDTH, 0);
    info_.height = Field<std::uint32_t>(File(), TIFFTAG_IMAGELENGTH, 0);
    CheckImageSize(info_.path, info_.width, info_.height);
    const int orientation = Field<std::uint16_t>(File(), TIFFTAG_ORIENTATION, 1);
    info_.orientation = orientation >= 1 && orientation <= 8 ? orientation : 1;
    const TiffResolution dpi = ResolutionOf(File());
    info_.horizontalDpi = dpi.horizontal;
    info_.verticalDpi = dpi.vertical;
  }

  TIFF* File() const { return files_[0].get(); }

  std::vector<TiffFile> files_;
  Samples samples_;
  std::uint32_t y_ = 0;  // of the next row
};

// ---------------------------------------------------------------------------------------------
// The samples as they are stored.
class SampleReader : public TiffReader {
 public:
  SampleReader(const std::string& path, TiffFile file, int page)
      : TiffReader(path, std::move(file)) {
    DescribeColour();
    std::uint32_t size = 0;
    void* profile = nullptr;
    if (TIFFGetField(File(), TIFFTAG_ICCPROFILE, &size, &profile) != 0) {
      const auto* bytes = static_cast<const std::uint8_t*>(profile);
      info_.profile.assign(bytes, bytes + size);
    }
    OpenRows(page);
  }

  void ReadRow(std::uint8_t* row) override {
    if (direct_) {
      rows_[0]->Read(y_, row);
    } else {
      for (std::size_t i = 0; i < rows_.size(); ++i) rows_[i]->Read(y_, stored_[i].data());
      Convert(row);
    }
    ++y_;
  }

 private:
  void DescribeColour() {
    int colours = 1;
    switch (samples_.photometric) {
      case PHOTOMETRIC_MINISWHITE:
      case PHOTOMETRIC_MINISBLACK:
        info_.form.colour = PixelForm::Colour::Grey;
        break;
      case PHOTOMETRIC_PALETTE:
        info_.form.colour = PixelForm::Colour::Rgb;
        break;
      case PHOTOMETRIC_RGB:
        info_.form.colour = PixelForm::Colour::Rgb;
        colours = 3;
        break;
      case PHOTOMETRIC_YCBCR:
        TIFFSetField(File(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        info_.form.colour = PixelForm::Colour::Rgb;
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
        break;  // not of this reader
    }
    const bool palette = samples_.photometric == PHOTOMETRIC_PALETTE;
    const bool packed = samples_.bits < 16 && samples_.format == SAMPLEFORMAT_UINT;
    const bool wide = samples_.bits == 16 || samples_.bits == 32;
    const bool known = samples_.format == SAMPLEFORMAT_IEEEFP
                           ? samples_.bits == 32
                           : wide || packed || samples_.bits == 8;
    const bool lab = info_.form.colour == PixelForm::Colour::Lab;
    if (!known || samples_.bits == 0 || samples_.perPixel < colours ||
        samples_.perPixel > limits::kTiffSamples || (palette && samples_.bits > 16) ||
        (lab && samples_.bits != 8 && samples_.bits != 16)) {
      throw Failure(fmt::format("{}: TIFF pixels of {} samples of {} bits are not supported",
                                info_.path, samples_.perPixel, samples_.bits));
    }
    if (samples_.photometric == PHOTOMETRIC_SEPARATED) RefuseFurtherInks();
    if (palette) ReadPalette();
    info_.form.bits = !palette && (samples_.bits > 8) ? 16 : 8;
    info_.form.alpha = samples_.perPixel > colours && (samples_.extra == EXTRASAMPLE_ASSOCALPHA ||
                                                       samples_.extra == EXTRASAMPLE_UNASSALPHA);
  }

  // Ink beyond C, M, Y and K would be missing on the page, and what the inks are is not known.
  void RefuseFurtherInks() const {
    const int inks = samples_.perPixel - samples_.extraCount;
    const auto inkSet = Field<std::uint16_t>(File(), TIFFTAG_INKSET, INKSET_CMYK);
    if (inks == 4 && inkSet == INKSET_CMYK && !samples_.spare) return;
    throw Failure(
        fmt::format("{}: {} ink planes, which are no CMYK image (--separations prints "
                    "planes of the printhead's inks)",
                    info_.path, samples_.spare ? samples_.perPixel : inks));
  }

  void ReadPalette() {
    std::uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
    if (TIFFGetField(File(), TIFFTAG_COLORMAP, &red, &green, &blue) == 0) FailAsDamaged(info_.path);
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
      files_.push_back(OpenTiffPage(info_.path, page));
    }
    const tmsize_t rowBytes = TIFFScanlineSize(File());
    const std::uint64_t needed =
        (std::uint64_t{info_.width} * samples_.bits * (samples_.separate ? 1 : samples_.perPixel) +
         7) /
        8;
    if (rowBytes <= 0 || static_cast<std::uint64_t>(rowBytes) < needed) FailAsDamaged(info_.path);
    for (int i = 0; i < planes; ++i) {
      rows_.push_back(OpenStoredRows(files_[static_cast<std::size_t>(i)].get(), samples_, i,
                                     info_.width, info_.height, info_.path));
      stored_.emplace_back(static_cast<std::size_t>(rowBytes));
    }
    direct_ = !samples_.separate && samples_.bits == info_.form.bits &&
              samples_.format == SAMPLEFORMAT_UINT && samples_.perPixel == info_.form.Channels() &&
              samples_.photometric != PHOTOMETRIC_MINISWHITE &&
              samples_.photometric != PHOTOMETRIC_PALETTE &&
              samples_.photometric != PHOTOMETRIC_CIELAB &&
              !(samples_.photometric == PHOTOMETRIC_ICCLAB && samples_.bits == 16) &&
              !(info_.form.alpha && samples_.extra == EXTRASAMPLE_ASSOCALPHA) &&
              static_cast<std::size_t>(rowBytes) == info_.RowBytes();
  }

  int UsedSamples() const {
    if (samples_.photometric != PHOTOMETRIC_PALETTE) return info_.form.Channels();
    return info_.form.alpha ? 2 : 1;
  }

  void Convert(std::uint8_t* row) const {
    if (samples_.photometric == PHOTOMETRIC_PALETTE) {
      ConvertPalette(row);
      return;
    }
    const int channels = info_.form.Channels();
    const std::size_t step = samples_.separate ? 1 : static_cast<std::size_t>(samples_.perPixel);
    std::uint16_t pixel[limits::kTiffSamples] = {};
    for (std::size_t x = 0; x < info_.width; ++x) {
      for (int i = 0; i < channels; ++i) {
        const auto channel = static_cast<std::size_t>(i);
        const std::uint8_t* stored = stored_[samples_.separate ? channel : 0].data();
        const std::size_t index = samples_.separate ? x : x * step + channel;
        pixel[i] = WideSample(stored, index, samples_);
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
    if (samples_.photometric == PHOTOMETRIC_ICCLAB && samples_.bits == 16) {
      // As version 2 of the ICC's profiles has it: L* is 100 at 65280.
      for (int i = 0; i < 3; ++i) {
        pixel[i] = static_cast<std::uint16_t>(std::min(pixel[i] * 257u / 256, 65535u));
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

  // Behind a colour of the palette; gives the place of the next pixel.
  std::uint8_t* AddAlpha(std::size_t x, std::uint8_t* behind) const {
    const std::uint8_t* stored = stored_[samples_.separate ? 1 : 0].data();
    const std::size_t step = static_cast<std::size_t>(samples_.perPixel);
    std::uint16_t pixel[4];
    for (int i = 0; i < 3; ++i) pixel[i] = static_cast<std::uint16_t>(257 * behind[i - 3]);
    pixel[3] = WideSample(stored, samples_.separate ? x : x * step + 1, samples_);
    Normalise(pixel);
    for (int i = 0; i < 4; ++i) behind[i - 3] = static_cast<std::uint8_t>(pixel[i] >> 8);
    return behind + 1;
  }

  void ConvertPalette(std::uint8_t* row) const {
    const auto step = static_cast<std::size_t>(samples_.separate ? 1 : samples_.perPixel);
    for (std::size_t x = 0; x < info_.width; ++x) {
      const std::size_t index = PaletteIndex(stored_[0].data(), x * step, samples_.bits);
      std::memcpy(row, palette_.data() + 3 * index, 3);
      row += 3;
      if (info_.form.alpha) row = AddAlpha(x, row);
    }
  }

  std::vector<std::uint8_t> palette_;  // R, G, B of each index
  std::vector<std::unique_ptr<StoredRows>> rows_;
  std::vector<std::vector<std::uint8_t>> stored_;
  bool direct_ = false;  // stored rows are delivered as they are
};

// ---------------------------------------------------------------------------------------------
// The library's own conversion to RGB with alpha, a strip or a row of tiles at a time.
class BandReader : public TiffReader {
 public:
  BandReader(const std::string& path, TiffFile file) : TiffReader(path, std::move(file)) {
    info_.form = {PixelForm::Colour::Rgb, 8, true};
    OpenBands();
  }

  void ReadRow(std::uint8_t* row) override {
    ReadBandRow(row);
    ++y_;
  }

 private:
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
    if (bandWidth_ == 0 || bandHeight_ == 0 ||
        (std::uint64_t{info_.width} + bandWidth_) * bandHeight_ > limits::kTiffBandPixels) {
      throw Failure(info_.path + ": the strips of the TIFF image are too large");
    }
    across_ = (info_.width + bandWidth_ - 1) / bandWidth_;
    band_.resize(std::size_t{across_} * bandWidth_ * bandHeight_);
  }

  void LoadBand() {
    std::uint32_t* tile = band_.data();
    for (std::uint32_t x = 0; x < info_.width; x += bandWidth_) {
      StartDecoding();
      const int done = samples_.tiled ? TIFFReadRGBATileExt(File(), x, y_, tile, 1)
                                      : TIFFReadRGBAStripExt(File(), y_, tile, 1);
      FinishDecoding(info_.path, done != 0);
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

  std::uint32_t bandWidth_ = 0, bandHeight_ = 0, across_ = 0;
  std::vector<std::uint32_t> band_;
};

// Whether a SampleReader knows what the samples stand for.
bool KnowsColours(int photometric, int compression) {
  switch (photometric) {
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_PALETTE:
    case PHOTOMETRIC_RGB:
    case PHOTOMETRIC_SEPARATED:
    case PHOTOMETRIC_CIELAB:
    case PHOTOMETRIC_ICCLAB:
      return true;
    case PHOTOMETRIC_YCBCR:
      return compression == COMPRESSION_JPEG;  // its codec converts by itself
    default:
      return false;
  }
}

}  // namespace

std::unique_ptr<ImageReader> OpenTiff(const std::string& path, int page) {
  TiffFile file = OpenTiffPage(path, page);
  const auto compression = Field<std::uint16_t>(file.get(), TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  if (TIFFIsCODECConfigured(compression) == 0) {
    throw Failure(fmt::format("{}: TIFF compression {} is not supported", path, compression));
  }
  if (KnowsColours(ReadSamples(file.get()).photometric, compression)) {
    return std::make_unique<SampleReader>(path, std::move(file), page);
  }
  return std::make_unique<BandReader>(path, std::move(file));
}

}  // namespace corvane
