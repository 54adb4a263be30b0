// SPDX-License-Identifier: MIT
#include "app/image_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "app/failure.h"
#include "app/image_profile.h"
#include "app/image_srgb.h"
#include "tests/app/test_images.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using Pixels = std::vector<std::uint8_t>;

constexpr int kWidth = 45, kHeight = 37;

Pixels ReadAll(RowSource& rows) {
  Pixels pixels(rows.RowBytes() * rows.Height());
  for (std::size_t y = 0; y < rows.Height(); ++y) rows.ReadRow(pixels.data() + y * rows.RowBytes());
  return pixels;
}

Pixels ReadSrgb(const std::string& path, int page = 0) {
  return ReadAll(*MakeSrgbRows(OpenImage(path, page)));
}

// What an image should look like: sRGB of every pixel.
Pixels Expected(const TestImage& image,
                const std::function<std::array<int, 3>(const TestImage&, int x, int y)>& colour) {
  Pixels pixels;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      for (const int value : colour(image, x, y)) {
        pixels.push_back(static_cast<std::uint8_t>(value));
      }
    }
  }
  return pixels;
}

void ExpectNear(const Pixels& got, const Pixels& expected, int tolerance) {
  ASSERT_EQ(got.size(), expected.size());
  for (std::size_t i = 0; i < got.size(); ++i) {
    ASSERT_LE(std::abs(got[i] - expected[i]), tolerance)
        << "pixel " << i / 3 << " channel " << i % 3 << ": " << int{got[i]} << " for "
        << int{expected[i]};
  }
}

int Noise(int x, int y, int c) { return (x * 7919 + y * 104729 + c * 1299709) ^ (x * y * 31); }

// 8 bits of a sample of any depth.
int Full(int value, int bits) {
  return (value * 255 * 2 + (1 << bits) - 1) / (2 * ((1 << bits) - 1));
}

std::array<int, 3> Grey(const TestImage& image, int x, int y) {
  const int value = Full(image.At(x, y, 0), image.bits);
  return {value, value, value};
}
std::array<int, 3> Inverse(const TestImage& image, int x, int y) {
  const int value = 255 - Full(image.At(x, y, 0), image.bits);
  return {value, value, value};
}
std::array<int, 3> Rgb(const TestImage& image, int x, int y) {
  return {Full(image.At(x, y, 0), image.bits), Full(image.At(x, y, 1), image.bits),
          Full(image.At(x, y, 2), image.bits)};
}
int OverWhite(int value, int alpha) {
  return static_cast<int>(std::lround((value * alpha + 255.0 * (255 - alpha)) / 255));
}
std::array<int, 3> GreyAlpha(const TestImage& image, int x, int y) {
  const int value =
      OverWhite(Full(image.At(x, y, 0), image.bits), Full(image.At(x, y, 1), image.bits));
  return {value, value, value};
}
std::array<int, 3> RgbAlpha(const TestImage& image, int x, int y) {
  const int alpha = Full(image.At(x, y, 3), image.bits);
  std::array<int, 3> rgb = Rgb(image, x, y);
  for (int& value : rgb) value = OverWhite(value, alpha);
  return rgb;
}
// Colours already multiplied by alpha: white is added where the image lets it through.
std::array<int, 3> Multiplied(const TestImage& image, int x, int y) {
  const int alpha = Full(image.At(x, y, 3), image.bits);
  std::array<int, 3> rgb = Rgb(image, x, y);
  for (int& value : rgb) value += 255 - alpha;
  return rgb;
}
std::array<int, 3> Cmyk(const TestImage& image, int x, int y) {
  std::array<int, 3> rgb;
  for (int c = 0; c < 3; ++c) {
    rgb[static_cast<std::size_t>(c)] =
        static_cast<int>(std::lround((255.0 - Full(image.At(x, y, c), image.bits)) *
                                     (255 - Full(image.At(x, y, 3), image.bits)) / 255));
  }
  return rgb;
}

const Pixels kPalette = {10, 20, 30, 200, 100, 0, 0, 255, 77, 255, 255, 255};
std::array<int, 3> Palette(const TestImage& image, int x, int y) {
  const std::size_t index = image.At(x, y, 0);
  return {kPalette[3 * index], kPalette[3 * index + 1], kPalette[3 * index + 2]};
}
std::array<int, 3> PaletteAlpha(const TestImage& image, int x, int y) {
  std::array<int, 3> rgb = Palette(image, x, y);
  if (image.At(x, y, 0) == 1) {
    for (int& value : rgb) value = OverWhite(value, 64);
  }
  return rgb;
}

TEST(ImageReader, ReadsEveryPngForm) {
  const struct {
    int colourType, channels, bits;
    bool transparentPalette;
    std::array<int, 3> (*colour)(const TestImage&, int, int);
  } kCases[] = {
      {0, 1, 1, false, Grey},      {0, 1, 2, false, Grey},       {0, 1, 4, false, Grey},
      {0, 1, 8, false, Grey},      {0, 1, 16, false, Grey},      {2, 3, 8, false, Rgb},
      {2, 3, 16, false, Rgb},      {3, 1, 2, false, Palette},    {3, 1, 2, true, PaletteAlpha},
      {4, 2, 8, false, GreyAlpha}, {4, 2, 16, false, GreyAlpha}, {6, 4, 8, false, RgbAlpha},
      {6, 4, 16, false, RgbAlpha},
  };
  const ScratchFolder folder;
  for (const auto& test : kCases) {
    for (const bool interlaced : {false, true}) {
      SCOPED_TRACE(testing::Message() << "type " << test.colourType << ", " << test.bits << " bits"
                                      << (interlaced ? ", interlaced" : ""));
      const TestImage image = MakeImage(kWidth, kHeight, test.channels, test.bits, Noise);
      PngOptions options{.colourType = test.colourType, .interlaced = interlaced};
      if (test.colourType == 3) options.palette = kPalette;
      if (test.transparentPalette) options.paletteAlpha = {255, 64};
      WritePng(folder.File("image.png"), image, options);
      ExpectNear(ReadSrgb(folder.File("image.png")), Expected(image, test.colour),
                 test.bits == 16 ? 1 : 0);
    }
  }
}

TEST(ImageReader, ReadsEveryTiffForm) {
  constexpr int kNone = 1, kLzw = 5, kPackBits = 32773;
  const struct {
    int photometric, channels, bits, extra;
    std::array<int, 3> (*colour)(const TestImage&, int, int);
  } kForms[] = {
      {0, 1, 1, -1, Inverse}, {1, 1, 1, -1, Grey}, {1, 1, 4, -1, Grey},  {0, 1, 8, -1, Inverse},
      {1, 1, 16, -1, Grey},   {2, 3, 8, -1, Rgb},  {2, 3, 16, -1, Rgb},  {2, 4, 8, 2, RgbAlpha},
      {3, 1, 2, -1, Palette}, {5, 4, 8, -1, Cmyk}, {5, 4, 16, -1, Cmyk}, {2, 4, 8, 0, Rgb},
  };
  const struct {
    int compression, tile, rowsPerStrip;
    bool separate, bigEndian;
  } kStorage[] = {{kNone, 0, 0, false, false},      {kNone, 0, 5, true, true},
                  {kLzw, 0, 7, false, true},        {kLzw, 0, 0, true, false},
                  {kPackBits, 16, 0, false, false}, {kNone, 32, 0, true, true}};
  const ScratchFolder folder;
  for (const auto& form : kForms) {
    const TestImage image = MakeImage(kWidth, kHeight, form.channels, form.bits, Noise);
    for (const auto& storage : kStorage) {
      if (storage.separate && form.channels == 1) continue;
      SCOPED_TRACE(testing::Message()
                   << "photometric " << form.photometric << ", " << form.channels << " x "
                   << form.bits << " bits, compression " << storage.compression << ", tile "
                   << storage.tile << ", separate " << storage.separate);
      TiffOptions options;
      options.photometric = form.photometric;
      options.extraSample = form.extra;
      options.compression = storage.compression;
      options.tile = storage.tile;
      options.rowsPerStrip = storage.rowsPerStrip;
      options.separate = storage.separate;
      options.bigEndian = storage.bigEndian;
      if (form.photometric == 3) options.palette = kPalette;
      WriteTiff(folder.File("image.tif"), image, options);
      ExpectNear(ReadSrgb(folder.File("image.tif")), Expected(image, form.colour),
                 form.bits == 16 ? 1 : 0);
    }
  }
}

TEST(ImageReader, TakesAlphaOutOfColoursItWasMultipliedInto) {
  const TestImage image = MakeImage(kWidth, kHeight, 4, 8, [](int x, int y, int c) {
    const int alpha = (x * 6 + y) % 256;
    return c == 3 ? alpha : alpha * (c + 1) / 4;
  });
  const ScratchFolder folder;
  WriteTiff(folder.File("image.tif"), image, {.photometric = 2, .extraSample = 1});
  ExpectNear(ReadSrgb(folder.File("image.tif")), Expected(image, Multiplied), 1);
}

TEST(ImageReader, ReadsEveryJpegForm) {
  const auto smooth = [](int x, int y, int c) { return 40 + 3 * x + y + 20 * c; };
  const ScratchFolder folder;
  for (const int channels : {1, 3, 4}) {
    for (const bool progressive : {false, true}) {
      SCOPED_TRACE(testing::Message() << channels << " channels, progressive " << progressive);
      const TestImage image = MakeImage(kWidth, kHeight, channels, 8, smooth);
      WriteJpeg(folder.File("image.jpg"), image, progressive);
      ExpectNear(ReadSrgb(folder.File("image.jpg")),
                 Expected(image, channels == 1   ? Grey
                                 : channels == 3 ? Rgb
                                                 : Cmyk),
                 4);
    }
  }
}

TEST(ImageReader, TurnsAnImageAsItsOrientationSays) {
  // Sides beyond a tile of the scratch file and no multiple of it.
  constexpr int kWide = 75, kHigh = 70;
  const TestImage image = MakeImage(kWide, kHigh, 3, 8, Noise);
  // Where the stored pixel (x, y) belongs, in the words of the TIFF orientations.
  const auto place = [](int orientation, int x, int y) -> std::pair<int, int> {
    const int right = kWide - 1 - x, bottom = kHigh - 1 - y;
    switch (orientation) {
      case 2:
        return {right, y};
      case 3:
        return {right, bottom};
      case 4:
        return {x, bottom};
      case 5:
        return {y, x};
      case 6:
        return {bottom, x};
      case 7:
        return {bottom, right};
      case 8:
        return {y, right};
      default:
        return {x, y};
    }
  };
  const ScratchFolder folder;
  for (int orientation = 1; orientation <= 8; ++orientation) {
    SCOPED_TRACE(orientation);
    WriteTiff(folder.File("image.tif"), image, {.photometric = 2, .orientation = orientation});
    WriteJpeg(folder.File("image.jpg"), image, false, orientation);
    EXPECT_EQ(OpenImage(folder.File("image.jpg"))->Info().orientation, orientation);

    auto reader = OpenImage(folder.File("image.tif"));
    ASSERT_EQ(reader->Info().orientation, orientation);
    const auto upright = MakeUprightRows(MakeSrgbRows(std::move(reader)), orientation);
    const Pixels pixels = ReadAll(*upright);
    ASSERT_EQ(static_cast<int>(upright->Width()), orientation < 5 ? kWide : kHigh);
    for (int y = 0; y < kHigh; ++y) {
      for (int x = 0; x < kWide; ++x) {
        const auto [column, row] = place(orientation, x, y);
        const std::size_t at = 3 * (static_cast<std::size_t>(row) * upright->Width() +
                                    static_cast<std::size_t>(column));
        ASSERT_EQ(pixels[at], image.At(x, y, 0)) << x << ", " << y;
      }
    }
  }
}

TEST(ImageReader, ConvertsThroughTheProfileOrGamma) {
  const TestImage image = MakeImage(16, 16, 3, 8, [](int x, int y, int) { return 16 * y + x; });
  const auto linear = [](const TestImage& from, int x, int y) -> std::array<int, 3> {
    const double light = from.At(x, y, 0) / 255.0;
    const double encoded =
        light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
    const int value = static_cast<int>(std::lround(255 * encoded));
    return {value, value, value};
  };
  const ScratchFolder folder;
  const std::string path = folder.File("image.png");
  WritePng(path, image, {.colourType = 2, .profile = MakeRgbProfile({}, 1.0)});
  ExpectNear(ReadSrgb(path), Expected(image, linear), 1);
  WritePng(path, image, {.colourType = 2, .gamma = 1.0});
  ExpectNear(ReadSrgb(path), Expected(image, linear), 1);
  // The usual gamma means sRGB.
  WritePng(path, image, {.colourType = 2, .gamma = 0.45455});
  ExpectNear(ReadSrgb(path), Expected(image, Rgb), 0);
  WritePng(path, image, {.colourType = 2, .gamma = 0.45455, .srgbPrimaries = true});
  ExpectNear(ReadSrgb(path), Expected(image, Rgb), 0);
}

TEST(ImageReader, CountsThePagesOfATiffFile) {
  const TestImage image = MakeImage(4, 4, 1, 8, Noise);
  const TestImage other = MakeImage(6, 3, 1, 8, Noise);
  const ScratchFolder folder;
  const std::string path = folder.File("pages.tif");
  WriteTiff(path, image, {});
  WriteTiff(path, image, {.append = true, .reduced = true});
  WriteTiff(path, other, {.append = true});
  EXPECT_EQ(CountImagePages(path), 2);
  ExpectNear(ReadSrgb(path, 1), Expected(other, Grey), 0);
}

// ---------------------------------------------------------------------------------------------
// Broken files, each made from a good one by one change.

struct Mutation {
  const char* name;
  std::function<void(std::string&)> apply;
};

const Mutation kMutations[] = {
    {"empty", [](std::string& bytes) { bytes.clear(); }},
    {"cut in the header", [](std::string& bytes) { bytes.resize(12); }},
    {"cut in the middle", [](std::string& bytes) { bytes.resize(bytes.size() / 2); }},
    {"another kind", [](std::string& bytes) { bytes = "GIF89a" + bytes; }},
    {"text", [](std::string& bytes) { bytes = "hello"; }},
};

TEST(ImageReader, NamesTheBrokenFile) {
  const TestImage image = MakeImage(200, 200, 3, 8, Noise);
  const ScratchFolder folder;
  WritePng(folder.File("a.png"), image, {.colourType = 2});
  WriteJpeg(folder.File("a.jpg"), image);
  WriteTiff(folder.File("a.tif"), image, {.photometric = 2, .compression = 5, .rowsPerStrip = 20});
  for (const char* name : {"a.png", "a.jpg", "a.tif"}) {
    const std::string good = ReadFile(folder.File(name));
    for (const Mutation& mutation : kMutations) {
      SCOPED_TRACE(std::string(name) + ", " + mutation.name);
      std::string bytes = good;
      mutation.apply(bytes);
      const std::string path = folder.File(std::string("broken-") + name);
      WriteFile(path, bytes);
      try {
        ReadSrgb(path);
        ADD_FAILURE() << "read to the end";
      } catch (const Failure& failure) {
        EXPECT_THAT(failure.what(), testing::StartsWith(path + ": "));
        EXPECT_THAT(failure.what(), testing::Not(testing::HasSubstr("\n")));
      }
    }
  }
  EXPECT_THROW(OpenImage(folder.File("missing.png")), Failure);
  EXPECT_THROW(OpenImage(folder.File(".")), Failure);
}

// Changed bytes anywhere either show as a failure or give some pixels, and never more than that.
TEST(ImageReader, SurvivesChangedBytes) {
  const TestImage image = MakeImage(60, 40, 3, 8, Noise);
  const ScratchFolder folder;
  WritePng(folder.File("a.png"), image, {.colourType = 2});
  WriteJpeg(folder.File("a.jpg"), image, true, 6);
  WriteTiff(folder.File("a.tif"), image, {.photometric = 2, .compression = 5, .tile = 16});
  std::uint32_t random = 1;
  for (const char* name : {"a.png", "a.jpg", "a.tif"}) {
    const std::string good = ReadFile(folder.File(name));
    for (int round = 0; round < 150; ++round) {
      std::string bytes = good;
      for (int i = 0; i < 4; ++i) {
        random = random * 1664525 + 1013904223;
        // The headers at both ends are the more interesting half.
        const std::size_t span =
            i % 2 == 0 ? std::min<std::size_t>(bytes.size(), 300) : bytes.size();
        const std::size_t at = (random >> 8) % span;
        bytes[round % 2 == 0 ? at : bytes.size() - 1 - at] = static_cast<char>(random >> 24);
      }
      const std::string path = folder.File("changed");
      WriteFile(path, bytes);
      try {
        auto reader = OpenImage(path);
        // Sizes that the change has blown up are read in part.
        const auto rows = MakeSrgbRows(std::move(reader));
        Pixels row(rows->RowBytes());
        for (std::uint32_t y = 0; y < std::min(rows->Height(), 100u); ++y)
          rows->ReadRow(row.data());
      } catch (const Failure&) {
      }
    }
  }
}

}  // namespace
}  // namespace corvane
