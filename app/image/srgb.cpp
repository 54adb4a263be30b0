// SPDX-License-Identifier: MIT
#include "app/image/srgb.h"

#include <lcms2.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "app/support/failure.h"
#include "app/support/icc_handles.h"
#include "app/support/interrupt.h"

namespace corvane {
namespace {

constexpr cmsUInt32Number kTransformFlags = cmsFLAGS_BLACKPOINTCOMPENSATION;

cmsUInt32Number LcmsForm(const PixelForm& form) {
  cmsUInt32Number space = 0;
  switch (form.colour) {
    case PixelForm::Colour::Grey:
      space = PT_GRAY;
      break;
    case PixelForm::Colour::Rgb:
      space = PT_RGB;
      break;
    case PixelForm::Colour::Cmyk:
      space = PT_CMYK;
      break;
    case PixelForm::Colour::Lab:
      space = PT_Lab;
      break;
  }
  const int bytes = form.bits / 8;
  return COLORSPACE_SH(space) | CHANNELS_SH(form.ColourChannels()) | BYTES_SH(bytes) |
         EXTRA_SH(form.alpha ? 1 : 0);
}

cmsColorSpaceSignature SpaceOf(PixelForm::Colour colour) {
  switch (colour) {
    case PixelForm::Colour::Grey:
      return cmsSigGrayData;
    case PixelForm::Colour::Cmyk:
      return cmsSigCmykData;
    case PixelForm::Colour::Lab:
      return cmsSigLabData;
    case PixelForm::Colour::Rgb:
      break;
  }
  return cmsSigRgbData;
}

// Whether a transform of 8-bit RGB changes nothing that can be seen: an image marked as sRGB.
bool IsIdentity(cmsHTRANSFORM transform) {
  constexpr int kStep = 15;
  for (int r = 0; r < 256; r += kStep) {
    for (int g = 0; g < 256; g += kStep) {
      for (int b = 0; b < 256; b += kStep) {
        const std::uint8_t in[3] = {static_cast<std::uint8_t>(r), static_cast<std::uint8_t>(g),
                                    static_cast<std::uint8_t>(b)};
        std::uint8_t out[3];
        cmsDoTransform(transform, in, out, 1);
        for (int i = 0; i < 3; ++i) {
          if (std::abs(in[i] - out[i]) > 1) return false;
        }
      }
    }
  }
  return true;
}

// The profile of the pixels; null where there is none that can be used.
IccProfile ProfileOf(const ImageInfo& image) {
  IccProfile profile;
  if (!image.profile.empty()) {
    profile.reset(cmsOpenProfileFromMemTHR(IccContext(), image.profile.data(),
                                           static_cast<cmsUInt32Number>(image.profile.size())));
    if (profile && cmsGetColorSpace(profile.get()) != SpaceOf(image.form.colour)) profile.reset();
  }
  if (!profile && image.form.colour == PixelForm::Colour::Lab) {
    profile.reset(cmsCreateLab4ProfileTHR(IccContext(), nullptr));
  }
  return profile;
}

// Null: the pixels are sRGB, or CMYK without a usable profile.
IccTransform MakeTransform(const ImageInfo& image) {
  const PixelForm& form = image.form;
  const IccProfile from = ProfileOf(image);
  if (!from) return nullptr;

  const IccProfile to(cmsCreate_sRGBProfileTHR(IccContext()));
  const auto create = [&](cmsUInt32Number in) {
    return IccTransform(cmsCreateTransformTHR(IccContext(), from.get(), in, to.get(), TYPE_RGB_8,
                                              INTENT_RELATIVE_COLORIMETRIC, kTransformFlags));
  };
  if (form.colour == PixelForm::Colour::Rgb) {
    const IccTransform bytes = create(TYPE_RGB_8);
    if (!bytes || IsIdentity(bytes.get())) return nullptr;
  }
  return create(LcmsForm(form));
}

std::uint8_t ToByte(std::uint16_t wide) {
  return static_cast<std::uint8_t>((wide * 255u + 32895u) >> 16);
}

// `share` / 255 of `value`, rounded.
std::uint8_t Scaled(unsigned value, unsigned share) {
  return static_cast<std::uint8_t>((value * share + 127) / 255);
}

class SrgbRows : public RowSource {
 public:
  explicit SrgbRows(std::unique_ptr<ImageReader> image)
      : RowSource(image->Info().width, image->Info().height, image->Info().form.tagged ? 4 : 3),
        image_(std::move(image)),
        form_(image_->Info().form),
        transform_(MadeInIccMemory([&] { return MakeTransform(image_->Info()); })) {
    direct_ =
        !transform_ && form_.colour == PixelForm::Colour::Rgb && form_.bits == 8 && !form_.alpha;
    if (!direct_) stored_.resize(image_->Info().RowBytes());
  }

  void ReadRow(std::uint8_t* row) override {
    ThrowIfInterrupted();
    if (direct_) {
      image_->ReadRow(row);
      return;
    }
    image_->ReadRow(stored_.data());
    if (transform_) {
      cmsDoTransform(transform_.get(), stored_.data(), row, Width());
    } else {
      if (form_.bits == 16) Narrow();
      ToRgb(row);
    }
    if (form_.alpha) OverWhite(row);
  }

 private:
  std::size_t Channels() const { return static_cast<std::size_t>(form_.Channels()); }

  // 16 bits a sample to 8, in place.
  void Narrow() {
    for (std::size_t i = 0; i < Channels() * Width(); ++i) {
      std::uint16_t wide;
      std::memcpy(&wide, stored_.data() + 2 * i, sizeof wide);
      stored_[i] = ToByte(wide);
    }
  }

  void ToRgb(std::uint8_t* row) const {
    const std::uint8_t* pixel = stored_.data();
    for (std::uint32_t x = 0; x < Width(); ++x, pixel += Channels(), row += 3) {
      switch (form_.colour) {
        case PixelForm::Colour::Grey:
          row[0] = row[1] = row[2] = pixel[0];
          break;
        case PixelForm::Colour::Cmyk:
          for (int i = 0; i < 3; ++i) row[i] = Scaled(255u - pixel[i], 255u - pixel[3]);
          break;
        default:
          std::memcpy(row, pixel, 3);
      }
    }
  }

  void OverWhite(std::uint8_t* row) const {
    const std::size_t channels = Channels();
    const bool narrowed = !transform_ || form_.bits == 8;
    for (std::size_t x = 0; x < Width(); ++x, row += 3) {
      const std::size_t sample = x * channels + channels - 1;
      unsigned alpha;
      if (narrowed) {
        alpha = stored_[sample];
      } else {
        std::uint16_t wide;
        std::memcpy(&wide, stored_.data() + 2 * sample, sizeof wide);
        alpha = ToByte(wide);
      }
      if (alpha == 255) continue;
      for (int i = 0; i < 3; ++i) {
        row[i] = static_cast<std::uint8_t>((row[i] * alpha + 255 * (255 - alpha) + 127) / 255);
      }
    }
  }

  std::unique_ptr<ImageReader> image_;
  PixelForm form_;
  IccTransform transform_;
  std::vector<std::uint8_t> stored_;
  bool direct_;
};

class GreyRows : public RowSource {
 public:
  explicit GreyRows(std::unique_ptr<ImageReader> image)
      : RowSource(image->Info().width, image->Info().height, 1), image_(std::move(image)) {
    const ImageInfo& info = image_->Info();
    if (info.form.colour != PixelForm::Colour::Grey) {
      throw Failure(info.path + ": the tags must be a grey image");
    }
    stored_.resize(info.RowBytes());
  }

  void ReadRow(std::uint8_t* row) override {
    image_->ReadRow(stored_.data());
    const std::size_t step = image_->Info().form.BytesPerPixel();
    for (std::size_t x = 0; x < Width(); ++x) {
      if (image_->Info().form.bits == 8) {
        row[x] = stored_[x * step];
      } else {
        std::uint16_t wide;
        std::memcpy(&wide, stored_.data() + x * step, sizeof wide);
        row[x] = ToByte(wide);
      }
    }
  }

 private:
  std::unique_ptr<ImageReader> image_;
  std::vector<std::uint8_t> stored_;
};

}  // namespace

std::unique_ptr<RowSource> MakeSrgbRows(std::unique_ptr<ImageReader> image) {
  return std::make_unique<SrgbRows>(std::move(image));
}

std::unique_ptr<RowSource> MakeGreyRows(std::unique_ptr<ImageReader> image) {
  return std::make_unique<GreyRows>(std::move(image));
}

}  // namespace corvane
