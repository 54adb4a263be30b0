// SPDX-License-Identifier: MIT
//
// The files of a page: the TIFF and raw forms, and that a full disk leaves none.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tiffio.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "app/output/raw.h"
#include "app/output/tiff.h"
#include "app/support/failure.h"
#include "app/support/output_stage.h"
#include "printmode/print_modes.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

std::uint8_t Byte(std::size_t row, std::size_t at) {
  if (row % 1000 < 300) return 0;  // blank strips
  return static_cast<std::uint8_t>((row * 2654435761u ^ at * 40503u) >> 7);
}

// Planes of two widths that are no multiple of eight, padded as the chain pads them, and bytes
// behind the last plane.
PageShape MakePage(std::uint32_t rows, int bits) {
  PageShape page;
  page.title = "a page";
  page.mode = FindPrintMode(CcMmYycmK_4800x1200_16Pass);
  page.bitsPerPixel = bits;
  page.rows = rows;
  page.verticalDpi = 1200;
  const struct {
    const char* name;
    Ink ink;
    std::uint32_t width;
  } kPlanes[] = {{"C", Ink::C, 1003}, {"K bit 0", Ink::K, 1003}, {"cd", Ink::cd, 2006}};
  for (const auto& plane : kPlanes) {
    PlaneShape shape;
    shape.name = plane.name;
    shape.ink = plane.ink;
    shape.offset = page.rowBytes;
    shape.width = plane.width;
    shape.bytes = (plane.width * static_cast<std::size_t>(bits) + 7) / 8 + 1;
    shape.horizontalDpi = plane.width == 1003 ? 2400 : 4800;
    page.rowBytes += shape.bytes;
    page.planes.push_back(shape);
  }
  page.rowBytes += 5;
  return page;
}

void Send(const PageShape& page, PageSink& sink) {
  sink.StartPage(page);
  std::vector<std::uint8_t> row(page.rowBytes);
  for (std::size_t y = 0; y < page.rows; ++y) {
    for (std::size_t i = 0; i < row.size(); ++i) row[i] = Byte(y, i);
    sink.WriteRow(row.data());
  }
  sink.EndPage();
}

void WriteTiffPage(const std::string& path, const PageShape& page, int threads,
                   TiffForm form = TiffForm::Directories) {
  OutputStage stage;
  TiffSink sink(stage.Create(path), threads, form);
  Send(page, sink);
  stage.Commit();
}

template <class Value>
Value FieldOf(TIFF* tiff, std::uint32_t tag) {
  Value value{};
  EXPECT_EQ(TIFFGetField(tiff, tag, &value), 1) << tag;
  return value;
}

TEST(TiffSink, HoldsADirectoryForEachPlane) {
  const ScratchFolder folder;
  const std::string path = folder.File("page.tif");
  for (const int bits : {1, 8}) {
    for (const std::uint32_t rows : {1u, 2500u}) {
      SCOPED_TRACE(testing::Message() << bits << " bits, " << rows << " rows");
      const PageShape page = MakePage(rows, bits);
      WriteTiffPage(path, page, 2);
      TIFF* tiff = TIFFOpen(path.c_str(), "r");
      ASSERT_NE(tiff, nullptr);
      ASSERT_EQ(TIFFNumberOfDirectories(tiff), page.planes.size());
      for (std::size_t i = 0; i < page.planes.size(); ++i) {
        const PlaneShape& plane = page.planes[i];
        TIFFSetDirectory(tiff, static_cast<std::uint16_t>(i));
        const auto width = FieldOf<std::uint32_t>(tiff, TIFFTAG_IMAGEWIDTH);
        EXPECT_EQ(width, plane.width);
        EXPECT_EQ(FieldOf<std::uint32_t>(tiff, TIFFTAG_IMAGELENGTH), rows);
        EXPECT_EQ(FieldOf<std::uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE), bits);
        EXPECT_EQ(FieldOf<std::uint16_t>(tiff, TIFFTAG_PHOTOMETRIC), PHOTOMETRIC_MINISWHITE);
        EXPECT_EQ(FieldOf<float>(tiff, TIFFTAG_XRESOLUTION), plane.horizontalDpi);
        EXPECT_EQ(FieldOf<float>(tiff, TIFFTAG_YRESOLUTION), 1200);
        EXPECT_EQ(FieldOf<char*>(tiff, TIFFTAG_PAGENAME), plane.name);
        EXPECT_EQ(FieldOf<char*>(tiff, TIFFTAG_INKNAMES), plane.name);
        EXPECT_STREQ(FieldOf<char*>(tiff, TIFFTAG_DOCUMENTNAME), "a page");
        std::vector<std::uint8_t> row(static_cast<std::size_t>(TIFFScanlineSize(tiff)));
        ASSERT_EQ(row.size(), (width * static_cast<std::size_t>(bits) + 7) / 8);
        for (std::uint32_t y = 0; y < rows; ++y) {
          ASSERT_EQ(TIFFReadScanline(tiff, row.data(), y), 1);
          for (std::size_t x = 0; x < row.size(); ++x) {
            ASSERT_EQ(row[x], Byte(y, plane.offset + x)) << plane.name << " " << x << ", " << y;
          }
        }
      }
      TIFFClose(tiff);
    }
  }
}

// One image that any reader of separations takes: every plane a sample, every ink by its name.
TEST(TiffSink, HoldsOneSeparatedImage) {
  const ScratchFolder folder;
  const std::string path = folder.File("page.tif");
  PageShape page = MakePage(2500, 8);
  page.planes[2].width = page.planes[0].width;
  WriteTiffPage(path, page, 2, TiffForm::Separated);
  TIFF* tiff = TIFFOpen(path.c_str(), "r");
  ASSERT_NE(tiff, nullptr);
  EXPECT_EQ(TIFFNumberOfDirectories(tiff), 1);
  EXPECT_EQ(FieldOf<std::uint16_t>(tiff, TIFFTAG_PHOTOMETRIC), PHOTOMETRIC_SEPARATED);
  EXPECT_EQ(FieldOf<std::uint16_t>(tiff, TIFFTAG_INKSET), INKSET_MULTIINK);
  EXPECT_EQ(FieldOf<std::uint16_t>(tiff, TIFFTAG_NUMBEROFINKS), 3);
  EXPECT_EQ(FieldOf<std::uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL), 3);
  EXPECT_EQ(FieldOf<std::uint16_t>(tiff, TIFFTAG_PLANARCONFIG), PLANARCONFIG_SEPARATE);
  const std::string names("C\0K bit 0\0cd", 12);
  EXPECT_EQ(std::string(FieldOf<char*>(tiff, TIFFTAG_INKNAMES), names.size()), names);
  std::uint16_t extraSamples = 0;
  const std::uint16_t* kinds = nullptr;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &extraSamples, &kinds);
  EXPECT_EQ(extraSamples, 0);
  std::vector<std::uint8_t> row(page.planes[0].width);
  for (std::uint16_t plane = 0; plane < 3; ++plane) {
    for (std::uint32_t y = 0; y < page.rows; ++y) {
      ASSERT_EQ(TIFFReadScanline(tiff, row.data(), y, plane), 1);
      for (std::size_t x = 0; x < row.size(); x += 9) {
        ASSERT_EQ(row[x], Byte(y, page.planes[plane].offset + x))
            << plane << ": " << x << ", " << y;
      }
    }
  }
  TIFFClose(tiff);
}

TEST(TiffSink, DoesNotDependOnItsThreads) {
  const ScratchFolder folder;
  const PageShape page = MakePage(4000, 8);
  WriteTiffPage(folder.File("one.tif"), page, 1);
  WriteTiffPage(folder.File("many.tif"), page, 5);
  EXPECT_TRUE(ReadFile(folder.File("one.tif")) == ReadFile(folder.File("many.tif")));
}

TEST(RawSink, HoldsTheRowsAndSaysWhatTheyAre) {
  const ScratchFolder folder;
  const PageShape page = MakePage(3000, 1);
  OutputStage stage;
  RawSink sink(stage.Create(folder.File("page.raw")), &stage.Create(folder.File("page.json")));
  Send(page, sink);
  stage.Commit();
  const std::string rows = ReadFile(folder.File("page.raw"));
  ASSERT_EQ(rows.size(), page.rowBytes * page.rows);
  for (std::size_t i = 0; i < rows.size(); i += 97) {
    ASSERT_EQ(static_cast<std::uint8_t>(rows[i]), Byte(i / page.rowBytes, i % page.rowBytes));
  }
  const auto json = nlohmann::json::parse(ReadFile(folder.File("page.json")));
  EXPECT_EQ(json["data"], "page.raw");
  EXPECT_EQ(json["mode"], 109);
  EXPECT_EQ(json["rows"], 3000);
  EXPECT_EQ(json["rowBytes"], page.rowBytes);
  ASSERT_EQ(json["planes"].size(), 3u);
  EXPECT_EQ(json["planes"][2]["ink"], "cd");
  EXPECT_EQ(json["planes"][2]["offset"], page.planes[2].offset);
  EXPECT_EQ(json["planes"][2]["width"], 2006);
}

// Stands for a full disk: writing ends at a limit, in a thread that compresses.
TEST(TiffSink, FailsAndLeavesNothingWhenTheDiskIsFull) {
  const ScratchFolder folder;
  const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit old = {};
  getrlimit(RLIMIT_FSIZE, &old);
  rlimit low = old;
  low.rlim_cur = 20000;
  setrlimit(RLIMIT_FSIZE, &low);
  const std::string message =
      FailureOf([&] { WriteTiffPage(folder.File("page.tif"), MakePage(4000, 1), 2); });
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(message, folder.File("page.tif") + ": cannot write: File too large");
  EXPECT_TRUE(folder.IsEmpty());
}

}  // namespace
}  // namespace corvane
