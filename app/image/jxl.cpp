// SPDX-License-Identifier: MIT
//
// JPEG XL pictures. The library hands parts of rows out in an order of its own, turned upright;
// they are put together in a scratch file.
#include <jxl/decode.h>
#include <jxl/decode_cxx.h>

#include <cstddef>
#include <cstdio>
#include <exception>
#include <vector>

#include "app/image/pictures.h"
#include "app/support/failure.h"
#include "app/support/input_file.h"
#include "app/support/interrupt.h"
#include "app/support/scratch_file.h"
#include "app/support/short_memory.h"

namespace corvane {
namespace {

constexpr std::size_t kReadBytes = std::size_t{256} << 10;

class JxlReader : public ImageReader {
 public:
  explicit JxlReader(const std::string& path) : decoder_(JxlDecoderMake(nullptr)) {
    info_.path = path;
    file_ = OpenInputFile(path);
    StartWatchingMemory();
    if (!decoder_) throw std::bad_alloc();
    Require(JxlDecoderSubscribeEvents(decoder_.get(), JXL_DEC_BASIC_INFO | JXL_DEC_COLOR_ENCODING |
                                                          JXL_DEC_FRAME | JXL_DEC_FULL_IMAGE));
    Require(JxlDecoderSetUnpremultiplyAlpha(decoder_.get(), JXL_TRUE));
    while (!described_) Step();
  }

  void ReadRow(std::uint8_t* row) override {
    if (next_ == 0) {
      while (!decoded_) Step();
      decoder_.reset();
    }
    scratch_.Read(next_++ * info_.RowBytes(), row, info_.RowBytes());
  }

 private:
  [[noreturn]] void Fail() const {
    ThrowIfMemoryFailed();
    throw Failure(info_.path + ": the JPEG XL picture is cut short or damaged");
  }
  void Require(JxlDecoderStatus status) const {
    if (status != JXL_DEC_SUCCESS) Fail();
  }

  // Lets the library go on until it has something to say.
  void Step() {
    ThrowIfInterrupted();
    StartWatchingMemory();
    const JxlDecoderStatus status = JxlDecoderProcessInput(decoder_.get());
    if (thrown_) std::rethrow_exception(thrown_);
    switch (status) {
      case JXL_DEC_NEED_MORE_INPUT:
        FeedMore();
        break;
      case JXL_DEC_BASIC_INFO:
        Describe();
        break;
      case JXL_DEC_COLOR_ENCODING:
        ReadProfile();
        described_ = true;
        break;
      case JXL_DEC_FRAME:
        break;
      case JXL_DEC_NEED_IMAGE_OUT_BUFFER:
        Require(JxlDecoderSetImageOutCallback(decoder_.get(), &format_, &Store, this));
        break;
      case JXL_DEC_FULL_IMAGE:
        decoded_ = true;
        break;
      default:
        Fail();
    }
  }

  void FeedMore() {
    const std::size_t left = JxlDecoderReleaseInput(decoder_.get());
    input_.erase(input_.begin(), input_.end() - static_cast<std::ptrdiff_t>(left));
    input_.resize(left + kReadBytes);
    const std::size_t more = std::fread(input_.data() + left, 1, kReadBytes, file_.get());
    if (more == 0) Fail();
    input_.resize(left + more);
    Require(JxlDecoderSetInput(decoder_.get(), input_.data(), input_.size()));
  }

  void Describe() {
    JxlBasicInfo picture = {};
    Require(JxlDecoderGetBasicInfo(decoder_.get(), &picture));
    if (picture.have_animation != 0) throw Failure(info_.path + ": an animation is no page");
    info_.width = picture.xsize;
    info_.height = picture.ysize;
    CheckImageSize(info_.path, info_.width, info_.height);
    info_.form.colour =
        picture.num_color_channels == 1 ? PixelForm::Colour::Grey : PixelForm::Colour::Rgb;
    info_.form.alpha = picture.alpha_bits > 0;
    info_.form.bits = picture.bits_per_sample > 8 ? 16 : 8;
    CheckHeldSize(info_);  // what the library holds grows with it
    for (std::uint32_t i = 0; i < picture.num_extra_channels; ++i) {
      JxlExtraChannelInfo channel = {};
      Require(JxlDecoderGetExtraChannelInfo(decoder_.get(), i, &channel));
      if (channel.type == JXL_CHANNEL_BLACK) {
        throw Failure(info_.path + ": a CMYK picture in JPEG XL is not read");
      }
    }
    format_ = {static_cast<std::uint32_t>(info_.form.Channels()),
               info_.form.bits == 16 ? JXL_TYPE_UINT16 : JXL_TYPE_UINT8, JXL_NATIVE_ENDIAN, 0};
  }

  void ReadProfile() {
    JxlColorEncoding encoding = {};
    if (JxlDecoderGetColorAsEncodedProfile(decoder_.get(), &format_, JXL_COLOR_PROFILE_TARGET_DATA,
                                           &encoding) == JXL_DEC_SUCCESS &&
        (encoding.transfer_function == JXL_TRANSFER_FUNCTION_PQ ||
         encoding.transfer_function == JXL_TRANSFER_FUNCTION_HLG)) {
      throw Failure(info_.path + ": a picture of high dynamic range is not read");
    }
    std::size_t size = 0;
    if (JxlDecoderGetICCProfileSize(decoder_.get(), &format_, JXL_COLOR_PROFILE_TARGET_DATA,
                                    &size) != JXL_DEC_SUCCESS) {
      ThrowIfMemoryFailed();
      return;
    }
    info_.profile.resize(size);
    Require(JxlDecoderGetColorAsICCProfile(decoder_.get(), &format_, JXL_COLOR_PROFILE_TARGET_DATA,
                                           info_.profile.data(), size));
  }

  // Nothing may be thrown through the library.
  static void Store(void* self, std::size_t x, std::size_t y, std::size_t count,
                    const void* pixels) {
    auto* reader = static_cast<JxlReader*>(self);
    if (reader->thrown_) return;
    try {
      const std::size_t pixel = reader->info_.form.BytesPerPixel();
      reader->scratch_.Write(y * reader->info_.RowBytes() + x * pixel, pixels, count * pixel);
    } catch (...) {
      reader->thrown_ = std::current_exception();
    }
  }

  InputFile file_;
  JxlDecoderPtr decoder_;
  std::vector<std::uint8_t> input_;
  JxlPixelFormat format_ = {};
  bool described_ = false, decoded_ = false;
  ScratchFile scratch_;
  std::exception_ptr thrown_;
  std::uint64_t next_ = 0;  // row
};

}  // namespace

}  // namespace corvane

corvane::ImageReader* CorvaneOpenPicture(const std::string& path, int) {
  return new corvane::JxlReader(path);
}
