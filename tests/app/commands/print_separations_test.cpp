// SPDX-License-Identifier: MIT
//
// Ink planes out of `corvane print --contone` and into `corvane print --separations`.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <random>

#include "app/support/failure.h"
#include "printmode/print_modes.h"
#include "tests/app/commands/run_corvane.h"
#include "tests/app/image/test_images.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::HasSubstr;

class PrintSeparationsTest : public testing::Test {
 protected:
  PrintSeparationsTest() : photo_(folder_.File("photo.png")) {
    WritePng(photo_,
             MakeImage(90, 120, 3, 8,
                       [](int x, int y, int c) { return 250 - (x * (c + 1) + y * (3 - c)) / 2; }),
             {.colourType = 2});
  }

  // Prints into the folder OUT, raw.
  void Print(const std::string& input, const std::string& out, std::vector<std::string> more) {
    more.insert(more.begin(), {"print", input, "-q", "--format", "raw", "-o", folder_.File(out)});
    ASSERT_EQ(RunCorvane(more), 0);
  }

  std::string ComplaintOf(const std::string& input, std::vector<std::string> more) {
    more.insert(more.begin(), {"print", input, "-q", "--separations", "-o", folder_.File("no/")});
    return Complaint(more);
  }

  ScratchFolder folder_;
  std::string photo_;
};

TEST_F(PrintSeparationsTest, PrintsTheSameDropsInEveryMode) {
  for (const PrintMode& mode : kPrintModes) {
    for (int alternate = 0; alternate < kAlternateModes; ++alternate) {
      SCOPED_TRACE(testing::Message() << mode.name << ", alternate mode " << alternate);
      const std::vector<std::string> settings = {"--mode",      std::to_string(mode.descriptor),
                                                 "--uam",       std::to_string(alternate),
                                                 "--overspray", "3,5"};
      std::vector<std::string> colours = settings;
      const std::string form = alternate == 1 ? "--contone-planes" : "--contone";
      colours.insert(colours.end(), {form, "--paper", "12x17mm"});
      Print(photo_, "a/", colours);
      std::vector<std::string> inks = settings;
      inks.insert(inks.end(), {"--separations", form});
      Print(folder_.File("a/photo-contone.tif"), "b/", inks);
      const std::string drops = folder_.Read("a/photo.raw");
      EXPECT_NE(drops, std::string(drops.size(), 0));
      EXPECT_TRUE(folder_.Read("b/photo-contone.raw") == drops);
      // The same planes again, under another document's name.
      EXPECT_TRUE(std::filesystem::exists(folder_.File("b/photo-contone-contone.tif")));
    }
  }
}

struct Planes {
  std::uint32_t width = 0, height = 0;
  std::vector<std::string> names;
  std::vector<std::vector<std::uint8_t>> samples;
};

Planes ReadPlanes(const std::string& path) {
  Planes planes;
  TIFF* tiff = TIFFOpen(path.c_str(), "r");
  TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &planes.width);
  TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &planes.height);
  std::uint16_t count = 0;
  const char* name = nullptr;
  TIFFGetField(tiff, TIFFTAG_SAMPLESPERPIXEL, &count);
  TIFFGetField(tiff, TIFFTAG_INKNAMES, &name);
  for (std::uint16_t i = 0; i < count; ++i, name += std::strlen(name) + 1) {
    planes.names.emplace_back(name);
    std::vector<std::uint8_t>& plane = planes.samples.emplace_back(planes.width * planes.height);
    for (std::uint32_t y = 0; y < planes.height; ++y) {
      TIFFReadScanline(tiff, &plane[y * planes.width], y, i);
    }
  }
  TIFFClose(tiff);
  return planes;
}

// As another program may write them: the samples of a pixel together, 8 or 16 bits.
void WriteTogether(const std::string& path, const Planes& planes, int bits, float dpi,
                   bool named = true) {
  TIFF* tiff = TIFFOpen(path.c_str(), "w");
  const auto count = static_cast<std::uint16_t>(planes.names.size());
  std::string names;
  for (const std::string& name : planes.names) names += name + '\0';
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, planes.width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, planes.height);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, count);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_SEPARATED);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  TIFFSetField(tiff, TIFFTAG_XRESOLUTION, static_cast<double>(dpi));
  TIFFSetField(tiff, TIFFTAG_YRESOLUTION, static_cast<double>(dpi));
  TIFFSetField(tiff, TIFFTAG_INKSET, INKSET_MULTIINK);
  TIFFSetField(tiff, TIFFTAG_NUMBEROFINKS, count);
  if (named) TIFFSetField(tiff, TIFFTAG_INKNAMES, names.size(), names.data());
  std::vector<std::uint8_t> row;
  for (std::uint32_t y = 0; y < planes.height; ++y) {
    row.clear();
    for (std::uint32_t x = 0; x < planes.width; ++x) {
      for (const auto& plane : planes.samples) {
        row.insert(row.end(), bits == 16 ? 2 : 1, plane[y * planes.width + x]);
      }
    }
    TIFFWriteScanline(tiff, row.data(), y, 0);
  }
  TIFFClose(tiff);
}

void WriteRaw(const std::string& rows, const std::string& description, const Planes& planes) {
  std::string bytes;
  for (std::uint32_t y = 0; y < planes.height; ++y) {
    for (const auto& plane : planes.samples) {
      bytes.append(reinterpret_cast<const char*>(&plane[y * planes.width]), planes.width);
    }
    bytes += "pad";
  }
  WriteFile(rows, bytes);
  nlohmann::json json = {{"data", "inks.raw"},
                         {"bitsPerPixel", 8},
                         {"rows", planes.height},
                         {"rowBytes", planes.width * planes.names.size() + 3},
                         {"verticalDpi", 600}};
  for (std::size_t i = 0; i < planes.names.size(); ++i) {
    json["planes"].push_back({{"ink", planes.names[i]},
                              {"offset", i * planes.width},
                              {"width", planes.width},
                              {"horizontalDpi", 600}});
  }
  WriteFile(description, json.dump());
}

TEST_F(PrintSeparationsTest, MatchesInksByTheirNames) {
  Print(photo_, "a/", {"-m", "108", "--contone", "--paper", "12x17mm"});
  const std::string drops = folder_.Read("a/photo.raw");
  Planes planes = ReadPlanes(folder_.File("a/photo-contone.tif"));
  ASSERT_EQ(planes.names,
            (std::vector<std::string>{"C", "c", "M", "m", "Y", "y", "K", "cd", "md"}));
  std::reverse(planes.names.begin(), planes.names.end());
  std::reverse(planes.samples.begin(), planes.samples.end());
  const std::string inks = folder_.File("inks.tif");
  for (const int bits : {8, 16}) {
    WriteTogether(inks, planes, bits, 600);
    Print(inks, "b/", {"-m", "108", "--separations"});
    EXPECT_TRUE(folder_.Read("b/inks.raw") == drops) << bits;
  }
  WriteRaw(folder_.File("inks.raw"), folder_.File("inks.json"), planes);
  for (const char* name : {"inks.raw", "inks.json"}) {
    Print(folder_.File(name), "c/", {"-m", "108", "--separations"});
    EXPECT_TRUE(folder_.Read("c/inks.raw") == drops) << name;
  }
  // As an image of colours they would have too many channels.
  EXPECT_THAT(Complaint({"print", inks, "-q", "-o", folder_.File("no/")}),
              HasSubstr("9 ink planes"));
}

TEST_F(PrintSeparationsTest, RefusesInksThatAreNotTheModes) {
  Print(photo_, "a/", {"-m", "108", "--contone", "--paper", "12x17mm"});
  const Planes nine = ReadPlanes(folder_.File("a/photo-contone.tif"));
  const std::string inks = folder_.File("inks.tif");
  WriteTogether(inks, nine, 8, 600);
  EXPECT_EQ(ComplaintOf(inks, {"-m", "12"}), inks + ": mode 12 has no ink cd");
  EXPECT_EQ(ComplaintOf(inks, {"-m", "8"}), inks + ": mode 8 has no ink C");
  EXPECT_THAT(ComplaintOf(inks, {"-m", "108", "--resolution", "300"}),
              HasSubstr(": 600 x 600 dpi instead of the 300 x 300 of the page"));
  EXPECT_THAT(ComplaintOf(inks, {"-m", "108", "--paper", "A4"}), HasSubstr("excludes"));

  Planes changed = nine;
  changed.names.erase(changed.names.begin() + 5);
  changed.samples.erase(changed.samples.begin() + 5);
  WriteTogether(inks, changed, 8, 600);
  EXPECT_EQ(ComplaintOf(inks, {"-m", "108"}),
            inks + ": has no plane of ink y, which mode 108 takes");
  changed.names[1] = "C";
  WriteTogether(inks, changed, 8, 600);
  EXPECT_EQ(ComplaintOf(inks, {"-m", "108"}), inks + ": has ink C twice");
  WriteTogether(inks, nine, 8, 600, false);
  EXPECT_EQ(ComplaintOf(inks, {"-m", "108"}), inks + ": no separations: its inks have no names");
  EXPECT_THAT(ComplaintOf(photo_, {}), HasSubstr("no separations: no TIFF file, and without"));

  WriteRaw(folder_.File("inks.raw"), folder_.File("inks.json"), nine);
  const std::string rows = folder_.Read("inks.raw");
  folder_.Write("inks.raw", rows.substr(1));
  EXPECT_THAT(ComplaintOf(folder_.File("inks.raw"), {"-m", "108"}), HasSubstr("rows of"));
  std::string description = folder_.Read("inks.json");
  const std::string width = fmt::format("\"width\":{}", nine.width);
  description.replace(description.find(width), width.size(),
                      fmt::format("\"width\":{}", nine.width + (std::uint64_t{1} << 32)));
  folder_.Write("inks.json", description);
  EXPECT_EQ(ComplaintOf(folder_.File("inks.raw"), {"-m", "108"}),
            folder_.File("inks.json") + ": \"width\" is outside 0 to 4294967295");
  Print(photo_, "b/", {"-m", "12", "--paper", "12x17mm"});
  EXPECT_THAT(ComplaintOf(folder_.File("b/photo.raw"), {"-m", "12"}), HasSubstr("8 bits a pixel"));
  // Nothing that is read is written over, and black is not left out in silence.
  WriteRaw(folder_.File("inks.raw"), folder_.File("inks.json"), nine);
  EXPECT_THAT(Complaint({"print", folder_.File("inks.json"), "--separations", "-m", "108", "-o",
                         folder_.File("inks.raw"), "--format", "raw"}),
              HasSubstr("is an input and would be written over"));
  EXPECT_EQ(ComplaintOf(folder_.File("inks.raw"), {"-m", "109"}),
            folder_.File("inks.json") + ": has ink K, which the print mode does not print");
  EXPECT_FALSE(std::filesystem::exists(folder_.File("no")));
}

TEST_F(PrintSeparationsTest, TakesAnyBytesForAFailureOrAPage) {
  Print(photo_, "a/", {"-m", "8", "--contone", "--paper", "12x17mm"});
  const std::string good = folder_.Read("a/photo-contone.tif");
  std::mt19937 random(5);
  for (int round = 0; round < 60; ++round) {
    std::string bytes = good;
    // The directory lies at the end.
    for (int i = 0; i < 3; ++i) bytes[bytes.size() - 1 - random() % 420] = char(random());
    if (round % 4 == 0) bytes.resize(random() % bytes.size());
    const std::string path = folder_.Write("inks.tif", bytes);
    try {
      RunCorvane({"print", path, "-q", "--separations", "-m", "8", "-o", folder_.File("b/")});
    } catch (const Failure& failure) {
      EXPECT_THAT(failure.what(), testing::Not(HasSubstr("\n")));
    }
  }
}

}  // namespace
}  // namespace corvane
