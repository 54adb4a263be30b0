// SPDX-License-Identifier: MIT
#include "halftone/halftone_module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/harness/element_harness.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using harness::ElementHarness;
using harness::NumberOf;
using harness::SentMessage;
using harness::TextOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;

struct Page {
  int descriptor = 48;
  unsigned long width = 100, resolution = 600;
  int alternateMode = 0, leftMargin = 0, rightMargin = 0;
};

int BitsIn(const std::vector<unsigned char>& data) {
  int bits = 0;
  for (const unsigned char byte : data) bits += std::popcount(byte);
  return bits;
}

class HalftoneModule : public testing::Test {
 protected:
  HalftoneModule() : harness(new EHalftoneModule) {}

  unsigned long Start(const Page& page) {
    QStartPage start;
    start.Properties.SetProperty("PrintableWidth", page.width, "Standard");
    start.Properties.SetProperty("HorizontalInputResolution", page.resolution, "Standard");
    start.Properties.SetProperty("UseAlternateModes", page.alternateMode, "Standard");
    start.Properties.SetProperty("LeftOverSprayPixels", page.leftMargin, "Standard");
    start.Properties.SetProperty("RightOverSprayPixels", page.rightMargin, "Standard");
    start.PageProperties.SetProperty("CMYKBinaryDescriptor", page.descriptor, "Standard");
    return harness.Push(start);
  }

  // Sends a row of contone planes, `stride` pixels each, and gives what comes out.
  SentMessage Convert(std::vector<unsigned char> data, std::uint32_t stride, std::uint32_t row,
                      std::uint32_t first, std::uint32_t end) {
    harness.TakeSent();
    QCMYKContoneRaster raster;
    raster.Data = data.data();
    raster.RowBytes = static_cast<std::uint32_t>(data.size());
    raster.Width = stride;
    raster.Row = row;
    raster.FirstPixel = first;
    raster.EndPixel = end;
    raster.PassThroughValue = 77;
    lastResult = harness.Push(raster);
    const std::vector<SentMessage> sent = harness.TakeSent();
    return sent.size() == 1 ? sent[0] : SentMessage{};
  }

  unsigned long End() { return harness.Push(kEndPageMessage); }

  ElementHarness harness;
  unsigned long lastResult = 0;
};

// The same, writing its log into a directory of its own.
class LoggingHalftoneModule : public HalftoneModule {
 protected:
  LoggingHalftoneModule() {
    harness.Element().Properties.SetProperty("WriteToFile", 1, "EHalftoneModule");
    harness.Start();
  }

  std::string Log() const {
    std::ifstream file(folder_.File("HTLog.txt"));  // as text, whatever ends its lines
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  DiagnosticsFolder folder_;
};

TEST_F(HalftoneModule, RefusesAPageWithAnErrorAheadOfItsStart) {
  const char* const unsupported = "This print mode is not supported yet.";
  const char* const noBuffer = "Can not create Halftone Buffer.";
  const struct {
    const char* why;
    Page page;
    int id;
    const char* text;
  } cases[] = {
      {"no print mode", {.descriptor = 0}, 27, unsupported},
      {"no print mode either, at width 0", {.descriptor = 13, .width = 0}, 27, unsupported},
      {"no width", {.width = 0}, 8, noBuffer},
      {"no input resolution", {.resolution = 0}, 8, noBuffer},
      {"above the resolution of the mode", {.resolution = 1201}, 8, noBuffer},
      {"lines beyond 32 bits", {.width = 0x7FFFFFFFul}, 8, noBuffer},
      {"margins beyond 32 bits", {.width = 0xFFFFFFFFul, .leftMargin = 9}, 8, noBuffer},
  };
  harness.Start();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    harness.TakeSent();
    EXPECT_EQ(Start(c.page), 0u);
    const std::vector<SentMessage> sent = harness.TakeSent();
    ASSERT_THAT(sent, ElementsAre(Field(&SentMessage::kind, kErrorMessage),
                                  Field(&SentMessage::kind, kStartPageMessage)));
    EXPECT_EQ(TextOf(sent[0].properties, "EObjectName"), "EHalftoneError");
    EXPECT_EQ(NumberOf(sent[0].properties, "ErrorID"), c.id);
    EXPECT_EQ(TextOf(sent[0].properties, "ErrorString"), c.text);

    const SentMessage row = Convert({1, 2, 3}, 3, 5, 0, 3);
    EXPECT_EQ(row.kind, kContoneRasterMessage);
    EXPECT_THAT(row.data, ElementsAre(1, 2, 3));
    EXPECT_EQ(End(), 1u);
  }
}

TEST_F(HalftoneModule, GivesTheResultOfTheNextElement) {
  harness.Start();
  for (const unsigned long result : {0ul, 5ul}) {
    harness.next.result = result;
    EXPECT_EQ(Start({}), result);
    Convert(std::vector<unsigned char>(100), 100, 1, 0, 100);
    EXPECT_EQ(lastResult, result);
    EXPECT_EQ(End(), result);
    Convert({1}, 1, 1, 0, 1);
    EXPECT_EQ(lastResult, result) << "a row behind the page's end";
  }
}

TEST_F(HalftoneModule, SendsRowsInBinaryPixels) {
  harness.Start();
  Start({.descriptor = 54, .width = 100, .leftMargin = 8, .rightMargin = 8});
  const SentMessage row = Convert(std::vector<unsigned char>(7 * 116), 116, 33, 10, 20);
  EXPECT_EQ(row.kind, kBinaryRasterMessage);
  EXPECT_THAT((std::vector{row.rasterFormat, row.passThroughValue, row.row, row.firstPixel,
                           row.endPixel, row.width, row.rowBytes}),
              ElementsAre(17, 77, 33, 20, 40, 232, 29 * 7));
  EXPECT_THAT(row.data, Each(0));
}

TEST_F(HalftoneModule, ReadsPlanesAtTheStrideOfTheRowAndKeepsTheMarginsEmpty) {
  harness.Start();
  // Full black only, in planes of 16 pixels on a page of 16 + 8 + 8: at one binary pixel per
  // contone pixel and 100 per cent every pixel of the plane gets its drop, none of the margins.
  std::vector<unsigned char> planes(7 * 16);
  std::fill(planes.begin() + 6 * 16, planes.end(), 255);
  for (const std::uint32_t row : {1u, 2u}) {
    SCOPED_TRACE(row);
    Start({.descriptor = 12, .width = 16, .leftMargin = 8, .rightMargin = 8});
    const SentMessage sent = Convert(planes, 16, row, 0, 1000);
    EXPECT_EQ(sent.endPixel, 1000u);
    ASSERT_EQ(sent.rowBytes, 7u * 4u);
    EXPECT_EQ(sent.data[6 * 4], 0xFF);
    EXPECT_EQ(sent.data[6 * 4 + 1], 0xFF);
    EXPECT_EQ(BitsIn(sent.data), 16);
    // Pixels that begin beyond the planes convert nothing.
    EXPECT_EQ(BitsIn(Convert(planes, 16, row, 20, 30).data), 0);
  }
  // Without a width of its own the row has that of the page.
  Start({.descriptor = 8, .width = 16});
  EXPECT_EQ(BitsIn(Convert(std::vector<unsigned char>(16, 255), 0, 1, 0, 16).data), 16);
}

TEST_F(HalftoneModule, BeginsEveryPageWithoutError) {
  harness.Start();
  const std::vector<unsigned char> planes(300, 77);
  std::vector<std::vector<unsigned char>> pages[2];
  for (auto& rows : pages) {
    Start({.width = 300});
    for (std::uint32_t row = 0; row < 4; ++row) {
      rows.push_back(Convert(planes, 300, row, 0, 300).data);
      EXPECT_GT(BitsIn(rows.back()), 0);
    }
    End();
  }
  EXPECT_EQ(pages[0], pages[1]);
}

TEST_F(HalftoneModule, PassesOnARowThatLacksPlanes) {
  harness.Start();
  Start({.descriptor = 54, .width = 10});
  EXPECT_EQ(Convert(std::vector<unsigned char>(69), 10, 1, 0, 10).kind, kContoneRasterMessage);
  EXPECT_EQ(Convert(std::vector<unsigned char>(70), 10, 1, 0, 10).kind, kBinaryRasterMessage);
  // Nobody reads the black plane of this mode.
  Start({.descriptor = 52, .width = 10});
  EXPECT_EQ(Convert(std::vector<unsigned char>(60), 10, 1, 0, 10).kind, kBinaryRasterMessage);
}

// A page start without a page end before it takes the place of the page.
TEST_F(HalftoneModule, ReplacesAnOpenPage) {
  harness.Start();
  Start({.descriptor = 109, .width = 50});
  Start({.descriptor = 8, .width = 2000});
  EXPECT_EQ(BitsIn(Convert(std::vector<unsigned char>(2000, 255), 2000, 1, 0, 2000).data), 2000);
  EXPECT_EQ(End(), 1u);
  EXPECT_EQ(End(), 1u);
}

// A copy has the page for itself: from the same row on it places the same drops, whether or not the
// original has ended the page, and it carries its own error.
TEST_F(HalftoneModule, ItsCopiesGoOnWithThePage) {
  constexpr unsigned kWidth = 2048;  // enough for segments
  harness.Start();
  for (const int descriptor : {8, 54, 106}) {
    Start({.descriptor = descriptor, .width = kWidth});
    std::vector<unsigned char> data(9 * kWidth);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(37 * i);
    QCMYKContoneRaster raster;
    raster.Data = data.data();
    raster.Width = raster.EndPixel = kWidth;
    const auto rowsOf = [&](ZCOM::EObject& element) {
      std::vector<std::vector<unsigned char>> rows;
      for (raster.Row = 1; raster.Row < 5; ++raster.Row) {
        EXPECT_EQ(element.DataArrived(&raster, 0), 1u);
        rows.push_back(harness.TakeSent().back().data);
      }
      return rows;
    };
    rowsOf(harness.Element());
    auto copy =
        std::make_unique<EHalftoneModule>(static_cast<const EHalftoneModule&>(harness.Element()));
    EHalftoneModule assigned;
    assigned = *copy;
    EXPECT_EQ(copy->GetSourcePad(0)->Owner, copy.get());
    const auto expected = rowsOf(harness.Element());
    EXPECT_EQ(rowsOf(*copy), expected) << descriptor;
    copy.reset();
    End();
    harness.TakeSent();
    EXPECT_EQ(rowsOf(assigned), expected) << descriptor;
    ZCOM::QObject end(kEndPageMessage);
    EXPECT_EQ(assigned.DataArrived(&end, 0), 1u);
  }
}

// Another element goes on with the page as if it had seen the rows before, and states are equal
// where the pages are.
TEST_F(HalftoneModule, ItsStateGoesOnWithThePage) {
  constexpr unsigned kWidth = 2048;  // enough for segments
  harness.Start();
  for (const int descriptor : {8, 54, 106, 109}) {
    Start({.descriptor = descriptor, .width = kWidth});
    std::vector<unsigned char> data(9 * kWidth);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(37 * i);
    QCMYKContoneRaster raster;
    raster.Data = data.data();
    raster.Width = raster.EndPixel = kWidth;
    std::vector<unsigned char> last;
    const auto sendRows = [&](ZCOM::EObject& element, unsigned long first, unsigned long end) {
      for (raster.Row = first; raster.Row < end; ++raster.Row) element.DataArrived(&raster, 0);
      last = harness.TakeSent().back().data;
    };
    const auto stateOf = [](const ZCOM::EObject& element) {
      const auto& state = dynamic_cast<const CarriedState&>(element);
      std::vector<unsigned char> bytes(state.StateBytes());
      state.SaveState(bytes.data());
      return bytes;
    };
    EHalftoneModule other(static_cast<const EHalftoneModule&>(harness.Element()));
    const auto before = stateOf(other);
    EXPECT_EQ(before, std::vector<unsigned char>(before.size()));
    sendRows(harness.Element(), 0, 5);
    const auto between = stateOf(harness.Element());
    EXPECT_NE(between, before);
    sendRows(harness.Element(), 5, 9);
    const auto expected = last;
    const auto behind = stateOf(harness.Element());

    sendRows(other, 0, 3);
    dynamic_cast<CarriedState&>(static_cast<ZCOM::EObject&>(other)).RestoreState(between.data());
    sendRows(other, 5, 9);
    EXPECT_EQ(last, expected) << descriptor;
    EXPECT_EQ(stateOf(other), behind) << descriptor;
    End();
    EXPECT_TRUE(stateOf(harness.Element()).empty());
  }
}

// A row without pixels is a row all the same, whatever buffer stands behind it.
TEST_F(HalftoneModule, NeedsNoPlanesForARowWithoutPixels) {
  harness.Start();
  std::vector<unsigned char> data(64, 255);
  QCMYKContoneRaster raster;
  for (const unsigned long width : {0ul, 40ul}) {
    Start({.descriptor = 54, .width = width, .leftMargin = 16});
    harness.TakeSent();
    for (unsigned char* pixels : {data.data(), static_cast<unsigned char*>(nullptr)}) {
      raster.Data = pixels;
      raster.Width = static_cast<std::uint32_t>(width);
      raster.RowBytes = 1;
      raster.FirstPixel = raster.EndPixel = 10;
      EXPECT_EQ(harness.Push(raster), 1u);
      const auto sent = harness.TakeSent();
      ASSERT_EQ(sent.size(), 1u);
      EXPECT_EQ(sent[0].kind, kBinaryRasterMessage);
      EXPECT_EQ(BitsIn(sent[0].data), 0);
    }
  }
}

constexpr const char* kNoCounts =
    "Ccount=0\nccount=0\nMcount=0\nmcount=0\nYcount=0\nycount=0\nKcount=0\ncdcount=0\nmdcount=0\n";

TEST_F(LoggingHalftoneModule, LogsTheSettingsOfEveryPage) {
  const struct {
    Page page;
    std::string settings;
  } cases[] = {
      // A black page leaves the colour shifts of the page before, at first 0.
      {{.descriptor = 8},
       "BinaryDescriptor = K_600x600_1Pass\nBinaryDescriptor = K_600x600_2Pass\n"
       "NumPix   = 1\nShiftCMY = 0\nShiftcmy = 0\nShiftK   = 4\n"},
      {{.descriptor = 7, .resolution = 300},
       "BinaryDescriptor = CMYK_300x600_1Pass\n"
       "NumPix   = 1\nShiftCMY = 4\nShiftcmy = 4\nShiftK   = 4\n"},
      {{.descriptor = 5, .resolution = 150},
       "BinaryDescriptor = K_300x600_1Pass\n"
       "NumPix   = 2\nShiftCMY = 4\nShiftcmy = 4\nShiftK   = 4\n"},
      {{.descriptor = 82, .alternateMode = 1},
       "BinaryDescriptor = CcMmYyK_4800x1200_16Pass\n"
       "NumPix   = 4\nShiftCMY = 1\nShiftcmy = 2\nShiftK   = 1\n"},
      // A refused resolution is found after the settings are made.
      {{.descriptor = 108, .resolution = 0},
       "BinaryDescriptor = CcMmYycmK_1200x1200_8Pass\n"
       "NumPix   = 0\nShiftCMY = 2\nShiftcmy = 2\nShiftK   = 3\n"},
      {{.descriptor = 99}, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.page.descriptor);
    Start(c.page);
    End();
    EXPECT_EQ(Log(), c.settings + kNoCounts);
  }
}

TEST_F(LoggingHalftoneModule, CountsDropsOverAllPages) {
  for (const int page : {1, 2}) {
    Start({.descriptor = 111, .width = 40});
    // Nine planes of 40: full cyan, and K at 128, which is one drop a pixel.
    std::vector<unsigned char> planes(9 * 40);
    std::fill_n(planes.begin() + 6 * 40, 40, 128);
    Convert(planes, 40, 1, 0, 40);
    Convert(planes, 40, 2, 0, 30);
    if (page == 2) Start({.descriptor = 111, .width = 40});  // the log begins anew
    End();
    const std::string kCount = "Kcount=" + std::to_string(70 * page) + "\n";
    EXPECT_THAT(Log(), testing::HasSubstr("ycount=0\n" + kCount + "cdcount=0\n"));
    EXPECT_EQ(Log().find("BinaryDescriptor"), 0u);
    EXPECT_EQ(Log().rfind("BinaryDescriptor"), 0u);
  }
}

TEST_F(LoggingHalftoneModule, GoesOnWithoutALogThatCannotBeOpened) {
  ZCOM::SetDiagnosticsDirectory("/nonexistent");
  EXPECT_EQ(Start({}), 1u);
  EXPECT_EQ(End(), 1u);
}

TEST_F(HalftoneModule, WritesNoLogUnasked) {
  const DiagnosticsFolder folder;
  harness.Start();
  Start({});
  End();
  EXPECT_TRUE(folder.IsEmpty());
}

}  // namespace
}  // namespace corvane
