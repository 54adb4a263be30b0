// SPDX-License-Identifier: MIT
#include "app/image/pnm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "app/image/kind.h"
#include "app/image/srgb.h"
#include "app/image/tags.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::StartsWith;

using Bytes = std::vector<std::uint8_t>;

class PnmTest : public testing::Test {
 protected:
  std::string Written(const std::string& bytes) {
    std::string path = folder_.File("image.pnm");
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  // The first page as sRGB, tags behind the pixels.
  Bytes Pixels(const std::string& bytes) {
    const auto rows = MakeSrgbRows(OpenStreamPage(Written(bytes), 0));
    Bytes pixels(rows->RowBytes() * rows->Height());
    for (std::uint32_t y = 0; y < rows->Height(); ++y) {
      rows->ReadRow(pixels.data() + rows->RowBytes() * y);
    }
    return pixels;
  }

  ScratchFolder folder_;
};

std::string Pam(const std::string& tuple, int depth, int most, const std::string& samples) {
  return "P7\nWIDTH 2\nHEIGHT 1\nMAXVAL " + std::to_string(most) + "\nDEPTH " +
         std::to_string(depth) + "\n" + (tuple.empty() ? "" : "TUPLTYPE " + tuple + "\n") +
         "ENDHDR\n" + samples;
}

TEST_F(PnmTest, ReadsEveryKind) {
  using namespace std::string_literals;
  // Rows of PBM end at a byte, and 1 is black.
  EXPECT_THAT(Pixels("P4 9 2\n\x80\x80\x00\x00"s), ElementsAreArray([] {
                Bytes expected(54, 255);
                for (const int x : {0, 1, 2, 24, 25, 26}) expected[x] = 0;
                return expected;
              }()));
  EXPECT_THAT(Pixels("P5\n# made by\n2 # two\n1\n255\n\x07\xff"s),
              ElementsAre(7, 7, 7, 255, 255, 255));
  EXPECT_THAT(Pixels("P6 2 1 255\nabcdef"), ElementsAre('a', 'b', 'c', 'd', 'e', 'f'));
  // A value above the largest is the largest; 16 bits come with the high byte first.
  EXPECT_THAT(Pixels("P5 3 1 100\n\x00\x32\xc8"s),
              ElementsAre(0, 0, 0, 128, 128, 128, 255, 255, 255));
  EXPECT_THAT(Pixels("P6 1 1 65535\n\x00\xff\x80\x00\xff\xff"s), ElementsAre(1, 128, 255));
  EXPECT_THAT(Pixels("P5 1 1 1023\n\x01\xff"s), ElementsAre(127, 127, 127));
  EXPECT_THAT(Pixels(Pam("BLACKANDWHITE", 1, 1, "\x00\x01"s)), ElementsAre(0, 0, 0, 255, 255, 255));
  EXPECT_THAT(Pixels(Pam("", 1, 255, "ab")), ElementsAre('a', 'a', 'a', 'b', 'b', 'b'));
  EXPECT_THAT(Pixels(Pam("RGB_ALPHA", 4, 255, "\x01\x02\x03\xff\x01\x02\x03\x00"s)),
              ElementsAre(1, 2, 3, 255, 255, 255));
  EXPECT_THAT(Pixels(Pam("CMYK", 4, 255, "\x00\x00\x00\xff\xff\x00\x00\x00"s)),
              ElementsAre(0, 0, 0, 0, 255, 255));
  EXPECT_THAT(Pixels(Pam("RGB_TAG", 4, 255, "\x01\x01\x02\x03\x02\x04\x05\x06")),
              ElementsAre(1, 2, 3, kGraphicsTag, 4, 5, 6, kPhotoTag));
}

TEST_F(PnmTest, TellsWhatPixelsShow) {
  const std::uint8_t untouched = 0, text = 1, image = 2, textOverImage = 3, lines = 4;
  std::string samples;
  for (const std::uint8_t tag : {untouched, text, image, textOverImage, lines, lines}) {
    samples += std::string(1, static_cast<char>(tag)) + "xyz";
  }
  std::string pam = Pam("RGB_TAG", 4, 255, samples);
  pam.replace(pam.find("WIDTH 2"), 7, "WIDTH 6");
  ColoursAndTags split = SplitTags(MakeSrgbRows(OpenStreamPage(Written(pam), 0)));
  Bytes tags(6), colours(18);
  // Whoever comes first has the row read for both.
  split.tags->ReadRow(tags.data());
  split.colours->ReadRow(colours.data());
  EXPECT_THAT(tags, ElementsAre(kGraphicsTag, kGraphicsTag, kPhotoTag, kPhotoTag, kGraphicsTag,
                                kGraphicsTag));
  EXPECT_EQ(std::string(colours.begin(), colours.end()), "xyzxyzxyzxyzxyzxyz");
}

// Pages of different kinds follow each other, and a page that is not read to its end, from a file
// or a pipe, hides none behind it.
TEST_F(PnmTest, GoesFromPageToPage) {
  const std::string large(std::size_t{300} * 300 * 3, 'q');
  const std::string pages =
      "P6 300 300 255\n" + large + Pam("GRAYSCALE", 1, 255, "gh") + "\nP6 1 2 255\nabcdef\n";
  const std::string path = Written(pages);
  EXPECT_EQ(CountStreamPages(path), 3);
  Bytes row(900);
  OpenStreamPage(path, 2)->ReadRow(row.data());
  EXPECT_EQ(row[0], 'a');

  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread writer([&] {
    Descriptor end(ends[1]);
    end.Write(pages.data(), pages.size());
  });
  const auto stream = OpenPageStream(std::make_unique<InputStream>(Descriptor(ends[0]), "pipe"));
  for (const int width : {300, 2, 1}) {
    ASSERT_TRUE(stream->Next());
    EXPECT_EQ(stream->Page().image.width, static_cast<std::uint32_t>(width));
    stream->ReadRow(row.data());
  }
  EXPECT_EQ(stream->Page().image.path, "pipe, page 3");
  EXPECT_FALSE(stream->Next());
  writer.join();
}

// A reader that waits for a pipe nobody writes to is called off.
TEST_F(PnmTest, StopsWaiting) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Descriptor writing(ends[1]);
  const std::string start = "P6 10 10 255\n";
  writing.Write(start.data(), start.size());
  const auto stream = OpenPageStream(std::make_unique<InputStream>(Descriptor(ends[0]), "pipe"));
  ASSERT_TRUE(stream->Next());
  std::thread other([&] { stream->Cancel(); });
  Bytes row(30);
  EXPECT_THROW(stream->ReadRow(row.data()), InputStream::Cancelled);
  other.join();
}

TEST_F(PnmTest, RefusesWhatIsDamaged) {
  const struct {
    std::string bytes, complaint;
  } cases[] = {
      {"P6 2 2 255\n12345678901", "page 1: ends before its last row"},
      {"P5 1 1 255\nxP5 1 2 255\ny", "page 2: ends before its last row"},
      {"P5 1 1 255\nxyz", "page 2: damaged PNM image: another page was expected"},
      {"P5 1", "page 1: ends in its header"},
      {"P5 one 1 255\nx", "no number in its header"},
      {"P5 0 1 255\n", "the image has no pixels"},
      {"P5 4294967295 1 255\n", "are more than 1000000 along a side"},
      {"P5 99999999999 1 255\n", "no number in its header"},
      {"P5 1 1 65536\nxx", "largest value is not 1 to 65535"},
      {"P5 1 1 0\nx", "largest value is not 1 to 65535"},
      {"P5 1 #" + std::string(20000, 'c'), "its header does not end"},
      {"P3 1 1 255\n1 2 3\n", "written-out numbers are not read"},
      {Pam("RGB", 4, 255, "12345678"), "DEPTH fits no TUPLTYPE"},
      {Pam("HSV", 3, 255, "123456"), "pixels of this TUPLTYPE are not read"},
      {Pam("RGB_TAG", 4, 1023, std::string(16, 'x')), "a MAXVAL of 255 alone"},
      {"P7\nWIDE 1\nENDHDR\n", "no such word in its header"},
  };
  for (const auto& [bytes, complaint] : cases) {
    const std::string path = Written(bytes);
    EXPECT_THAT(FailureOf([&] { CountStreamPages(path); }),
                testing::AllOf(StartsWith(path + ", page "), HasSubstr(complaint)));
  }
  EXPECT_EQ(FailureOf([&] { OpenStreamPage(Written("P5 1 1 255\nx"), 1); }),
            folder_.File("image.pnm") + ", page 2: is not there");
}

}  // namespace
}  // namespace corvane
