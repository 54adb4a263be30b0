// SPDX-License-Identifier: MIT
//
// The pictures of optional libraries, written with the libraries themselves and read through the
// common reader.
#include "app/image/pictures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "app/image/profile.h"
#include "app/image/srgb.h"
#include "app/support/failure.h"
#include "tests/app/image/test_images.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

#if defined(CORVANE_WEBP)
#include <webp/encode.h>
#include <webp/mux.h>
#endif
#if defined(CORVANE_HEIF)
#include <libheif/heif.h>
#endif
#if defined(CORVANE_JXL)
#include <jxl/encode.h>
#include <jxl/encode_cxx.h>
#endif
#if defined(CORVANE_EXR)
#include <ImfRgbaFile.h>
#endif

namespace corvane {
namespace {

using Pixels = std::vector<std::uint8_t>;

constexpr int kWidth = 300, kHeight = 70;  // more than a block of any library

// What a writer puts into the file beside the pixels.
struct Extras {
  std::vector<std::uint8_t> profile = {};
  int orientation = 1;
};

struct Kind {
  const char* name;
  int mostBits;
  bool holdsProfiles, holdsOrientation;
  int tolerance;
  // An RGB image of 8 or 16 bits, with alpha where it has four channels.
  void (*write)(const std::string& path, const TestImage& image, const Extras& extras);
};

// Samples as a library takes them: interleaved, 16 bits in the order of the machine.
[[maybe_unused]] Pixels Interleaved(const TestImage& image) {
  Pixels bytes;
  for (const std::uint16_t sample : image.samples) {
    bytes.push_back(static_cast<std::uint8_t>(sample));
    if (image.bits == 16) bytes.push_back(static_cast<std::uint8_t>(sample >> 8));
  }
  return bytes;
}

#if defined(CORVANE_WEBP)
// EXIF data with nothing but an orientation.
std::string ExifOf(int orientation) {
  std::string exif("MM\0*\0\0\0\10\0\1\1\22\0\3\0\0\0\1\0\0\0\0\0\0\0\0", 26);
  exif[19] = static_cast<char>(orientation);
  return exif;
}

void WriteWebp(const std::string& path, const TestImage& image, const Extras& extras) {
  const Pixels pixels = Interleaved(image);
  std::uint8_t* encoded = nullptr;
  const auto encode = image.channels == 4 ? &WebPEncodeLosslessRGBA : &WebPEncodeLosslessRGB;
  const WebPData picture = {nullptr, encode(pixels.data(), image.width, image.height,
                                            image.width * image.channels, &encoded)};
  WebPMux* mux = WebPMuxNew();
  const WebPData bare = {encoded, picture.size};
  WebPMuxSetImage(mux, &bare, 1);
  WebPFree(encoded);
  const std::string exif = ExifOf(extras.orientation);
  const WebPData exifData = {reinterpret_cast<const std::uint8_t*>(exif.data()), exif.size()};
  if (extras.orientation != 1) WebPMuxSetChunk(mux, "EXIF", &exifData, 1);
  const WebPData profile = {extras.profile.data(), extras.profile.size()};
  if (!extras.profile.empty()) WebPMuxSetChunk(mux, "ICCP", &profile, 1);
  WebPData file = {};
  ASSERT_EQ(WebPMuxAssemble(mux, &file), WEBP_MUX_OK);
  WriteFile(path, std::string(reinterpret_cast<const char*>(file.bytes), file.size));
  WebPDataClear(&file);
  WebPMuxDelete(mux);
}
#endif

#if defined(CORVANE_HEIF)
void WriteHeif(const std::string& path, const TestImage& image, const Extras& extras) {
  const bool alpha = image.channels == 4;
  heif_image* picture = nullptr;
  heif_image_create(image.width, image.height, heif_colorspace_RGB,
                    alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, &picture);
  heif_image_add_plane(picture, heif_channel_interleaved, image.width, image.height, 8);
  int stride = 0;
  std::uint8_t* plane = heif_image_get_plane(picture, heif_channel_interleaved, &stride);
  const Pixels pixels = Interleaved(image);
  const auto rowBytes = static_cast<std::size_t>(image.width * image.channels);
  for (int y = 0; y < image.height; ++y) {
    std::memcpy(plane + y * stride, pixels.data() + static_cast<std::size_t>(y) * rowBytes,
                rowBytes);
  }
  if (!extras.profile.empty()) {
    heif_image_set_raw_color_profile(picture, "prof", extras.profile.data(), extras.profile.size());
  }
  heif_context* context = heif_context_alloc();
  heif_encoder* encoder = nullptr;
  ASSERT_EQ(heif_context_get_encoder_for_format(context, heif_compression_AV1, &encoder).code,
            heif_error_Ok);
  heif_encoder_set_lossy_quality(encoder, 95);
  heif_encoder_set_parameter(encoder, "chroma", "444");
  heif_context_encode_image(context, picture, encoder, nullptr, nullptr);
  heif_context_write_to_file(context, path.c_str());
  heif_encoder_release(encoder);
  heif_image_release(picture);
  heif_context_free(context);
}
#endif

#if defined(CORVANE_JXL)
void WriteJxl(const std::string& path, const TestImage& image, const Extras& extras) {
  const JxlEncoderPtr encoder = JxlEncoderMake(nullptr);
  JxlBasicInfo info;
  JxlEncoderInitBasicInfo(&info);
  info.xsize = static_cast<std::uint32_t>(image.width);
  info.ysize = static_cast<std::uint32_t>(image.height);
  info.bits_per_sample = static_cast<std::uint32_t>(image.bits);
  info.uses_original_profile = JXL_TRUE;
  info.orientation = static_cast<JxlOrientation>(extras.orientation);
  if (image.channels == 4) {
    info.num_extra_channels = 1;
    info.alpha_bits = info.bits_per_sample;
  }
  ASSERT_EQ(JxlEncoderSetBasicInfo(encoder.get(), &info), JXL_ENC_SUCCESS);
  JxlColorEncoding srgb;
  JxlColorEncodingSetToSRGB(&srgb, JXL_FALSE);
  if (extras.profile.empty()) {
    JxlEncoderSetColorEncoding(encoder.get(), &srgb);
  } else {
    JxlEncoderSetICCProfile(encoder.get(), extras.profile.data(), extras.profile.size());
  }
  JxlEncoderFrameSettings* frame = JxlEncoderFrameSettingsCreate(encoder.get(), nullptr);
  JxlEncoderSetFrameLossless(frame, JXL_TRUE);
  JxlEncoderFrameSettingsSetOption(frame, JXL_ENC_FRAME_SETTING_EFFORT, 1);
  const JxlPixelFormat format = {static_cast<std::uint32_t>(image.channels),
                                 image.bits == 16 ? JXL_TYPE_UINT16 : JXL_TYPE_UINT8,
                                 JXL_NATIVE_ENDIAN, 0};
  const Pixels pixels = Interleaved(image);
  ASSERT_EQ(JxlEncoderAddImageFrame(frame, &format, pixels.data(), pixels.size()), JXL_ENC_SUCCESS);
  JxlEncoderCloseInput(encoder.get());
  std::vector<std::uint8_t> file(pixels.size() + 65536);
  std::uint8_t* next = file.data();
  std::size_t left = file.size();
  ASSERT_EQ(JxlEncoderProcessOutput(encoder.get(), &next, &left), JXL_ENC_SUCCESS);
  WriteFile(path, std::string(reinterpret_cast<const char*>(file.data()), file.size() - left));
}
#endif

#if defined(CORVANE_EXR)
// The samples are light here, and a colour is multiplied with its alpha.
void WriteExr(const std::string& path, const TestImage& image, const Extras&) {
  std::vector<Imf::Rgba> pixels;
  const float full = image.bits == 16 ? 65535.0f : 255.0f;
  const auto light = [](float v) {
    return v <= 0.04045f ? v / 12.92f : std::pow((v + 0.055f) / 1.055f, 2.4f);
  };
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const auto sample = [&](int c) { return image.At(x, y, c) / full; };
      const float alpha = image.channels == 4 ? sample(3) : 1;
      pixels.emplace_back(light(sample(0)) * alpha, light(sample(1)) * alpha,
                          light(sample(2)) * alpha, alpha);
    }
  }
  Imf::RgbaOutputFile file(path.c_str(), image.width, image.height,
                           image.channels == 4 ? Imf::WRITE_RGBA : Imf::WRITE_RGB);
  file.setFrameBuffer(pixels.data(), 1, static_cast<std::size_t>(image.width));
  file.writePixels(image.height);
}
#endif

const std::vector<Kind> kKinds = {
#if defined(CORVANE_WEBP)
    {"WebP", 8, true, true, 0, &WriteWebp},
#endif
#if defined(CORVANE_HEIF)
    {"HEIF", 8, true, false, 6, &WriteHeif},
#endif
#if defined(CORVANE_JXL)
    {"JPEG XL", 16, true, true, 1, &WriteJxl},
#endif
#if defined(CORVANE_EXR)
    {"OpenEXR", 16, false, false, 1, &WriteExr},
#endif
};

TestImage Ramp(int channels, int bits) {
  const int full = (1 << bits) - 1;
  return MakeImage(kWidth, kHeight, channels, bits, [=](int x, int y, int c) {
    if (c == 3) return full * (kHeight - y) / kHeight;
    return full * (x + 40 * c + y) / (kWidth + 80 + kHeight);
  });
}

Pixels ReadSrgb(const std::string& path) {
  const auto rows = MakeSrgbRows(OpenImage(path));
  Pixels pixels(rows->RowBytes() * rows->Height());
  for (std::size_t y = 0; y < rows->Height(); ++y) {
    rows->ReadRow(pixels.data() + y * rows->RowBytes());
  }
  return pixels;
}

void ExpectOverWhite(const Pixels& got, const TestImage& image, int tolerance) {
  ASSERT_EQ(got.size(), std::size_t{3} * kWidth * kHeight);
  const double full = (1 << image.bits) - 1;
  std::size_t at = 0;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const double alpha = image.channels == 4 ? image.At(x, y, 3) / full : 1;
      for (int c = 0; c < 3; ++c) {
        const double expected = 255 * (image.At(x, y, c) / full * alpha + 1 - alpha);
        ASSERT_NEAR(got[at++], expected, tolerance + 1) << x << ", " << y << ", " << c;
      }
    }
  }
}

TEST(Pictures, ShowTheirPixelsOverWhite) {
  const ScratchFolder folder;
  for (const Kind& kind : kKinds) {
    for (const int channels : {3, 4}) {
      for (int bits = 8; bits <= kind.mostBits; bits += 8) {
        SCOPED_TRACE(testing::Message() << kind.name << ", " << channels << " of " << bits);
        const TestImage image = Ramp(channels, bits);
        kind.write(folder.File("picture"), image, {});
        EXPECT_EQ(OpenImage(folder.File("picture"))->Info().form.alpha, channels == 4);
        ExpectOverWhite(ReadSrgb(folder.File("picture")), image, kind.tolerance);
      }
    }
  }
}

// A profile of light makes the middle lighter; what has none keeps its values.
TEST(Pictures, AreReadThroughTheirProfiles) {
  const ScratchFolder folder;
  for (const Kind& kind : kKinds) {
    if (!kind.holdsProfiles) continue;
    SCOPED_TRACE(kind.name);
    const TestImage image = MakeImage(kWidth, kHeight, 3, 8, [](int, int, int) { return 55; });
    kind.write(folder.File("picture"), image, {.profile = MakeRgbProfile({}, 1.0)});
    for (const std::uint8_t value : ReadSrgb(folder.File("picture"))) ASSERT_NEAR(value, 128, 4);
  }
}

TEST(Pictures, AreTurnedUpright) {
  const ScratchFolder folder;
  const TestImage image = Ramp(3, 8);
  for (const Kind& kind : kKinds) {
    if (!kind.holdsOrientation) continue;
    SCOPED_TRACE(kind.name);
    kind.write(folder.File("picture"), image, {.orientation = 6});
    auto reader = OpenImage(folder.File("picture"));
    const int orientation = reader->Info().orientation;  // 1 where the library has turned it
    const auto rows = MakeUprightRows(MakeSrgbRows(std::move(reader)), orientation);
    ASSERT_EQ(rows->Width(), kHeight);
    Pixels row(rows->RowBytes());
    rows->ReadRow(row.data());
    EXPECT_NEAR(row[0], image.At(0, kHeight - 1, 0), 1);
    EXPECT_NEAR(row[row.size() - 3], image.At(0, 0, 0), 1);
  }
}

TEST(Pictures, ThatAreCutOrChangedFailInOneLine) {
  const ScratchFolder folder;
  const std::string path = folder.File("picture");
  for (const Kind& kind : kKinds) {
    kind.write(path, Ramp(4, 8), {});
    const std::string good = ReadFile(path);
    for (const std::size_t kept : {std::size_t{40}, good.size() / 2, good.size() - 20}) {
      SCOPED_TRACE(testing::Message() << kind.name << ", " << kept << " of " << good.size());
      WriteFile(path, good.substr(0, kept));
      const std::string failure = FailureOf([&] { ReadSrgb(path); });
      EXPECT_THAT(failure, testing::StartsWith(path + ": "));
      EXPECT_THAT(failure, testing::Not(testing::HasSubstr("\n")));
    }
    std::mt19937 random(1);
    for (int round = 0; round < 40; ++round) {
      std::string bytes = good;
      for (int i = 0; i < 4; ++i) bytes[random() % bytes.size()] = static_cast<char>(random());
      WriteFile(path, bytes);
      try {
        const auto rows = MakeSrgbRows(OpenImage(path));
        Pixels row(rows->RowBytes());
        for (std::uint32_t y = 0; y < std::min(rows->Height(), 200u); ++y)
          rows->ReadRow(row.data());
      } catch (const Failure&) {
      }
    }
  }
}

// The first bytes of kinds that no build reads, or this one not.
TEST(Pictures, WithoutALibrarySayWhatToDo) {
  const ScratchFolder folder;
  const struct {
    std::string bytes, complaint;
  } kCases[] = {
    {"8BPS\0\1aaaaaaaaaa", "Photoshop documents are not read; store it as TIFF"},
#if !defined(CORVANE_WEBP)
    {"RIFFaaaaWEBPVP8 ", "libwebp-dev"},
#endif
#if !defined(CORVANE_HEIF)
    {std::string("\0\0\0\30ftypavif", 12), "libheif-dev"},
#endif
#if !defined(CORVANE_JXL)
    {"\xff\x0a"
     "aaaaaaaaaaaaaa",
     "libjxl-dev"},
#endif
#if !defined(CORVANE_EXR)
    {"v/1\1aaaaaaaaaaaa", "libopenexr-dev"},
#endif
  };
  for (const auto& test : kCases) {
    const std::string path = folder.Write("picture", test.bytes);
    EXPECT_THAT(
        FailureOf([&] { OpenImage(path); }),
        testing::AllOf(testing::StartsWith(path + ": "), testing::HasSubstr(test.complaint)));
  }
}

}  // namespace
}  // namespace corvane
