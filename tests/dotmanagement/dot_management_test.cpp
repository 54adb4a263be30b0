// SPDX-License-Identifier: MIT
#include "dotmanagement/dot_management.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "tests/dotmanagement/glossy_row.h"
#include "tests/harness/element_harness.h"

namespace corvane {
namespace {

using harness::CountDots;
using harness::ElementHarness;
using harness::GlossyRow;
using harness::SentMessage;
using testing::ElementsAre;

// A page's settings: 100 pixels at 600 dpi, margins included, so 13 bytes a plane.
struct Page {
  int descriptor;
  unsigned long alternateMode, planes, slot1 = 1200;
  unsigned long slot2 = 0, resolution = 600, width = 92;

  QStartPage Message() const {
    QStartPage start;
    start.PageProperties.SetProperty("CMYKBinaryDescriptor", descriptor, "Standard");
    start.PageProperties.SetProperty("NumberOfPlanes", planes, "Standard");
    start.PageProperties.SetProperty("Slot1HorizontalRes", slot1, "Standard");
    start.PageProperties.SetProperty("Slot2HorizontalRes", slot2, "Standard");
    start.Properties.SetProperty("LeftOverSprayPixels", 3, "Standard");
    start.Properties.SetProperty("RightOverSprayPixels", 5, "Standard");
    start.Properties.SetProperty("PrintableWidth", width, "Standard");
    start.Properties.SetProperty("HorizontalInputResolution", resolution, "Standard");
    start.Properties.SetProperty("UseAlternateModes", alternateMode, "Standard");
    return start;
  }
};

// A row with dots everywhere, also outside of its first and end pixel.
struct BinaryRow {
  BinaryRow(unsigned planes, unsigned planeBytes) : dots(planes, planeBytes) {
    std::mt19937 random(planes);
    dots.Scatter(random, 30);
    raster.RasterFormat = 77;
    raster.PassThroughValue = 88;
    raster.Row = 7;
    raster.FirstPixel = 13;
    raster.EndPixel = 8 * planeBytes - 12;
    raster.Width = 8 * planeBytes - 3;
    raster.RowBytes = planes * planeBytes + planes - 1;  // a remainder belongs to no plane
    dots.bytes.resize(raster.RowBytes);
    raster.Data = dots.bytes.data();
  }
  // Dots of a plane in the bytes that are filtered.
  unsigned Dots(unsigned plane) const {
    return CountDots(&dots.bytes[plane * dots.planeBytes + 1], dots.planeBytes - 2);
  }
  // Dots of two planes that hold a drop count: a second-plane dot counts two.
  unsigned CellDots(unsigned plane) const {
    unsigned count = 2 * Dots(plane + 1);
    for (unsigned byte = 1; byte + 1 < dots.planeBytes; ++byte) {
      const unsigned first = dots.bytes[plane * dots.planeBytes + byte];
      const unsigned second = dots.bytes[(plane + 1) * dots.planeBytes + byte];
      count += static_cast<unsigned>(__builtin_popcount(first & ~second));
    }
    return count;
  }

  GlossyRow dots;
  QCMYKBinaryRaster raster;
};

std::vector<std::uint32_t> PlaceOf(const SentMessage& sent) {
  return {sent.row, sent.firstPixel, sent.endPixel, sent.width, sent.rowBytes};
}

class DotManagement : public testing::Test {
 protected:
  DotManagement() { harness_.Start(); }

  void StartPage(const Page& page) {
    QStartPage start = page.Message();
    ASSERT_EQ(harness_.Push(start), 1u);
    harness_.TakeSent();
  }

  void ExpectUnchanged(BinaryRow& row, const std::string& why) {
    harness_.next.result = 0;
    EXPECT_EQ(harness_.Push(row.raster), 1u) << why;
    harness_.next.result = 1;
    const auto sent = harness_.TakeSent();
    ASSERT_EQ(sent.size(), 1u) << why;
    const QRaster& raster = row.raster;
    EXPECT_THAT(PlaceOf(sent[0]), ElementsAre(raster.Row, raster.FirstPixel, raster.EndPixel,
                                              raster.Width, raster.RowBytes))
        << why;
    if (row.raster.Data != nullptr) {
      EXPECT_EQ(sent[0].data, row.dots.bytes) << why;
    }
  }

  std::vector<SentMessage> Filter(BinaryRow& row) {
    EXPECT_EQ(harness_.Push(row.raster), 1u);
    return harness_.TakeSent();
  }

  ElementHarness harness_{new ECorvaneDotManagement};
};

TEST_F(DotManagement, KeepsTheDotsOfOneRow) {
  const struct {
    Page page;
    unsigned planeBytes;
  } cases[] = {{{82, 0, 6, 4800}, 26},
               {{83, 0, 7, 4800}, 26},
               {{52, 1, 6}, 13},
               {{54, 1, 7}, 13},
               {{108, 1, 9}, 13}};
  for (const auto& c : cases) {
    StartPage(c.page);
    BinaryRow row(static_cast<unsigned>(c.page.planes), c.planeBytes);
    const auto sent = Filter(row);
    ASSERT_EQ(sent.size(), 1u) << c.page.descriptor;
    EXPECT_EQ(sent[0].rasterFormat, 77u);
    EXPECT_EQ(sent[0].passThroughValue, 88u);
    ASSERT_THAT(PlaceOf(sent[0]), ElementsAre(7, 26, 2 * row.raster.EndPixel, 2 * row.raster.Width,
                                              2 * c.page.planes * c.planeBytes));
    for (unsigned plane = 0; plane < c.page.planes; ++plane) {
      EXPECT_EQ(CountDots(&sent[0].data[2 * plane * c.planeBytes], 2 * c.planeBytes),
                row.Dots(plane))
          << c.page.descriptor << " " << plane;
    }
  }
}

TEST_F(DotManagement, MakesTwoRowsWithTheDotsOfCells) {
  const struct {
    Page page;
    unsigned planesIn;
  } cases[] = {{{52, 2, 6}, 12}, {{54, 2, 7}, 13}, {{108, 2, 9}, 18}};
  for (const auto& c : cases) {
    StartPage(c.page);
    BinaryRow row(c.planesIn, 13);
    const auto sent = Filter(row);
    ASSERT_EQ(sent.size(), 2u) << c.page.descriptor;
    for (unsigned i = 0; i < 2; ++i) {
      ASSERT_THAT(PlaceOf(sent[i]), ElementsAre(14 + i, 26, 2 * row.raster.EndPixel,
                                                2 * row.raster.Width, 26 * c.page.planes));
    }
    for (unsigned plane = 0; plane < c.page.planes; ++plane) {
      const unsigned dots =
          CountDots(&sent[0].data[26 * plane], 26) + CountDots(&sent[1].data[26 * plane], 26);
      EXPECT_EQ(dots, plane == 6 && c.planesIn == 13 ? row.Dots(12) : row.CellDots(2 * plane))
          << c.page.descriptor << " " << plane;
    }
  }
  // The result is that of the second row, which is sent whatever the first one met.
  harness_.next.result = 0;
  BinaryRow row(18, 13);
  EXPECT_EQ(harness_.Push(row.raster), 0u);
  EXPECT_EQ(harness_.TakeSent().size(), 2u);
}

TEST_F(DotManagement, ExpandsCdAndMdOnceMoreAndSendsNoBlack) {
  for (const unsigned factor : {1u, 2u}) {  // of the first expansion: "UseAlternateModes" 0 and 1
    StartPage({109, factor - 1, 9, 4800});
    const unsigned planeBytes = 52 / factor;
    BinaryRow row(9, planeBytes);
    harness_.next.dataBytes = 12 * 52;  // the second expansion spans twelve planes
    const auto sent = Filter(row);
    ASSERT_EQ(sent.size(), 1u);
    const auto& bytes = sent[0].data;
    EXPECT_EQ(sent[0].firstPixel, factor * row.raster.FirstPixel);
    EXPECT_EQ(sent[0].width, factor * row.raster.Width);
    EXPECT_EQ(sent[0].rowBytes, 9u * 52);
    if (factor == 1) {
      EXPECT_TRUE(std::equal(&bytes[0], &bytes[6 * 52], row.dots.bytes.begin()));
    } else {
      for (unsigned plane = 0; plane < 6; ++plane) {
        EXPECT_EQ(CountDots(&bytes[plane * 52], 52), row.Dots(plane)) << plane;
      }
    }
    EXPECT_EQ(CountDots(&bytes[6 * 52], 104), row.Dots(6));
    EXPECT_EQ(CountDots(&bytes[8 * 52], 104), row.Dots(7));
    EXPECT_EQ(CountDots(&bytes[10 * 52], 104), 0u);
  }
}

TEST_F(DotManagement, LeavesOtherPagesAlone) {
  const std::vector<std::pair<const char*, Page>> pages = {
      {"no such filter", {83, 1, 7, 4800}},
      {"no such filter", {82, 2, 6, 4800}},
      {"no such filter", {109, 2, 9, 4800}},
      {"no such filter", {108, 0, 9}},
      {"not glossy", {53, 1, 7}},
      {"no print mode", {0, 1, 7}},
      {"no planes", {54, 1, 256}},
      {"no resolution", {54, 1, 7, 1200, 0, 0}},
      {"too wide", {54, 1, 7, 4000000000u, 0, 1, 4000000000u}},
      {"too wide for the second expansion", {83, 0, 7, 4800, 0, 600, 920350128}},
  };
  for (const auto& [why, page] : pages) {
    StartPage({54, 1, 7});  // its filter goes with the page start
    StartPage(page);
    BinaryRow row(7, 13);
    ExpectUnchanged(row, std::string(why) + " " + std::to_string(page.descriptor));
  }
  StartPage({54, 1, 7});
  harness_.Push(kEndPageMessage);
  harness_.TakeSent();
  BinaryRow row(7, 13);
  ExpectUnchanged(row, "page end");
}

TEST_F(DotManagement, FiltersWhatJustFitsAndLeavesRowsAloneThatLeadOutsideOfMemory) {
  const Page best = {83, 0, 7, 4800}, second = {109, 0, 9, 4800}, both = {109, 1, 9, 4800};
  const struct {
    const char* why;
    Page page;
    unsigned planes, planeBytes;
    std::function<void(QCMYKBinaryRaster&)> change;
  } cases[] = {
      {"end beyond the plane", best, 7, 26, [](auto& row) { row.EndPixel = 209; }},
      {"end near 32 bits", best, 7, 26, [](auto& row) { row.EndPixel = 0xFFFFFFFF; }},
      {"no data", best, 7, 26, [](auto& row) { row.Data = nullptr; }},
      {"too long for the buffer", best, 7, 27, [](auto&) {}},
      {"too few planes to read", {83, 0, 6, 4800}, 6, 22, [](auto&) {}},
      {"too few planes for the second expansion", {109, 0, 7, 4800}, 7, 26, [](auto&) {}},
      {"a factor halved for 4800", {83, 0, 7, 4800, 0, 1200}, 7, 26, [](auto&) {}},
      {"one plane takes slot 2", {52, 2, 1, 9600, 1200}, 12, 13, [](auto&) {}},
      {"too long for the second expansion", second, 9, 53, [](auto&) {}},
      {"too long for both expansions", both, 9, 27, [](auto&) {}},
      {"more bytes than 16 bits", {52, 1, 6, 1200, 0, 600, 600000}, 6, 75001, [](auto&) {}},
      {"more doubled bytes than 16 bits",
       {109, 1, 9, 4800, 0, 600, 540000},
       9,
       32770,
       [](auto&) {}},
  };
  for (const auto& c : cases) {
    StartPage(c.page);
    BinaryRow row(c.planes, c.planeBytes);
    c.change(row.raster);
    ExpectUnchanged(row, c.why);
  }
  const struct {
    const char* what;
    Page page;
    unsigned planes, planeBytes;
  } fitting[] = {
      {"all of 16 bits", {52, 1, 6, 1200, 0, 600, 540000}, 6, 65537},
      {"all of 16 bits, doubled", {109, 1, 9, 4800, 0, 600, 540000}, 9, 32769},
      {"1200 dpi without halving", {83, 0, 7, 2400, 0, 1200}, 7, 13},
      {"one plane and slot 2", {52, 2, 1, 0, 7200}, 12, 13},
      {"more planes than are read", {52, 1, 9}, 9, 13},
  };
  for (const auto& c : fitting) {
    StartPage(c.page);
    BinaryRow row(c.planes, c.planeBytes);
    const auto sent = Filter(row);
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(sent[0].firstPixel, 2 * row.raster.FirstPixel) << c.what;
    EXPECT_EQ(sent[0].rowBytes, c.page.planes * 2 * c.planeBytes) << c.what;
  }
}

TEST_F(DotManagement, SendsAClearRowWithoutBytes) {
  StartPage({83, 0, 7, 4800});
  BinaryRow row(7, 26);
  for (unsigned char* data : {row.raster.Data, static_cast<unsigned char*>(nullptr)}) {
    row.raster.Data = data;
    row.raster.FirstPixel = 4000000000u;
    const auto sent = Filter(row);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].firstPixel, 3705032704u);  // twice, in 32 bits
    EXPECT_EQ(CountDots(sent[0].data.data(), sent[0].rowBytes), 0u);
  }
  StartPage({109, 0, 9, 4800});  // copies six planes, whatever the span
  row.raster.RowBytes = 9 * 20;
  ExpectUnchanged(row, "no data to copy");
  StartPage({83, 0, 7, 4800});
  row.raster.RowBytes = 7 * 26;

  // The result of a filtered row is the next element's.
  harness_.next.result = 0;
  EXPECT_EQ(harness_.Push(row.raster), 0u);
}

// What the next element does to the message, or has the element do, when it gets the first row.
class Meddling final : public ZCOM::EObject {
 public:
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short) override {
    if (message->MessageKind != kBinaryRasterMessage) return 1;
    rows.push_back(static_cast<QRaster*>(message)->Row);
    if (rows.size() == 1) meddle();
    return 1;
  }
  std::function<void()> meddle;
  std::vector<std::uint32_t> rows;
};

TEST_F(DotManagement, SendsTheSecondRowWhateverTheFirstOneBrings) {
  BinaryRow row(13, 13);
  ZCOM::QObject pageEnd(kEndPageMessage);
  const auto rowsAfter = [&](std::function<void()> meddle) {
    StartPage({54, 2, 7});
    row.raster.Row = 7;
    Meddling next;
    next.meddle = std::move(meddle);
    ZCOM::SINKPAD pad(&next, 0);
    harness_.Element().GetSourcePad(0)->Link(&pad);
    EXPECT_EQ(harness_.Push(row.raster), 1u);
    harness_.Element().GetSourcePad(0)->Link(&harness_.next.pad);
    return next.rows;
  };
  EXPECT_THAT(rowsAfter([&] { row.raster.Row = 500; }), ElementsAre(14, 15));
  // A page that it ends has no second row.
  EXPECT_THAT(rowsAfter([&] { harness_.Element().DataArrived(&pageEnd, 0); }), ElementsAre(14));
}

}  // namespace
}  // namespace corvane
