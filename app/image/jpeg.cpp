// SPDX-License-Identifier: MIT
//
// JPEG images: baseline in rows; a progressive image has its coefficients held by the library.
#include <fmt/format.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The library's header needs <cstdio> before it.
#include <jerror.h>
#include <jpeglib.h>

#include "app/image/exif.h"
#include "app/image/jpeg_padding.h"
#include "app/image/reader.h"
#include "app/support/failure.h"
#include "app/support/input_file.h"
#include "app/support/limits.h"

namespace corvane {
namespace {

constexpr int kExifMarker = JPEG_APP0 + 1;
constexpr int kProfileMarker = JPEG_APP0 + 2;
constexpr unsigned kMostMarkerBytes = 0xFFFF;
constexpr char kExifName[6] = {'E', 'x', 'i', 'f', 0, 0};

class JpegReader : public ImageReader {
 public:
  explicit JpegReader(const std::string& path) {
    info_.path = path;
    file_ = OpenInputFile(path);
    jpeg_.err = jpeg_std_error(&errors_.manager);
    errors_.manager.error_exit = &OnError;
    errors_.manager.emit_message = &OnMessage;
    if (!ReadHeader()) Fail();
    Describe();
    RefuseLargeCoefficients();
    if (!Start()) Fail();
  }

  ~JpegReader() override = default;

  void ReadRow(std::uint8_t* row) override {
    if (!DecodeRow(row)) Fail();
    if (++rowsRead_ == info_.height && !ReadEnd()) Fail();
    if (invertedCmyk_) {
      for (std::size_t i = 0; i < info_.RowBytes(); ++i)
        row[i] = static_cast<std::uint8_t>(~row[i]);
    }
  }

 private:
  // What the library hands to the functions below begins with its own error manager.
  struct Errors {
    jpeg_error_mgr manager;
    std::jmp_buf back;
    char message[JMSG_LENGTH_MAX] = {};
    bool cut = false;
  };

  struct Decompressor : jpeg_decompress_struct {
    Decompressor() : jpeg_decompress_struct() {}
    ~Decompressor() { jpeg_destroy_decompress(this); }
  };

  [[noreturn]] void Fail() const {
    if (errors_.manager.msg_code == JERR_OUT_OF_MEMORY) throw std::bad_alloc();
    if (errors_.cut) throw Failure(info_.path + ": the JPEG image is cut short or damaged");
    throw Failure(fmt::format("{}: damaged JPEG image: {}", info_.path, errors_.message));
  }

  static void OnError(j_common_ptr jpeg) {
    auto* errors = reinterpret_cast<Errors*>(jpeg->err);
    errors->manager.format_message(jpeg, errors->message);
    std::longjmp(errors->back, 1);
  }

  // The library mends data that it does not understand with grey and a warning; a page is not to be
  // printed so.
  static void OnMessage(j_common_ptr jpeg, int level) {
    if (level >= 0) return;
    auto* errors = reinterpret_cast<Errors*>(jpeg->err);
    if (!TellsOfDamage(errors->manager,
                       reinterpret_cast<j_decompress_ptr>(jpeg)->input_scan_number)) {
      return;
    }
    errors->cut = true;
    OnError(jpeg);
  }

  // `scan` counts from 1; 0 in the header.
  static bool TellsOfDamage(const jpeg_error_mgr& warning, int scan) {
    switch (warning.msg_code) {
      case JWRN_ADOBE_XFORM:
      case JWRN_JFIF_MAJOR:
      case JWRN_NOT_SEQUENTIAL:
      case JWRN_BOGUS_ICC:  // as any other profile that is damaged
        return false;       // the pixels are all there
      case JWRN_EXTRANEOUS_DATA: {
        const int bytes = warning.msg_parm.i[0], marker = warning.msg_parm.i[1];
        return scan > 0 && (marker != JPEG_EOI || bytes > kMostJpegPadding);
      }
      default:
        return true;
    }
  }

  // The members below jump back into themselves on an error, so they hold no objects.

  bool ReadHeader() {
    if (setjmp(errors_.back) != 0) return false;
    jpeg_create_decompress(&jpeg_);
    jpeg_stdio_src(&jpeg_, file_.get());
    jpeg_save_markers(&jpeg_, kExifMarker, kMostMarkerBytes);
    jpeg_save_markers(&jpeg_, kProfileMarker, kMostMarkerBytes);
    jpeg_read_header(&jpeg_, TRUE);
    if (jpeg_.jpeg_color_space == JCS_GRAYSCALE) {
      jpeg_.out_color_space = JCS_GRAYSCALE;
    } else if (jpeg_.num_components == 4) {
      jpeg_.out_color_space = JCS_CMYK;
    } else {
      jpeg_.out_color_space = JCS_RGB;
    }
    jpeg_.dct_method = JDCT_ISLOW;
    return true;
  }

  bool Start() {
    if (setjmp(errors_.back) != 0) return false;
    jpeg_start_decompress(&jpeg_);
    return true;
  }

  bool DecodeRow(std::uint8_t* row) {
    if (setjmp(errors_.back) != 0) return false;
    JSAMPROW rows[1] = {row};
    jpeg_read_scanlines(&jpeg_, rows, 1);
    return true;
  }

  // What the last row leaves over shows whether the rows before it were understood.
  bool ReadEnd() {
    if (setjmp(errors_.back) != 0) return false;
    jpeg_finish_decompress(&jpeg_);
    return true;
  }

  // No data: there is no profile.
  bool ReadProfile(JOCTET** data, unsigned* size) {
    if (setjmp(errors_.back) != 0) return false;
    jpeg_read_icc_profile(&jpeg_, data, size);
    return true;
  }

  void Describe() {
    info_.width = jpeg_.image_width;
    info_.height = jpeg_.image_height;
    CheckImageSize(info_.path, info_.width, info_.height);
    info_.form.colour = jpeg_.out_color_space == JCS_GRAYSCALE ? PixelForm::Colour::Grey
                        : jpeg_.out_color_space == JCS_CMYK    ? PixelForm::Colour::Cmyk
                                                               : PixelForm::Colour::Rgb;
    // Programs that write the Adobe marker store CMYK upside down.
    invertedCmyk_ = jpeg_.out_color_space == JCS_CMYK && jpeg_.saw_Adobe_marker;
    DescribeResolution();

    JOCTET* data = nullptr;
    unsigned size = 0;
    if (!ReadProfile(&data, &size)) Fail();
    const std::unique_ptr<JOCTET, void (*)(void*)> profile(data, &std::free);
    if (profile) info_.profile.assign(data, data + size);

    for (jpeg_saved_marker_ptr marker = jpeg_.marker_list; marker != nullptr;
         marker = marker->next) {
      if (marker->marker == kExifMarker && marker->data_length > sizeof kExifName &&
          std::memcmp(marker->data, kExifName, sizeof kExifName) == 0) {
        info_.orientation = ExifOrientation(marker->data + sizeof kExifName,
                                            marker->data_length - sizeof kExifName);
      }
    }
  }

  void DescribeResolution() {
    if (!jpeg_.saw_JFIF_marker || jpeg_.density_unit == 0) return;
    const double perInch = jpeg_.density_unit == 2 ? 2.54 : 1;
    info_.horizontalDpi = jpeg_.X_density * perInch;
    info_.verticalDpi = jpeg_.Y_density * perInch;
  }

  void RefuseLargeCoefficients() {
    if (!jpeg_has_multiple_scans(&jpeg_)) return;
    std::uint64_t bytes = 0;
    for (int i = 0; i < jpeg_.num_components; ++i) {
      const jpeg_component_info& component = jpeg_.comp_info[i];
      bytes +=
          std::uint64_t{component.width_in_blocks} * component.height_in_blocks * sizeof(JBLOCK);
    }
    if (bytes > limits::kJpegCoefficientBytes) {
      throw Failure(fmt::format(
          "{}: a progressive JPEG image of {} x {} pixels is too large; store it as baseline",
          info_.path, info_.width, info_.height));
    }
  }

  InputFile file_;
  Errors errors_;
  Decompressor jpeg_;
  bool invertedCmyk_ = false;
  std::uint32_t rowsRead_ = 0;
};

}  // namespace

std::unique_ptr<ImageReader> OpenJpeg(const std::string& path) {
  return std::make_unique<JpegReader>(path);
}

}  // namespace corvane
