// SPDX-License-Identifier: MIT
//
// What the whole chain makes of a small page, against digests that were taken
// once: a fault that the plain and the fast versions share shows here, on every
// instruction level.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "app/chain/chain.h"
#include "printmode/page_shape.h"
#include "printmode/print_modes.h"
#include "tests/harness/paths.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

constexpr const char* kGroup = "Standard";
constexpr std::uint32_t kWidth = 203, kHeight = 40, kLeft = 3,
                        kRight = 5;  // pixels

// FNV-1a, 64 bits.
class Digest {
 public:
  void Add(std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes) value_ = (value_ ^ byte) * 0x100000001B3;
  }
  void Add(std::uint32_t number) {
    for (int i = 0; i < 4; ++i) {
      const std::uint8_t byte = static_cast<std::uint8_t>(number >> 8 * i);
      Add(std::span(&byte, 1));
    }
  }
  std::uint64_t Value() const { return value_; }

 private:
  std::uint64_t value_ = 0xCBF29CE484222325;
};

// A file of one table without a directory, four zero bytes and the table. Ink
// grows from white to black, in each channel with other weights of red, green
// and blue.
std::string TableFileOf(InkSet inkSet) {
  std::string file(4, 0);
  if (inkSet == InkSet::Black) {
    for (int value = 0; value < 256; ++value) file += static_cast<char>(255 - value);
    return file;
  }
  for (int channel = 0; channel < PlanesOf(inkSet); ++channel) {
    const int red = 1 + channel * 5 % 4, green = 1 + channel * 3 % 7, blue = 1 + channel * 11 % 5;
    const int whole = 16 * (red + green + blue);
    for (int node = 0; node < 17 * 17 * 17; ++node) {
      const int paper = red * (node / 289) + green * (node / 17 % 17) + blue * (node % 17);
      file += static_cast<char>((whole - paper) * (250 - 12 * channel) / whole);
    }
  }
  return file;
}

// Ramps down the page and across it, with grain, beside bare paper and a black
// bar.
std::vector<std::uint8_t> RowAt(std::uint32_t y) {
  std::vector<std::uint8_t> row(std::size_t{3} * kWidth, 255);
  std::uint32_t grain = 12345 + y;
  for (std::uint32_t x = 10; x < kWidth; ++x) {
    for (std::uint32_t c = 0; c < 3; ++c) {
      grain = grain * 1664525 + 1013904223;
      const std::uint32_t ramp = (x * (c + 1) + y * (7 - 2 * c)) % 240;
      row[3 * x + c] = static_cast<std::uint8_t>(x % 50 < 6 ? 0 : ramp + (grain >> 28));
    }
  }
  return row;
}

QStartPage StartPageOf(const PrintMode& mode, int alternate, std::uint32_t dpi) {
  QStartPage page;
  const auto set = [](ZCOM::PROPERTIES& bag, const char* key, unsigned long value) {
    bag.SetProperty(key, value, kGroup);
  };
  set(page.Properties, "ZRXRasterFormat", 1);
  set(page.Properties, "MediaType", 1);
  set(page.Properties, "PrintQuality", 1);
  set(page.Properties, "PrintableWidth", kWidth);
  set(page.Properties, "LeftOverSprayPixels", kLeft);
  set(page.Properties, "RightOverSprayPixels", kRight);
  set(page.Properties, "HorizontalInputResolution", dpi);
  set(page.Properties, "VerticalInputResolution", 600);
  set(page.Properties, "UseAlternateModes", static_cast<unsigned>(alternate));
  set(page.PageProperties, "CMYKBinaryDescriptor", static_cast<unsigned>(mode.descriptor));
  set(page.PageProperties, "NumberOfPlanes", NumberOfPlanes(mode, alternate));
  set(page.PageProperties, "Slot1HorizontalRes", mode.horizontalDpi);
  set(page.PageProperties, "Slot2HorizontalRes", mode.horizontalDpi);
  return page;
}

// Of the fields and the data of all rows that leave the chain.
std::uint64_t DigestOfPage(const PluginLibrary& library, const PrintMode& mode, int alternate,
                           const std::string& table) {
  const std::uint32_t dpi = std::min<std::uint32_t>(600, mode.Alternate(alternate).halftoneDpi);
  const auto spanned = static_cast<std::uint32_t>(
      PlanesAfter(Stage::Placed, mode, alternate).Spanned() *
      PlaneBytes(Stage::Placed, mode, alternate, dpi, kLeft + kWidth + kRight));
  ChainSetup setup;
  setup.host.SetProperty("ColorTableFilename", table.c_str(), kGroup);
  Chain chain(library, setup);
  Digest digest;
  std::uint32_t rows = 0;
  chain.ObserveOutput([&](ZCOM::QObject& message) {
    if (message.MessageKind != kBinaryRasterMessage) return;
    const auto& raster = static_cast<const QRaster&>(message);
    ++rows;
    for (const std::uint32_t field : {raster.RasterFormat, raster.Row, raster.FirstPixel,
                                      raster.EndPixel, raster.Width, raster.RowBytes, spanned}) {
      digest.Add(field);
    }
    digest.Add(std::span(raster.Data, spanned));
  });

  QStartPage start = StartPageOf(mode, alternate, dpi);
  EXPECT_EQ(chain.Send(start), 1u);
  QRaster raster;
  raster.RasterFormat = 1;
  raster.EndPixel = raster.Width = kWidth;
  raster.RowBytes = 3 * kWidth;
  for (std::uint32_t y = 0; y < kHeight; ++y) {
    std::vector<std::uint8_t> row = RowAt(y);
    raster.Row = y;
    raster.Data = row.data();
    EXPECT_EQ(chain.Send(raster), 1u);
  }
  ZCOM::QObject end(kEndPageMessage);
  chain.Send(end);
  EXPECT_EQ(rows, kHeight * RowsPerRow(Stage::Placed, mode, alternate, 600));
  return digest.Value();
}

struct ModeDigests {
  int mode;
  std::array<std::uint64_t, kAlternateModes> digests;
};

// By "UseAlternateModes".
constexpr ModeDigests kDigests[] = {
    {5, {0x8466feea27300338, 0x8466feea27300338, 0x8466feea27300338}},
    {6, {0x11420914960e3271, 0x11420914960e3271, 0x11420914960e3271}},
    {7, {0x6314d4472ca359f0, 0x6314d4472ca359f0, 0x6314d4472ca359f0}},
    {8, {0x8466feea27300338, 0x8466feea27300338, 0x8466feea27300338}},
    {12, {0x48ebabf481f17ce4, 0x48ebabf481f17ce4, 0x48ebabf481f17ce4}},
    {14, {0x8466feea27300338, 0x8466feea27300338, 0x8466feea27300338}},
    {20, {0x48ebabf481f17ce4, 0x48ebabf481f17ce4, 0x48ebabf481f17ce4}},
    {33, {0x65fba02236d4164f, 0x65fba02236d4164f, 0x65fba02236d4164f}},
    {34, {0xc85b6609d7c85d1c, 0xc85b6609d7c85d1c, 0xc85b6609d7c85d1c}},
    {41, {0xb23b0880110f3bb7, 0xb23b0880110f3bb7, 0xb23b0880110f3bb7}},
    {48, {0x18ca196a4d030721, 0x18ca196a4d030721, 0x18ca196a4d030721}},
    {52, {0xf4a8d37b5b7a99e7, 0x0f97c4749c9eab92, 0x7254dafc4550de1b}},
    {53, {0x1a51e970d6778384, 0x1a51e970d6778384, 0x1a51e970d6778384}},
    {54, {0x434e0930150d3608, 0xa39bff53f306d5a2, 0xba4677128297e46b}},
    {79, {0xf342507b84ccb867, 0xf342507b84ccb867, 0xf342507b84ccb867}},
    {82, {0x1d4908152feeaab7, 0xa096079a76505971, 0xd1227b924bf52d23}},
    {83, {0xac62587f1d007ccb, 0xced9a9f9682f7c54, 0x6073c6641d936298}},
    {104, {0xa554c4e23b21e9ac, 0xa554c4e23b21e9ac, 0xa554c4e23b21e9ac}},
    {106, {0xadf6351eb8464e21, 0xadf6351eb8464e21, 0xadf6351eb8464e21}},
    {108, {0x74bce7ee3e8ce3e8, 0x556496c10919354c, 0x4a4e1f708069ee42}},
    {109, {0xf0e082239710798d, 0x1513a45426878542, 0x873306fd8006e05d}},
    {111, {0xb85a4d9c33cc75cb, 0xb85a4d9c33cc75cb, 0xb85a4d9c33cc75cb}},
};

TEST(OutputDigest, OfEveryModeIsWhatItAlwaysWas) {
  const ScratchFolder folder;
  const PluginLibrary library(harness::PluginFile());
  ASSERT_EQ(std::size(kDigests), kPrintModes.size());
  for (const ModeDigests& expected : kDigests) {
    const PrintMode& mode = *FindPrintMode(expected.mode);
    const std::string table = folder.Write("table.cvt", TableFileOf(mode.inkSet));
    for (int alternate = 0; alternate < kAlternateModes; ++alternate) {
      const std::uint64_t digest = DigestOfPage(library, mode, alternate, table);
      EXPECT_EQ(fmt::format("{:016x}", digest),
                fmt::format("{:016x}", expected.digests[static_cast<std::size_t>(alternate)]))
          << "mode " << expected.mode << ", alternate mode " << alternate;
    }
  }
}

// Elements share nothing that changes, from the first one that a process makes on.
TEST(OutputDigest, IsTheSameForChainsBesideEachOther) {
  const ScratchFolder folder;
  const PluginLibrary library(harness::PluginFile());
  const std::string table = folder.Write("table.cvt", TableFileOf(FindPrintMode(54)->inkSet));
  std::array<std::uint64_t, 6> digests{};
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < digests.size(); ++i) {
    threads.emplace_back([&, i] {
      const int alternate = static_cast<int>(i % kAlternateModes);
      digests[i] = DigestOfPage(library, *FindPrintMode(54), alternate, table);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const auto expected = std::find_if(std::begin(kDigests), std::end(kDigests),
                                     [](const ModeDigests& known) { return known.mode == 54; });
  for (std::size_t i = 0; i < digests.size(); ++i) {
    EXPECT_EQ(digests[i], expected->digests[i % kAlternateModes]);
  }
}

}  // namespace
}  // namespace corvane
