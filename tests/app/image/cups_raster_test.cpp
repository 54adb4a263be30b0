// SPDX-License-Identifier: MIT
//
// Raster streams, written by the library that reads them.
#include <cups/cups.h>
#include <cups/raster.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>
#include <vector>

#include "app/image/pictures.h"
#include "app/image/srgb.h"
#include "app/page/place.h"
#include "app/support/failure.h"
#include "tests/app/commands/run_corvane.h"
#include "tests/app/commands/standard_input_from.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

constexpr unsigned kWidth = 37, kHeight = 11;

struct RasterForm {
  const char* name;
  cups_cspace_t space;
  unsigned colours, bits;
  cups_order_t order = CUPS_ORDER_CHUNKED;
};

constexpr RasterForm kForms[] = {
    {"black, 1 bit", CUPS_CSPACE_K, 1, 1},
    {"black", CUPS_CSPACE_K, 1, 8},
    {"grey", CUPS_CSPACE_SW, 1, 8},
    {"grey, 16 bits", CUPS_CSPACE_W, 1, 16},
    {"sRGB", CUPS_CSPACE_SRGB, 3, 8},
    {"sRGB, 16 bits", CUPS_CSPACE_SRGB, 3, 16},
    {"RGB in bands", CUPS_CSPACE_RGB, 3, 8, CUPS_ORDER_BANDED},
    {"CMYK", CUPS_CSPACE_CMYK, 4, 8},
    {"CMYK in bands, 16 bits", CUPS_CSPACE_CMYK, 4, 16, CUPS_ORDER_BANDED},
};

// Colour `c` of a pixel, 8 bits; light or ink as the form has it.
unsigned Sample(const RasterForm& form, unsigned x, unsigned y, unsigned c) {
  const unsigned value = (x * 7 + y * 13 + c * 50) % 256;
  return form.bits == 1 ? (value < 100 ? 255 : 0) : value;
}

unsigned Srgb(const RasterForm& form, unsigned x, unsigned y, unsigned c) {
  if (form.colours == 3) return Sample(form, x, y, c);
  if (form.colours == 4) {
    return ((255 - Sample(form, x, y, c)) * (255 - Sample(form, x, y, 3)) + 127) / 255;
  }
  const unsigned value = Sample(form, x, y, 0);
  return form.space == CUPS_CSPACE_K ? 255 - value : value;
}

cups_page_header2_t HeaderOf(const RasterForm& form) {
  cups_page_header2_t header = {};
  header.HWResolution[0] = header.HWResolution[1] = 72;
  header.PageSize[0] = kWidth;
  header.PageSize[1] = kHeight;
  header.NumCopies = 3;
  std::strcpy(header.MediaType, "glossy");
  std::strcpy(header.OutputType, "photo");
  header.cupsInteger[8] = 5;
  header.cupsInteger[9] = 54;
  header.cupsInteger[10] = 1;
  header.cupsWidth = kWidth;
  header.cupsHeight = kHeight;
  header.cupsColorSpace = form.space;
  header.cupsColorOrder = form.order;
  header.cupsBitsPerColor = form.bits;
  header.cupsNumColors = form.colours;
  header.cupsBitsPerPixel = form.order == CUPS_ORDER_BANDED ? form.bits : form.bits * form.colours;
  header.cupsBytesPerLine = (kWidth * form.bits + 7) / 8 * form.colours;
  return header;
}

std::vector<unsigned char> RowOf(const RasterForm& form, const cups_page_header2_t& header,
                                 unsigned y) {
  std::vector<unsigned char> row(header.cupsBytesPerLine);
  for (unsigned c = 0; c < form.colours; ++c) {
    for (unsigned x = 0; x < kWidth; ++x) {
      const std::size_t at =
          form.order == CUPS_ORDER_BANDED ? c * kWidth + x : x * form.colours + c;
      const unsigned value = Sample(form, x, y, c);
      if (form.bits == 1) {
        if (value != 0) row[x / 8] |= static_cast<unsigned char>(0x80 >> x % 8);
      } else if (form.bits == 8) {
        row[at] = static_cast<unsigned char>(value);
      } else {
        const auto wide = static_cast<std::uint16_t>(value * 257);
        std::memcpy(&row[2 * at], &wide, 2);
      }
    }
  }
  return row;
}

// A stream of `pages` equal pages.
void WriteRaster(const std::string& path, const RasterForm& form, cups_mode_t mode, int pages,
                 const std::function<void(cups_page_header2_t&)>& change = {}) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  cups_raster_t* raster = cupsRasterOpen(file, mode);
  for (int page = 0; page < pages; ++page) {
    cups_page_header2_t header = HeaderOf(form);
    if (change) change(header);
    cupsRasterWriteHeader2(raster, &header);
    for (unsigned y = 0; y < kHeight; ++y) {
      std::vector<unsigned char> row = RowOf(form, header, y);
      cupsRasterWritePixels(raster, row.data(), header.cupsBytesPerLine);
    }
  }
  cupsRasterClose(raster);
  close(file);
}

std::vector<std::uint8_t> ReadSrgb(PageStream& stream) {
  const auto rows = MakeSrgbRows(ReaderOfPage(stream));
  std::vector<std::uint8_t> pixels(rows->RowBytes() * rows->Height());
  for (std::size_t y = 0; y < rows->Height(); ++y) {
    rows->ReadRow(pixels.data() + y * rows->RowBytes());
  }
  return pixels;
}

int ReadPages(const std::string& path) {
  const auto stream = OpenPageStream(path);
  int pages = 0;
  for (; stream->Next(); ++pages) ReadSrgb(*stream);
  return pages;
}

TEST(CupsRaster, ReadsEveryFormAndVersion) {
  const ScratchFolder folder;
  for (const RasterForm& form : kForms) {
    for (const cups_mode_t mode :
         {CUPS_RASTER_WRITE, CUPS_RASTER_WRITE_COMPRESSED, CUPS_RASTER_WRITE_PWG}) {
      SCOPED_TRACE(testing::Message() << form.name << ", mode " << mode);
      WriteRaster(folder.File("pages"), form, mode, 2);
      const auto stream = OpenPageStream(folder.File("pages"));
      for (int page = 0; page < 2; ++page) {
        ASSERT_TRUE(stream->Next());
        EXPECT_EQ(stream->Page().copies, 3);
        const PageTicket& ticket = stream->Page().ticket;
        EXPECT_EQ(ticket.mediaType + ", " + ticket.content, "glossy, photo");
        // The library writes no such numbers into headers of the PWG form.
        const int written = mode == CUPS_RASTER_WRITE_PWG ? 0 : 5541;
        EXPECT_EQ(ticket.quality * 1000 + ticket.mode * 10 + ticket.alternateMode, written);
        EXPECT_EQ(stream->Page().image.horizontalDpi, 72);
        EXPECT_NEAR(stream->Page().mediaWidthMm, kWidth / 72.0 * 25.4, 1e-3);
        const std::vector<std::uint8_t> pixels = ReadSrgb(*stream);
        ASSERT_EQ(pixels.size(), std::size_t{3} * kWidth * kHeight);
        for (unsigned i = 0; i < pixels.size(); ++i) {
          ASSERT_EQ(pixels[i], Srgb(form, i / 3 % kWidth, i / 3 / kWidth, i % 3)) << i;
        }
      }
      EXPECT_FALSE(stream->Next());
    }
  }
}

// What the usual interpreter draws for spoolers prints as its plain pixels do.
TEST(CupsRaster, PrintsLikeThePixelsOfAnotherDevice) {
  if (std::system("gs -v >/dev/null 2>&1") != 0) GTEST_SKIP() << "without Ghostscript";
  const ScratchFolder folder;
  folder.Write("page.ps",
               "%!PS\n<< /PageSize [36 48] >> setpagedevice 0.2 0.5 0.9 setrgbcolor\n"
               "5 5 20 30 rectfill 0 setgray /Helvetica findfont 9 scalefont setfont\n"
               "3 38 moveto (Page) show 1 0 0 setrgbcolor 25 25 9 0 360 arc fill showpage\n");
  const auto print = [&](const std::string& device) {
    const std::string command = "cd '" + folder.File("") + "' && gs -q -dSAFER -dBATCH -dNOPAUSE " +
                                "-r600 -sDEVICE=" + device + " -dcupsColorSpace=19 " +
                                "-dcupsBitsPerColor=8 -sOutputFile=page page.ps >log 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << folder.Read("log");
    RunCorvane({"print", folder.File("page"), "-q", "-m", "12", "--paper", "12.7x16.93mm",
                "--format", "raw", "-o", folder.File("out/")});
    return folder.Read("out/page.raw");
  };
  const std::string pixels = print("ppmraw");
  EXPECT_NE(pixels, std::string(pixels.size(), 0));
  EXPECT_TRUE(print("pwgraster") == pixels);
  EXPECT_TRUE(print("cups") == pixels);
}

// Each copy is a page of its own: behind the first, or with the others where the stream wants sets.
// Headers of the PWG form have no place for that wish.
TEST(CupsRaster, PrintsAsManyCopiesAsItAsksFor) {
  const ScratchFolder folder;
  const auto print = [&](bool collated, std::vector<std::string> more) {
    WriteRaster(folder.File("pages"), kForms[4], CUPS_RASTER_WRITE, 2,
                [&](auto& header) { header.Collate = collated ? CUPS_TRUE : CUPS_FALSE; });
    more.insert(more.begin(), {"print", folder.File("pages"), "-q", "--json", "--paper", "13x10mm",
                               "--format", "raw", "-o", folder.File("out/")});
    const auto report = nlohmann::json::parse(Output(more));
    std::string order;
    for (const auto& page : report["pages"]) {
      order += std::to_string(page["page"].get<int>()) + "." +
               std::to_string(page["copy"].get<int>()) + " ";
    }
    return order;
  };
  EXPECT_EQ(print(true, {}), "1.1 2.1 1.2 2.2 1.3 2.3 ");
  EXPECT_EQ(print(false, {}), "1.1 1.2 1.3 2.1 2.2 2.3 ");
  EXPECT_FALSE(folder.Read("out/pages-006.raw").empty());
  EXPECT_TRUE(folder.Read("out/pages-006.raw") == folder.Read("out/pages-004.raw"));
  EXPECT_EQ(print(false, {"--copies", "1"}), "1.1 2.1 ");
  EXPECT_EQ(print(true, {"--copies", "2", "--pages", "2"}), "2.1 2.2 ");
  // A pipe has none of them twice.
  WriteRaster(folder.File("page"), kForms[4], CUPS_RASTER_WRITE_PWG, 1);
  const StandardInputFrom input(folder.File("page"));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(
      Output({"print", "-", "-q", "--paper", "13x10mm", "--format", "raw", "-o", "-"}).empty());
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "corvane: stdin: asks for 3 copies, for which -o has to name a folder, and is printed "
            "once\n");
}

// Whole points in a header are no reason to scale a page that fills its sheet.
TEST(CupsRaster, FillsSheetsOfWholePoints) {
  const ScratchFolder folder;
  for (const char* name : {"iso_a4_210x297mm", "iso_a6_105x148mm", "na_letter_8.5x11in"}) {
    for (const unsigned dpi : {300u, 600u}) {
      SCOPED_TRACE(testing::Message() << name << " at " << dpi << " dpi");
      unsigned width = 0, height = 0;
      WriteRaster(folder.File("page"), kForms[4], CUPS_RASTER_WRITE_PWG, 1, [&](auto& header) {
        cupsRasterInitPWGHeader(&header, pwgMediaForPWG(name), "srgb_8", int(dpi), int(dpi),
                                "one-sided", nullptr);
        width = header.cupsWidth;
        height = header.cupsHeight;
      });
      const auto stream = OpenPageStream(folder.File("page"));
      ASSERT_TRUE(stream->Next());
      const StreamedPage& page = stream->Page();
      const Sheet sheet = MakeSheet({name, page.mediaWidthMm, page.mediaHeightMm}, dpi, dpi);
      EXPECT_EQ(std::pair(sheet.width, sheet.height), std::pair(width, height));
      EXPECT_EQ(std::pair(page.image.width, page.image.height), std::pair(width, height));
    }
  }
  WriteRaster(folder.File("page"), kForms[4], CUPS_RASTER_WRITE, 1);
  EXPECT_THAT(Complaint({"print", folder.File("page"), "-o", folder.File("o/"), "--landscape"}),
              testing::HasSubstr("--landscape turns a sheet that --paper names"));
}

// Rows that nobody reads are passed over, and Adobe RGB is no sRGB.
TEST(CupsRaster, GoesOnToTheNextPage) {
  const ScratchFolder folder;
  WriteRaster(folder.File("pages"), {"Adobe RGB", CUPS_CSPACE_ADOBERGB, 3, 8},
              CUPS_RASTER_WRITE_PWG, 3);
  const auto stream = OpenPageStream(folder.File("pages"));
  ASSERT_TRUE(stream->Next());
  std::vector<std::uint8_t> row(stream->Page().image.RowBytes());
  stream->ReadRow(row.data());
  ASSERT_TRUE(stream->Next());
  ASSERT_TRUE(stream->Next());
  EXPECT_FALSE(stream->Page().image.profile.empty());
  EXPECT_FALSE(stream->Next());
}

// The imaging box says where the pixels lie; what is around them is white.
TEST(CupsRaster, HasTheMarginsOfItsSheet) {
  const ScratchFolder folder;
  const auto withMargins = [](cups_page_header2_t& header) {
    header.cupsPageSize[0] = kWidth + 10;
    header.cupsPageSize[1] = kHeight + 7;
    const float box[] = {4, 2, 4 + kWidth, 2 + kHeight};  // left, bottom, right, top
    std::copy(std::begin(box), std::end(box), header.cupsImagingBBox);
  };
  for (const RasterForm& form : kForms) {
    SCOPED_TRACE(form.name);
    WriteRaster(folder.File("page"), form, CUPS_RASTER_WRITE, 1, withMargins);
    const auto stream = OpenPageStream(folder.File("page"));
    ASSERT_TRUE(stream->Next());
    const unsigned width = stream->Page().image.width;
    ASSERT_EQ(width, kWidth + 10);
    ASSERT_EQ(stream->Page().image.height, kHeight + 7);
    const std::vector<std::uint8_t> pixels = ReadSrgb(*stream);
    for (unsigned i = 0; i < pixels.size(); ++i) {
      const unsigned x = i / 3 % width, y = i / 3 / width;
      const bool inside = x >= 4 && x < 4 + kWidth && y >= 5 && y < 5 + kHeight;
      ASSERT_EQ(pixels[i], inside ? Srgb(form, x - 4, y - 5, i % 3) : 255) << x << ", " << y;
    }
  }
}

// Wherever a stream ends but behind a page: a failure that names the page, and no white rest.
TEST(CupsRaster, RefusesAStreamThatIsCut) {
  const ScratchFolder folder;
  const std::string path = folder.File("pages");
  for (const cups_mode_t mode :
       {CUPS_RASTER_WRITE, CUPS_RASTER_WRITE_COMPRESSED, CUPS_RASTER_WRITE_PWG}) {
    WriteRaster(path, kForms[4], mode, 1);
    const std::size_t onePage = ReadFile(path).size();
    WriteRaster(path, kForms[4], mode, 2);
    const std::string good = ReadFile(path);
    EXPECT_EQ(ReadPages(path), 2);
    // A header's rest may be as long as a header of the first version.
    const std::size_t nearlyOneHeader =
        onePage + sizeof(cups_page_header2_t) - sizeof(cups_page_header_t);
    for (const std::size_t kept :
         {std::size_t{4}, std::size_t{100}, std::size_t{1700}, std::size_t{2000}, onePage - 1,
          onePage + 1, onePage + 1000, nearlyOneHeader, onePage + 1799, good.size() - 1}) {
      WriteFile(path, good.substr(0, kept));
      ASSERT_THAT(FailureOf([&] { ReadPages(path); }), testing::StartsWith(path))
          << mode << ", " << kept << " of " << good.size();
    }
    WriteFile(path, good.substr(0, onePage));
    EXPECT_EQ(ReadPages(path), 1);
  }
}

TEST(CupsRaster, RefusesWhatItDoesNotKnow) {
  const ScratchFolder folder;
  const std::string path = folder.File("page");
  const std::pair<std::function<void(cups_page_header2_t&)>, const char*> kCases[] = {
      {[](auto& header) { header.cupsColorSpace = CUPS_CSPACE_CIELab; }, "colour space 16"},
      {[](auto& header) { header.cupsColorOrder = CUPS_ORDER_PLANAR; }, "one colour of the page"},
      {[](auto& header) { header.cupsWidth = 5000; }, "do not hold their pixels"},
      {[](auto& header) { header.cupsHeight = 2000000; }, "more than 1000000"},
  };
  for (const auto& [change, complaint] : kCases) {
    WriteRaster(path, kForms[4], CUPS_RASTER_WRITE, 1, change);
    EXPECT_THAT(FailureOf([&] { ReadPages(path); }), testing::HasSubstr(complaint));
  }
  // Any bytes are a failure or pages.
  WriteRaster(path, kForms[5], CUPS_RASTER_WRITE_COMPRESSED, 2);
  const std::string good = ReadFile(path);
  std::mt19937 random(3);
  for (int round = 0; round < 200; ++round) {
    std::string bytes = good;
    for (int i = 0; i < 3; ++i) bytes[random() % (i < 2 ? 480 : bytes.size())] = char(random());
    WriteFile(path, bytes);
    try {
      const auto stream = OpenPageStream(path);
      std::vector<std::uint8_t> row;
      for (int pages = 0; pages < 3 && stream->Next(); ++pages) {
        row.resize(stream->Page().image.RowBytes());
        for (std::uint32_t y = 0; y < std::min(stream->Page().image.height, 40u); ++y) {
          stream->ReadRow(row.data());
        }
      }
    } catch (const Failure&) {
    }
  }
}

}  // namespace
}  // namespace corvane
