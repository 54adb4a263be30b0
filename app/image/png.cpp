// SPDX-License-Identifier: MIT
//
// PNG images. An interlaced image cannot be read in rows from the top: its seven passes are put
// together in a scratch file first.
#include <fmt/format.h>
#include <png.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>

#include "app/image/exif.h"
#include "app/image/profile.h"
#include "app/image/reader.h"
#include "app/support/failure.h"
#include "app/support/input_file.h"
#include "app/support/interrupt.h"
#include "app/support/limits.h"
#include "app/support/scratch_file.h"
#include "app/support/short_memory.h"
#include "app/support/units.h"

namespace corvane {
namespace {

constexpr double kInchesPerMetre = 1 / kMetresPerInch;
constexpr double kSrgbGamma = 0.45455;
constexpr png_byte kCodePoints[] = {'c', 'I', 'C', 'P', 0};

bool IsNear(const Chromaticities& a, const Chromaticities& b) {
  const double differences[] = {a.whiteX - b.whiteX, a.whiteY - b.whiteY, a.redX - b.redX,
                                a.redY - b.redY,     a.greenX - b.greenX, a.greenY - b.greenY,
                                a.blueX - b.blueX,   a.blueY - b.blueY};
  return std::all_of(std::begin(differences), std::end(differences),
                     [](double difference) { return std::abs(difference) < 0.002; });
}

class PngReader : public ImageReader {
 public:
  explicit PngReader(const std::string& path) {
    info_.path = path;
    file_ = OpenInputFile(path);
    png_ = state_.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, &OnError, &OnWarning);
    if (png_ == nullptr) throw std::bad_alloc();
    pngInfo_ = state_.info = png_create_info_struct(png_);
    if (pngInfo_ == nullptr) throw std::bad_alloc();
    if (!ReadHeader()) Fail();
    ThrowIfMemoryFailed();  // of a profile the library reads on as if there were none
    info_.width = png_get_image_width(png_, pngInfo_);
    info_.height = png_get_image_height(png_, pngInfo_);
    CheckImageSize(info_.path, info_.width, info_.height);
    if (!StartRows()) Fail();
    Describe();
  }

  void ReadRow(std::uint8_t* row) override {
    if (interlaced_) {
      if (!scratch_) Deinterlace();
      scratch_->Read(info_.RowBytes() * rowsRead_++, row, info_.RowBytes());
    } else if (!DecodeRow(row)) {
      Fail();
    } else if (++rowsRead_ == info_.height && !ReadEnd()) {
      Fail();
    }
  }

 private:
  struct State {
    png_structp png = nullptr;
    png_infop info = nullptr;
    ~State() { png_destroy_read_struct(&png, &info, nullptr); }
  };

  [[noreturn]] void Fail() const {
    ThrowIfMemoryFailed();
    const bool cut = std::strstr(error_, "Read Error") != nullptr;
    throw Failure(
        fmt::format("{}: {}{}", info_.path,
                    cut ? "the PNG image is cut short" : "damaged PNG image: ", cut ? "" : error_));
  }

  // Nothing may be thrown through the library.
  static void OnError(png_structp png, png_const_charp message) {
    auto* reader = static_cast<PngReader*>(png_get_error_ptr(png));
    std::snprintf(reader->error_, sizeof reader->error_, "%s", message);
    png_longjmp(png, 1);
  }
  static void OnWarning(png_structp, png_const_charp) {}

  // The members below jump back into themselves on an error, so they hold no objects.

  bool ReadHeader() {
    StartWatchingMemory();
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);  // the reader has its own
    png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_ALWAYS, kCodePoints, 1);
    png_init_io(png_, file_.get());
    png_read_info(png_, pngInfo_);
    return true;
  }

  bool StartRows() {
    StartWatchingMemory();
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_set_expand(png_);
    if (std::endian::native == std::endian::little) png_set_swap(png_);
    interlaced_ = png_set_interlace_handling(png_) > 1;
    png_read_update_info(png_, pngInfo_);
    return true;
  }

  bool DecodeRow(std::uint8_t* row) {
    StartWatchingMemory();
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_read_row(png_, row, nullptr);
    return true;
  }

  bool ReadEnd() {
    StartWatchingMemory();
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_read_end(png_, nullptr);
    return true;
  }

  void Describe() {
    const int colour = png_get_color_type(png_, pngInfo_);
    info_.form.colour =
        (colour & PNG_COLOR_MASK_COLOR) ? PixelForm::Colour::Rgb : PixelForm::Colour::Grey;
    info_.form.alpha = (colour & PNG_COLOR_MASK_ALPHA) != 0;
    info_.form.bits = png_get_bit_depth(png_, pngInfo_);
    info_.horizontalDpi = png_get_x_pixels_per_meter(png_, pngInfo_) / kInchesPerMetre;
    info_.verticalDpi = png_get_y_pixels_per_meter(png_, pngInfo_) / kInchesPerMetre;
    DescribeColour();
    DescribeOrientation();
  }

  // The transfer function that the code points of ITU-T H.273 name; 0: there are none.
  int TransferFunction() const {
    png_unknown_chunkp chunks = nullptr;
    const int count = png_get_unknown_chunks(png_, pngInfo_, &chunks);
    for (int i = 0; i < count; ++i) {
      const bool named = std::memcmp(chunks[i].name, kCodePoints, sizeof kCodePoints) == 0;
      if (named && chunks[i].size == 4) return chunks[i].data[1];
    }
    return 0;
  }

  void DescribeColour() {
    constexpr int kPq = 16, kHlg = 18;
    if (const int transfer = TransferFunction(); transfer == kPq || transfer == kHlg) {
      throw Failure(info_.path + ": a picture of high dynamic range is not read");
    }
    png_charp name = nullptr;
    png_bytep profile = nullptr;
    png_uint_32 size = 0;
    int compression = 0;
    if (png_get_iCCP(png_, pngInfo_, &name, &compression, &profile, &size) != 0) {
      info_.profile.assign(profile, profile + size);
      return;
    }
    int intent = 0;
    double gamma = 0;
    if (png_get_sRGB(png_, pngInfo_, &intent) != 0 || png_get_gAMA(png_, pngInfo_, &gamma) == 0 ||
        gamma <= 0) {
      return;
    }
    const Chromaticities srgb;
    Chromaticities points;
    const bool given =
        png_get_cHRM(png_, pngInfo_, &points.whiteX, &points.whiteY, &points.redX, &points.redY,
                     &points.greenX, &points.greenY, &points.blueX, &points.blueY) != 0;
    // The usual figures are how a program says sRGB to those that do not know the chunk for it.
    if (std::abs(gamma - kSrgbGamma) < 0.005 && (!given || IsNear(points, srgb))) return;
    info_.profile = info_.form.colour == PixelForm::Colour::Rgb ? MakeRgbProfile(points, 1 / gamma)
                                                                : MakeGreyProfile(1 / gamma);
  }

  void DescribeOrientation() {
#ifdef PNG_eXIf_SUPPORTED
    png_uint_32 size = 0;
    png_bytep data = nullptr;
    if (png_get_eXIf_1(png_, pngInfo_, &size, &data) != 0) {
      info_.orientation = ExifOrientation(data, size);
      return;
    }
#endif
    const std::vector<std::uint8_t> behind = ExifBehindPixels();
    info_.orientation = ExifOrientation(behind.data(), behind.size());
  }

  // The library gets there with the last row. Empty: there is none.
  std::vector<std::uint8_t> ExifBehindPixels() const {
    constexpr long kMark = 8, kCheckSum = 4;
    constexpr std::uint32_t kMostExif = 65536;
    std::vector<std::uint8_t> exif;
    std::FILE* const file = file_.get();
    std::fpos_t place;
    if (std::fgetpos(file, &place) != 0) return exif;  // a pipe
    std::uint8_t head[8];
    bool found = false;
    for (bool more = std::fseek(file, kMark, SEEK_SET) == 0;
         more && !found && std::fread(head, 1, sizeof head, file) == sizeof head;) {
      const std::uint32_t size = png_get_uint_32(head);
      found = std::memcmp(head + 4, "eXIf", 4) == 0 && size <= kMostExif;
      if (found) {
        exif.resize(size);
        exif.resize(std::fread(exif.data(), 1, size, file));
      }
      more = size <= PNG_UINT_31_MAX - kCheckSum &&
             std::fseek(file, static_cast<long>(size) + kCheckSum, SEEK_CUR) == 0;
    }
    const bool failed = std::ferror(file) != 0;
    const int problem = errno;
    std::clearerr(file);
    if (failed || std::fsetpos(file, &place) != 0) FailOfSystem(info_.path, problem);
    return exif;
  }

  void Deinterlace() {
    scratch_ = std::make_unique<ScratchFile>();
    std::vector<std::uint8_t> row(info_.RowBytes());
    for (int pass = 0; pass < PNG_INTERLACE_ADAM7_PASSES; ++pass) {
      for (std::uint32_t y = 0; y < info_.height; ++y) {
        ThrowIfInterrupted();
        const bool touched = PNG_ROW_IN_INTERLACE_PASS(y, pass);
        if (touched) scratch_->Read(row.size() * y, row.data(), row.size());
        if (!DecodeRow(row.data())) Fail();
        if (touched) scratch_->Write(row.size() * y, row.data(), row.size());
      }
    }
    if (!ReadEnd()) Fail();
  }

  InputFile file_;
  State state_;
  png_structp png_ = nullptr;  // both held by state_
  png_infop pngInfo_ = nullptr;
  char error_[256] = "";  // what the library said last
  bool interlaced_ = false;
  std::unique_ptr<ScratchFile> scratch_;  // the whole image, when it is interlaced
  std::uint64_t rowsRead_ = 0;
};

}  // namespace

std::unique_ptr<ImageReader> OpenPng(const std::string& path) {
  return std::make_unique<PngReader>(path);
}

}  // namespace corvane
