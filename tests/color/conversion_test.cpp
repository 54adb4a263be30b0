// SPDX-License-Identifier: MIT
#include "color/conversion.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>
#include <vector>

namespace corvane {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kNodes = InterleavedTable::kNodes;
constexpr unsigned char kPoison = 0xA5;

struct Table {
  Table(unsigned planes, unsigned seed) : bytes(planes == 1 ? 256 : planes * kNodes) {
    std::mt19937 random(seed);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
    // Extremes: sums near 0 and near 255 * 256.
    for (std::size_t i = 0; i < bytes.size(); i += 5) bytes[i] = i % 2 == 0 ? 255 : 0;
    if (planes > 1) Interleave(bytes.data(), planes, *interleaved);
  }

  Bytes bytes;
  std::unique_ptr<InterleavedTable> interleaved = std::make_unique<InterleavedTable>();
};

// One row on its way through a converter: tags 0 and 1 use one table, the others another.
class RowUnderTest {
 public:
  RowUnderTest(unsigned planes, std::size_t width)
      : graphic_(planes, 11), photo_(planes, 12), planes_(planes), width_(width) {
    for (unsigned tag = 0; tag < kTags; ++tag) {
      const Table& table = tag < 2 ? graphic_ : photo_;
      tables_[tag] = table.bytes.data();
      interleaved_[tag] = table.interleaved.get();
    }
  }

  // All planes, one after the other, poisoned outside the pixels that were written.
  Bytes Convert(RowConverter convert, const Bytes& pixels, std::uint32_t first, std::uint32_t end) {
    Bytes out(planes_ * width_, kPoison);
    convert({pixels.data(), first, end, out.data(), width_, tables_.data(), interleaved_.data(),
             slots_.get()});
    return out;
  }

  const Bytes& Graphic() const { return graphic_.bytes; }
  const Bytes& Photo() const { return photo_.bytes; }
  ConversionSlots& Slots() { return *slots_; }

 private:
  Table graphic_;
  Table photo_;
  std::size_t planes_;
  std::size_t width_;
  std::array<const unsigned char*, kTags> tables_{};
  std::array<const InterleavedTable*, kTags> interleaved_{};
  std::unique_ptr<ConversionSlots> slots_ = std::make_unique<ConversionSlots>();
};

RowConverter Select(const Converters& converters, unsigned planes, std::size_t layout) {
  return planes == 1   ? converters.black[layout]
         : planes == 7 ? converters.sevenInks[layout]
                       : converters.nineInks[layout];
}

constexpr std::size_t kBytesPerPixel[kPixelLayouts] = {3, 4, 4};

// Random colours with runs of every length, tags that change within and between runs, noise in the
// byte that is not read.
Bytes TestPixels(std::size_t layout, std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  Bytes pixels;
  std::uint32_t colour = 0;
  std::size_t left = 0;
  for (std::size_t x = 0; x < count; ++x) {
    if (left == 0) {
      colour = random();
      // Half of the colours lie on the borders of cells, where fractions tie and reach 0 and 256.
      if (random() % 2 == 0) {
        constexpr unsigned char kBorders[] = {0, 255, 15, 16, 127, 128, 240, 239};
        for (int byte = 0; byte < 3; ++byte) {
          colour = (colour & ~(255u << 8 * byte)) | kBorders[random() % 8] << 8 * byte;
        }
      }
      left = random() % 3 != 0 ? 1 : 1 + random() % (random() % 8 == 0 ? 400 : 50);
    }
    --left;
    const auto red = static_cast<unsigned char>(colour >> 16);
    const auto green = static_cast<unsigned char>(colour >> 8);
    const auto blue = static_cast<unsigned char>(colour);
    if (layout == 1) pixels.push_back(static_cast<unsigned char>(random()));
    pixels.insert(pixels.end(), {red, green, blue});
    if (layout == 2) {
      const bool turn = random() % 16 == 0;
      pixels.push_back(static_cast<unsigned char>((colour >> 24) % 4 ^ (turn ? 2 : 0)));
    }
  }
  return pixels;
}

TEST(Conversion, FastEqualsPlainAtEveryLevel) {
  for (CpuLevel level : kCpuLevels) {
    if (level == CpuLevel::Plain || level > DetectedCpuLevel()) continue;
    for (unsigned planes : {1u, 7u, 9u}) {
      RowUnderTest row(planes, 700);
      for (std::size_t layout = 0; layout < kPixelLayouts; ++layout) {
        const RowConverter plain = Select(ConvertersFor(CpuLevel::Plain), planes, layout);
        const RowConverter fast = Select(ConvertersFor(level), planes, layout);
        ASSERT_NE(plain, fast);
        for (std::uint32_t width = 1; width < 700; width += width < 80 ? 1 : 37) {
          for (std::uint32_t first : {0u, 1u, width / 3, width - 1}) {
            // Exactly as many bytes as pixels, so that reads beyond the row are found.
            const Bytes pixels = TestPixels(layout, width, width * 4 + first);
            ASSERT_EQ(pixels.size(), width * kBytesPerPixel[layout]);
            row.Slots().Clear();
            ASSERT_EQ(row.Convert(fast, pixels, first, width),
                      row.Convert(plain, pixels, first, width))
                << NameOf(level) << " planes " << planes << " layout " << layout << " from "
                << first << " to " << width;
          }
        }
        const Bytes pixels = TestPixels(layout, 8, 1);
        EXPECT_EQ(row.Convert(fast, pixels, 5, 5), Bytes(planes * 700, kPoison));
        EXPECT_EQ(row.Convert(fast, pixels, 6, 5), Bytes(planes * 700, kPoison));
      }
    }
  }
}

// All pairs of neighbouring positions on the three axes, at every level.
TEST(Conversion, FastEqualsPlainInAllCells) {
  Bytes pixels;
  for (unsigned r = 0; r < 256; r += 5) {
    for (unsigned g = 0; g < 256; g += 3) {
      for (unsigned b = 0; b < 256; ++b) {
        pixels.insert(pixels.end(), {static_cast<unsigned char>(r), static_cast<unsigned char>(g),
                                     static_cast<unsigned char>(b)});
      }
    }
  }
  const auto count = static_cast<std::uint32_t>(pixels.size() / 3);
  RowUnderTest row(9, count);
  const Bytes plain = row.Convert(kPlainConverters.nineInks[0], pixels, 0, count);
  for (CpuLevel level : kCpuLevels) {
    if (level == CpuLevel::Plain || level > DetectedCpuLevel()) continue;
    EXPECT_TRUE(row.Convert(ConvertersFor(level).nineInks[0], pixels, 0, count) == plain)
        << NameOf(level);
  }
}

// The four nodes and their weights, of 256, worked out by hand.
TEST(Conversion, MixesTheNodesOfTheTetrahedron) {
  const struct {
    unsigned char red, green, blue;
    int nodes[4];
    int weights[4];
  } cases[] = {
      {255, 255, 255, {0, 0, 0, 0}, {256, 0, 0, 0}},
      {0, 0, 0, {0, 0, 0, 4912}, {0, 0, 0, 256}},
      // c, m, y 128, 55, 225: cells 8, 3, 14, fractions 8, 115, 30.
      {127, 200, 30, {2377, 2394, 2395, 2684}, {141, 85, 22, 8}},
      // Fractions 115, 185, 185: m first, then y, then c.
      {200, 100, 100, {1029, 1046, 1047, 1336}, {71, 0, 70, 115}},
      // Fractions 95, 95, 80: c first, then m, then y.
      {10, 10, 250, {4590, 4879, 4896, 4897}, {161, 0, 15, 80}},
      // Fractions 95, 80, 95: c first, then y, then m.
      {10, 250, 10, {4350, 4639, 4640, 4657}, {161, 0, 15, 80}},
      // Fractions 80, 95, 95: m first, then y, then c.
      {250, 10, 10, {270, 287, 288, 577}, {161, 0, 15, 80}},
      // v = 15 and 16 are the two sides of a node: fractions 240, 1, 1.
      {240, 239, 239, {18, 307, 324, 325}, {16, 239, 0, 1}},
  };
  RowUnderTest row(7, 1);
  const Bytes& table = row.Graphic();
  for (const auto& c : cases) {
    const Bytes out = row.Convert(kPlainConverters.sevenInks[0], {c.red, c.green, c.blue}, 0, 1);
    for (std::size_t k = 0; k < 7; ++k) {
      int sum = 0;
      for (int i = 0; i < 4; ++i) {
        sum += c.weights[i] * table[k * kNodes + static_cast<std::size_t>(c.nodes[i])];
      }
      EXPECT_EQ(out[k], sum >> 8) << int{c.red} << " plane " << k;
    }
  }
}

TEST(Conversion, BlackFollowsTheLuminance) {
  RowUnderTest row(1, 4);
  const Bytes pixels = {255, 255, 255, 0, 0, 0, 0, 255, 0, 10, 20, 31, 2};
  const Bytes& curve = row.Graphic();
  EXPECT_EQ(row.Convert(kPlainConverters.black[0], pixels, 0, 4),
            (Bytes{curve[0], curve[255], curve[255 - 127], curve[255 - 17]}));
  // Tag 2 has the other table.
  EXPECT_EQ(row.Convert(kPlainConverters.black[2], {10, 20, 31, 2}, 0, 1)[0],
            row.Photo()[255 - 17]);
}

TEST(Conversion, SlotsAnswerOnlyForTheWholePixel) {
  const RowConverter tagged = kPlainConverters.sevenInks[2];
  RowUnderTest row(7, 1);
  // Empty slots match nothing, not even the pixels whose key is all zeros or all ones.
  for (std::size_t slot : {0u, 0xFFFu}) {
    for (auto& value : row.Slots().values[slot]) value = 77;
  }
  const Bytes white = row.Convert(tagged, {255, 255, 255, 255}, 0, 1);
  const Bytes black = row.Convert(tagged, {0, 0, 0, 0}, 0, 1);
  for (std::size_t k = 0; k < 7; ++k) {
    EXPECT_EQ(white[k], row.Photo()[k * kNodes]);
    EXPECT_EQ(black[k], row.Graphic()[k * kNodes + 4912]);
  }

  // A known colour comes from its slot without a look at the table; one that only shares the slot
  // or differs in the tag does not.
  for (auto& value : row.Slots().values[0]) value = 77;
  EXPECT_EQ(row.Convert(tagged, {0, 0, 0, 0}, 0, 1), Bytes(7, 77));
  EXPECT_NE(row.Convert(tagged, {16, 0, 0, 0}, 0, 1), Bytes(7, 77));
  EXPECT_EQ(row.Slots().keys[0], 16u << 16);
  EXPECT_NE(row.Convert(tagged, {0, 0, 0, 2}, 0, 1), row.Convert(tagged, {0, 0, 0, 1}, 0, 1));
}

}  // namespace
}  // namespace corvane
