// SPDX-License-Identifier: MIT
#include "app/image/reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "app/image/kind.h"
#include "app/image/profile.h"
#include "app/image/srgb.h"
#include "app/support/failure.h"
#include "tests/app/image/test_images.h"
#include "tests/app/support/failure_of.h"
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

const Pixels kPalette = {10, 20, 30, 200, 100, 0, 0, 255, 77, 255, 255, 255};
constexpr int kPaletteAlpha = 64;  // of entry 1 where it is not opaque

int OverWhite(int value, int alpha) {
  return static_cast<int>(std::lround((value * alpha + 255.0 * (255 - alpha)) / 255));
}

// What the samples of a pixel mean.
enum class Form {
  Grey,
  Inverse,
  Rgb,
  GreyAlpha,
  RgbAlpha,
  Multiplied,
  Cmyk,
  Palette,
  PaletteAlpha,
  PaletteOver
};

int ColourOf(const TestImage& image, Form form, int x, int y, int c) {
  const auto sample = [&](int channel) { return Full(image.At(x, y, channel), image.bits); };
  const int index = image.At(x, y, 0);
  const int entry = form < Form::Palette ? 0 : kPalette[static_cast<std::size_t>(3 * index + c)];
  switch (form) {
    case Form::Grey:
      return sample(0);
    case Form::Inverse:
      return 255 - sample(0);
    case Form::Rgb:
      return sample(c);
    case Form::GreyAlpha:
      return OverWhite(sample(0), sample(1));
    case Form::RgbAlpha:
      return OverWhite(sample(c), sample(3));
    case Form::Multiplied:  // white is added where the image lets it through
      return sample(c) + 255 - sample(3);
    case Form::Cmyk:
      return static_cast<int>(std::lround((255.0 - sample(c)) * (255 - sample(3)) / 255));
    case Form::PaletteAlpha:
      return OverWhite(entry, index == 1 ? kPaletteAlpha : 255);
    case Form::PaletteOver:
      return OverWhite(entry, sample(1));
    default:
      return entry;
  }
}

// What an image should look like: sRGB of every pixel.
Pixels Expected(const TestImage& image, Form form) {
  Pixels pixels;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      for (int c = 0; c < 3; ++c) {
        pixels.push_back(static_cast<std::uint8_t>(ColourOf(image, form, x, y, c)));
      }
    }
  }
  return pixels;
}

TEST(FileKinds, AreKnownBehindWhatSpoolersPutBefore) {
  const ScratchFolder folder;
  const auto kind = [&](const std::string& text) {
    return KindOfFile(folder.Write("file", text + std::string(2000, ' ')));
  };
  const std::string postScript = "%!PS-Adobe-3.0\n", eps = "%!PS-Adobe-3.0 EPSF-3.0\n";
  for (const std::string before : {"", "\x04", "\r\n\r\n", "\n                         \n"}) {
    EXPECT_EQ(kind(before + postScript), FileKind::PostScript);
    EXPECT_EQ(kind(before + eps), FileKind::Eps);
    EXPECT_EQ(kind(before + "%PDF-1.4\n"), FileKind::Pdf);
  }
  EXPECT_EQ(kind(std::string(1000, 'x') + "%PDF-1.4\n"), FileKind::Pdf);
  EXPECT_THAT(FailureOf([&] { kind(std::string(1020, 'x') + "%PDF-1.4\n"); }),
              testing::HasSubstr("not an image or document"));
}

TEST(ImageReader, ReadsEveryPngForm) {
  const struct {
    int colourType, channels, bits;
    Form form;
  } kCases[] = {
      {0, 1, 1, Form::Grey},      {0, 1, 2, Form::Grey},       {0, 1, 4, Form::Grey},
      {0, 1, 8, Form::Grey},      {0, 1, 16, Form::Grey},      {2, 3, 8, Form::Rgb},
      {2, 3, 16, Form::Rgb},      {3, 1, 2, Form::Palette},    {3, 1, 2, Form::PaletteAlpha},
      {4, 2, 8, Form::GreyAlpha}, {4, 2, 16, Form::GreyAlpha}, {6, 4, 8, Form::RgbAlpha},
      {6, 4, 16, Form::RgbAlpha},
  };
  const ScratchFolder folder;
  for (const auto& test : kCases) {
    for (const bool interlaced : {false, true}) {
      SCOPED_TRACE(testing::Message() << "type " << test.colourType << ", " << test.bits << " bits"
                                      << (interlaced ? ", interlaced" : ""));
      const TestImage image = MakeImage(kWidth, kHeight, test.channels, test.bits, Noise);
      PngOptions options{.colourType = test.colourType, .interlaced = interlaced};
      if (test.colourType == 3) options.palette = kPalette;
      if (test.form == Form::PaletteAlpha) options.paletteAlpha = {255, kPaletteAlpha};
      WritePng(folder.File("image.png"), image, options);
      ExpectNear(ReadSrgb(folder.File("image.png")), Expected(image, test.form),
                 test.bits == 16 ? 1 : 0);
    }
  }
}

TEST(ImageReader, ReadsEveryTiffForm) {
  constexpr int kNone = 1, kLzw = 5, kDeflate = 8, kPackBits = 32773;
  const struct {
    int photometric, channels, bits, extra;
    Form form;
  } kForms[] = {
      {0, 1, 1, -1, Form::Inverse},    {1, 1, 1, -1, Form::Grey},    {1, 1, 4, -1, Form::Grey},
      {0, 1, 8, -1, Form::Inverse},    {1, 1, 16, -1, Form::Grey},   {2, 3, 8, -1, Form::Rgb},
      {2, 3, 16, -1, Form::Rgb},       {2, 4, 8, 2, Form::RgbAlpha}, {3, 1, 2, -1, Form::Palette},
      {5, 4, 8, -1, Form::Cmyk},       {5, 4, 16, -1, Form::Cmyk},   {2, 4, 8, 0, Form::Rgb},
      {3, 2, 2, 2, Form::PaletteOver},
  };
  const TiffOptions kStorage[] = {
      {.compression = kNone},
      {.compression = kNone, .lowBitFirst = true},
      {.compression = kNone, .separate = true, .rowsPerStrip = 5, .bigEndian = true},
      {.compression = kLzw, .rowsPerStrip = 7, .bigEndian = true},
      {.compression = kLzw, .separate = true},
      {.compression = kDeflate, .rowsPerStrip = 7, .bigEndian = true},
      {.compression = kDeflate, .separate = true, .rowsPerStrip = 5},
      {.compression = kPackBits, .tile = 16},
      {.compression = kNone, .separate = true, .tile = 32, .bigEndian = true}};
  const ScratchFolder folder;
  for (const auto& form : kForms) {
    const TestImage image = MakeImage(kWidth, kHeight, form.channels, form.bits, Noise);
    for (const auto& storage : kStorage) {
      if (storage.separate && form.channels == 1) continue;
      SCOPED_TRACE(testing::Message()
                   << "photometric " << form.photometric << ", " << form.channels << " x "
                   << form.bits << " bits, compression " << storage.compression << ", tile "
                   << storage.tile << ", separate " << storage.separate);
      TiffOptions options = storage;
      options.photometric = form.photometric;
      options.extraSample = form.extra;
      if (form.photometric == 3) options.palette = kPalette;
      WriteTiff(folder.File("image.tif"), image, options);
      ExpectNear(ReadSrgb(folder.File("image.tif")), Expected(image, form.form),
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
  ExpectNear(ReadSrgb(folder.File("image.tif")), Expected(image, Form::Multiplied), 1);
}

TEST(ImageReader, ReadsEveryJpegForm) {
  const auto smooth = [](int x, int y, int c) { return 40 + 3 * x + y + 20 * c; };
  const ScratchFolder folder;
  for (const int channels : {1, 3, 4}) {
    for (const bool progressive : {false, true}) {
      SCOPED_TRACE(testing::Message() << channels << " channels, progressive " << progressive);
      const TestImage image = MakeImage(kWidth, kHeight, channels, 8, smooth);
      WriteJpeg(folder.File("image.jpg"), image, progressive);
      const Form form = channels == 1 ? Form::Grey : channels == 3 ? Form::Rgb : Form::Cmyk;
      ExpectNear(ReadSrgb(folder.File("image.jpg")), Expected(image, form), 4);
    }
  }
}

TEST(ImageReader, TurnsAnImageAsItsOrientationSays) {
  // Sides beyond a tile of the scratch file and no multiple of it.
  constexpr int kWide = 75, kHigh = 70;
  const TestImage image = MakeImage(kWide, kHigh, 3, 8, Noise);
  // Where the stored pixel (x, y) belongs, in the words of the TIFF orientations.
  const auto place = [](int orientation, int x, int y) {
    const int right = kWide - 1 - x, bottom = kHigh - 1 - y;
    const std::pair<int, int> places[] = {{x, y}, {right, y},  {right, bottom}, {x, bottom},
                                          {y, x}, {bottom, x}, {bottom, right}, {y, right}};
    return places[orientation - 1];
  };
  const ScratchFolder folder;
  for (int orientation = 1; orientation <= 8; ++orientation) {
    SCOPED_TRACE(orientation);
    WriteTiff(folder.File("image.tif"), image, {.photometric = 2, .orientation = orientation});
    WriteJpeg(folder.File("image.jpg"), image, false, orientation);
    WritePng(folder.File("image.png"), image, {.orientation = orientation});
    EXPECT_EQ(OpenImage(folder.File("image.jpg"))->Info().orientation, orientation);
    EXPECT_EQ(OpenImage(folder.File("image.png"))->Info().orientation, orientation);

    auto reader = OpenImage(folder.File("image.tif"));
    ASSERT_EQ(reader->Info().orientation, orientation);
    const auto upright = MakeUprightRows(MakeSrgbRows(std::move(reader)), orientation);
    const Pixels pixels = ReadAll(*upright);
    ASSERT_EQ(static_cast<int>(upright->Width()), orientation < 5 ? kWide : kHigh);
    EXPECT_EQ(SwapsSides(orientation), orientation >= 5);
    for (int y = 0; y < kHigh; ++y) {
      for (int x = 0; x < kWide; ++x) {
        const auto [column, row] = place(orientation, x, y);
        const std::size_t at = 3 * (static_cast<std::size_t>(row) * upright->Width() +
                                    static_cast<std::size_t>(column));
        ASSERT_EQ(pixels[at], image.At(x, y, 0)) << x << ", " << y;
      }
    }
    // Turning it further is turning what stands upright.
    for (const int degrees : {90, 180, 270}) {
      const auto rows = [&] { return MakeSrgbRows(OpenImage(folder.File("image.tif"))); };
      const auto once = MakeUprightRows(rows(), TurnedOrientation(orientation, degrees));
      const auto twice =
          MakeUprightRows(MakeUprightRows(rows(), orientation), TurnedOrientation(1, degrees));
      EXPECT_EQ(ReadAll(*once), ReadAll(*twice)) << degrees;
    }
  }
}

TEST(ImageReader, ConvertsThroughTheProfileOrGamma) {
  const TestImage image = MakeImage(16, 16, 3, 8, [](int x, int y, int) { return 16 * y + x; });
  const TestImage encoded = MakeImage(16, 16, 3, 8, [](int x, int y, int) {
    const double light = (16 * y + x) / 255.0;
    return static_cast<int>(std::lround(
        255 * (light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055)));
  });
  const struct {
    PngOptions options;
    const TestImage& expected;
    int tolerance;
  } cases[] = {{{.profile = MakeRgbProfile({}, 1.0)}, encoded, 1},
               {{.gamma = 1.0}, encoded, 1},
               {{.gamma = 0.45455}, image, 0},  // the usual gamma means sRGB
               {{.gamma = 0.45455, .srgbPrimaries = true}, image, 0}};
  const ScratchFolder folder;
  for (const auto& test : cases) {
    WritePng(folder.File("image.png"), image, test.options);
    ExpectNear(ReadSrgb(folder.File("image.png")), Expected(test.expected, Form::Rgb),
               test.tolerance);
  }
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
  ExpectNear(ReadSrgb(path, 1), Expected(other, Form::Grey), 0);
}

// Pages of long files are found by where they were when they were counted.
TEST(ImageReader, FindsEveryPageOfALongTiffFile) {
  const ScratchFolder folder;
  const std::string path = folder.File("long.tif");
  for (const int pages : {20, 18}) {
    SCOPED_TRACE(pages);
    const auto image = [&](int page) {
      return MakeImage(4 + page, pages, 1, 8, [=](int x, int y, int) { return x * page + y; });
    };
    for (int page = 0; page < pages; ++page) {
      WriteTiff(path, image(page), {.bigEndian = pages == 18, .append = page > 0});
    }
    for (const bool counted : {false, true}) {
      if (counted) {
        EXPECT_EQ(CountImagePages(path), pages);
      }
      for (const int page : {pages - 1, 0, 7}) {
        ExpectNear(ReadSrgb(path, page), Expected(image(page), Form::Grey), 0);
      }
    }
  }
}

// The pages behind a damaged link must not go missing in silence.
TEST(ImageReader, RefusesATiffFileWhoseChainOfPagesIsBroken) {
  const TestImage image = MakeImage(4, 4, 1, 8, Noise);
  const ScratchFolder folder;
  const std::string path = folder.File("pages.tif");
  WriteTiff(path, image, {});
  const std::size_t onePage = ReadFile(path).size();
  WriteTiff(path, image, {.append = true});
  WriteTiff(path, image, {.append = true});
  const std::string good = ReadFile(path);
  ASSERT_EQ(CountImagePages(path), 3);
  // In the place of the second directory, which stands behind the entries of the first.
  std::uint32_t first = 0;
  std::uint16_t entries = 0;
  std::memcpy(&first, good.data() + 4, sizeof first);
  std::memcpy(&entries, good.data() + first, sizeof entries);
  const std::size_t inPlace = first + 2 + 12 * std::size_t{entries} + 2;
  for (const std::size_t kept : {inPlace, onePage, onePage + 20, good.size() - 30}) {
    WriteFile(path, good.substr(0, kept));
    EXPECT_THAT(FailureOf([&] { CountImagePages(path); }), testing::StartsWith(path + ": "))
        << kept << " of " << good.size() << " bytes";
  }
}

// What a TIFF decoder fills up must not come out as a page: fax decoders with white, JPEG decoders
// with grey, and PackBits loses what does not fit a row.
TEST(ImageReader, RefusesStripsThatWereNotDecodedWhole) {
  const TestImage lines = MakeImage(64, 200, 1, 1, Noise), colours = MakeImage(64, 64, 3, 8, Noise);
  const ScratchFolder folder;
  const std::string path = folder.File("strip.tif");
  for (const int compression : {2, 3, 4, 7, 32773}) {
    SCOPED_TRACE(testing::Message() << "compression " << compression);
    const bool fax = compression < 7;
    WriteTiff(path, fax ? lines : colours,
              {.photometric = fax ? 0 : 2, .compression = compression});
    if (fax) ExpectNear(ReadSrgb(path), Expected(lines, Form::Inverse), 0);

    const std::string good = ReadFile(path);
    const auto valueOf = [&](const std::string& tagOfOne) {
      const std::size_t entry = good.rfind(tagOfOne + std::string("\x04\0\x01\0\0\0", 6));
      return entry + 8;
    };
    const std::size_t count = valueOf("\x17\x01");
    std::uint32_t start = 0, bytes = 0;
    std::memcpy(&start, &good[valueOf("\x11\x01")], sizeof start);
    std::memcpy(&bytes, &good[count], sizeof bytes);

    std::string cut = good, changed = good;
    const std::uint32_t half = bytes / 2;
    std::memcpy(&cut[count], &half, sizeof half);
    changed.replace(start + half, 6, 6, '\0');
    for (const std::string& broken : {cut, changed}) {
      WriteFile(path, broken);
      EXPECT_THAT(FailureOf([&] { ReadSrgb(path); }), testing::StartsWith(path + ": "));
    }
  }
}

// Bits that are changed still make codes, and other pixels; the data then end at another place.
TEST(ImageReader, RefusesAJpegImageThatLeavesDataOver) {
  const ScratchFolder folder;
  const std::string path = folder.File("image.jpg");
  for (const bool progressive : {false, true}) {
    WriteJpeg(path, MakeImage(kWidth, kHeight, 3, 8, Noise), progressive);
    const std::string good = ReadFile(path);
    const Pixels expected = ReadSrgb(path);
    const auto withBytesOver = [&](std::size_t count) {
      return good.substr(0, good.size() - 2) + std::string(count, 'x') + "\xFF\xD9";
    };
    WriteFile(path, withBytesOver(8));  // as some cameras do
    EXPECT_EQ(ReadSrgb(path), expected);
    WriteFile(path, withBytesOver(200));
    EXPECT_THAT(FailureOf([&] { ReadSrgb(path); }), testing::StartsWith(path + ": "));
  }
}

// ---------------------------------------------------------------------------------------------
// Broken files, each made from a good one by one change.

const std::pair<const char*, std::function<void(std::string&)>> kMutations[] = {
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
  WriteTiff(folder.File("b.tif"), image, {.photometric = 2, .compression = 8, .rowsPerStrip = 20});
  for (const char* name : {"a.png", "a.jpg", "a.tif", "b.tif"}) {
    const std::string good = ReadFile(folder.File(name));
    for (const auto& [mutation, apply] : kMutations) {
      SCOPED_TRACE(std::string(name) + ", " + mutation);
      std::string bytes = good;
      apply(bytes);
      const std::string path = folder.File(std::string("broken-") + name);
      WriteFile(path, bytes);
      const std::string failure = FailureOf([&] { ReadSrgb(path); });
      EXPECT_THAT(failure, testing::StartsWith(path + ": "));
      EXPECT_THAT(failure, testing::Not(testing::HasSubstr("\n")));
    }
  }
  // Code points of BT.2020 with PQ, between the header and the rest.
  const std::string png = ReadFile(folder.File("a.png"));
  WriteFile(folder.File("pq.png"), png.substr(0, 33) +
                                       std::string("\0\0\0\x04"
                                                   "cICP\x09\x10\0\x01\x4d\x23\x23\xfe",
                                                   16) +
                                       png.substr(33));
  EXPECT_THAT(FailureOf([&] { ReadSrgb(folder.File("pq.png")); }),
              testing::HasSubstr("a picture of high dynamic range"));
  EXPECT_THAT(FailureOf([&] { OpenImage(folder.File("a.png"), 1); }),
              testing::HasSubstr("holds one image, and no page 2"));
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
        // Sizes that the change has blown up are read in part.
        const auto rows = MakeSrgbRows(OpenImage(path));
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
