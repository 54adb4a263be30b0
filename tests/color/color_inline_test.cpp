// SPDX-License-Identifier: MIT
#include "color/color_inline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "color/table/decoder.h"
#include "tests/color/table/coded_table.h"
#include "tests/harness/element_harness.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using namespace harness;
using namespace testing;

constexpr const char* kStandard = "Standard";
constexpr int kBlack = 8, kSevenInks = 83, kNineInks = 109;

// Rows of zeros behind a first row of `white`, in as many cubes as there are planes.
ByteVector InkTable(unsigned planes, unsigned char white) {
  ByteVector codes = {0x01, white};
  unsigned rows = planes * kCubeRows - 1;
  for (; rows > 256; rows -= 256) Append(codes, {0x0C, 255});
  Append(codes, {0x0C, static_cast<unsigned char>(rows - 1)});
  ByteVector decoded(planes * kCubeBytes);
  std::fill_n(decoded.begin(), kCubeEdge, white);
  return CodedTable(ChecksumOf(decoded), ByteVector(planes), codes);
}

void AppendNumber(ByteVector& bytes, std::size_t number) {
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<unsigned char>(number >> 8 * i));
}

// A colour-table file with extents (4, 6, 2, 4, 2). The table of a tuple gives white paper the
// amount of the tuple's `White`; `replace` puts another stored form in the place of one.
class TableFile {
 public:
  static constexpr std::size_t kTables = 4 * 6 * 2 * 4 * 2;

  static std::size_t NumberOf(const std::vector<int>& indices) {
    constexpr int kExtents[] = {4, 6, 2, 4, 2};
    std::size_t number = 0;
    for (int i = 0; i < 5; ++i) number = number * kExtents[i] + indices[i];
    return number;
  }
  static unsigned char White(std::size_t number) { return static_cast<unsigned char>(number * 7); }

  TableFile() {
    for (std::size_t number = 0; number < kTables; ++number) {
      const std::size_t inkSet = number / 96;
      if (inkSet == 0) {
        tables_.emplace_back(256, White(number));
      } else {
        tables_.push_back(InkTable(inkSet == 3 ? 9 : 7, White(number)));
      }
    }
  }

  void Replace(const std::vector<int>& indices, ByteVector table) {
    tables_[NumberOf(indices)] = std::move(table);
  }

  std::size_t OffsetOf(std::size_t number) const {
    std::size_t offset = 10;
    for (std::size_t i = 0; i < number; ++i) offset += tables_[i].size();
    return offset;
  }

  ByteVector Bytes() const {
    ByteVector directory;
    for (std::size_t number : {5, 4, 6, 2, 4, 2}) AppendNumber(directory, number);
    for (std::size_t i = 0; i < kTables; ++i) AppendNumber(directory, OffsetOf(i));
    for (const ByteVector& table : tables_) AppendNumber(directory, table.size());
    ByteVector bytes;
    AppendNumber(bytes, directory.size());
    Append(bytes, directory);
    Append(bytes, ByteVector(10, 0xEE));  // in front of the first table
    for (const ByteVector& table : tables_) Append(bytes, table);
    return bytes;
  }

 private:
  std::vector<ByteVector> tables_;
};

// The settings of a page start; what a test does not say is a page of mode 83 that can be printed.
struct Settings {
  int format = 1, descriptor = kSevenInks, paper = 0, media = 1, preference = 0, intent = 0,
      quality = 1, width = 4, verticalResolution = 1200, alternateModes = 0, points = 0;
};

QStartPage StartPage(const Settings& s) {
  QStartPage page;
  const std::pair<const char*, int> numbers[] = {{"ZRXRasterFormat", s.format},
                                                 {"PaperCharacteristics", s.paper},
                                                 {"MediaType", s.media},
                                                 {"ColorPreference", s.preference},
                                                 {"PageIntent", s.intent},
                                                 {"PrintQuality", s.quality},
                                                 {"PrintableWidth", s.width},
                                                 {"VerticalInputResolution", s.verticalResolution},
                                                 {"UseAlternateModes", s.alternateModes},
                                                 {"Points", s.points}};
  for (const auto& [key, value] : numbers) page.Properties.SetProperty(key, value, kStandard);
  page.PageProperties.SetProperty("CMYKBinaryDescriptor", s.descriptor, kStandard);
  return page;
}

// A row that lives as long as its message.
struct Row {
  explicit Row(ByteVector pixels, std::uint32_t layout = 1, std::uint32_t end = 4)
      : bytes(std::move(pixels)) {
    raster.MessageKind = kRgbRasterMessage;
    raster.RasterFormat = layout;
    raster.EndPixel = end;
    raster.Data = bytes.data();
  }

  ByteVector bytes;
  QRaster raster;
};

Row WhiteRow() { return Row(ByteVector(4 * 3, 255)); }

using Error = std::pair<long, std::string>;

const Error kNoFormat{28, "QStartPage::ZRXRasterFormat property not found"};
const Error kBadFormat{28, "Invalid QStartPage::ZRXRasterFormat value"};
const Error kNoInkSet{44, "EColorInline::m_eAlgorithmType not supported"};
const Error kNoObject{8, "Cannot create Color Object."};

class ColorElement : public testing::Test {
 protected:
  std::string Write(const char* name, const ByteVector& bytes) const {
    return folder_.Write(name, std::string(bytes.begin(), bytes.end()));
  }

  ByteVector SavedRows() const {
    const std::string bytes = folder_.Read("rgb.raw");
    return ByteVector(bytes.begin(), bytes.end());
  }

  void Start(const ByteVector& tableFile) {
    harness_.host.SetProperty("ColorTableFilename", Write("tables", tableFile).c_str(), kStandard);
    ASSERT_EQ(harness_.Start(), 1u);
  }

  unsigned long Begin(const Settings& settings) {
    QStartPage page = StartPage(settings);
    return harness_.Push(page);
  }

  // The errors that a page start sends; it must be refused if there are any and go on if not.
  std::vector<Error> ErrorsOf(const Settings& settings) {
    const unsigned long result = Begin(settings);
    std::vector<Error> errors;
    bool passedOn = false;
    for (const SentMessage& sent : harness_.TakeSent()) {
      if (sent.kind == kErrorMessage) {
        errors.emplace_back(NumberOf(sent.properties, "ErrorID"),
                            TextOf(sent.properties, "ErrorString"));
        EXPECT_EQ(TextOf(sent.properties, "EObjectName"), "EColorInline");
      }
      passedOn |= sent.kind == kStartPageMessage;
    }
    EXPECT_EQ(result != 0, errors.empty());
    EXPECT_EQ(passedOn, errors.empty());
    return errors;
  }

  // The one row that a raster gives.
  SentMessage Convert(Row row) {
    harness_.TakeSent();
    EXPECT_EQ(harness_.Push(row.raster), 1u);
    std::vector<SentMessage> sent = harness_.TakeSent();
    EXPECT_THAT(sent, SizeIs(1));
    return sent.empty() ? SentMessage() : sent[0];
  }

  DiagnosticsFolder folder_;
  ElementHarness harness_{new EColorInline};
};

TEST_F(ColorElement, NamesTheTableFileThatCannotBeOpened) {
  harness_.Element().Properties.SetProperty("Name", "color-1", kStandard);
  harness_.host.SetProperty("ColorTableFilename", "/no/such/file", kStandard);
  testing::internal::CaptureStderr();
  EXPECT_EQ(harness_.Start(), 0u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "EColorInline::Initialize: Could not open colortable: /no/such/file\n");

  // The pads are there all the same, and a page fails with an error that carries the name.
  EXPECT_EQ(Begin({}), 0u);
  const std::vector<SentMessage> sent = harness_.TakeSent();
  ASSERT_THAT(sent, SizeIs(1));
  EXPECT_EQ(TextOf(sent[0].properties, "Name"), "color-1");
  EXPECT_EQ(NumberOf(sent[0].properties, "ErrorID"), 8);
}

TEST_F(ColorElement, RefusesPagesThatCannotBePrinted) {
  TableFile file;
  // Media 2: tables of the wrong size, by intent. Media 3: one that is too large, behind one that
  // is just wrong. Media 4: too large first. Media 5: a table beyond the file's end.
  const ByteVector wrong(7 * kCubeBytes, 1), large(7 * kCubeBytes + 1, 1);
  file.Replace({2, 1, 0, 0, 0}, wrong);
  file.Replace({2, 1, 0, 0, 1}, wrong);
  file.Replace({2, 2, 0, 0, 0}, wrong);
  file.Replace({2, 2, 0, 0, 1}, large);
  file.Replace({2, 3, 0, 0, 0}, large);
  file.Replace({2, 3, 0, 0, 1}, wrong);
  Start(file.Bytes());

  const std::pair<Settings, std::vector<Error>> cases[] = {
      {{}, {}},
      {{.format = 0}, {kNoFormat}},
      {{.format = 0, .descriptor = 0}, {kNoFormat}},
      {{.format = 8}, {kBadFormat}},
      {{.format = -1}, {kBadFormat}},
      {{.descriptor = 0}, {kNoInkSet, kNoObject}},
      {{.descriptor = 13, .media = 0, .width = 0}, {kNoInkSet, kNoObject}},
      {{.media = 0}, {kNoObject}},
      {{.media = 7}, {kNoObject}},
      {{.format = 4, .quality = 0}, {kNoObject}},
      {{.quality = 5}, {kNoObject}},
      {{.verticalResolution = 0}, {kNoObject}},
      {{.descriptor = 6, .verticalResolution = 0}, {}},
      {{.width = -1}, {kNoObject}},
      {{.width = 0}, {}},
      {{.media = 2}, {kBadFormat}},
      {{.format = 4, .media = 2}, {kBadFormat, kBadFormat}},
      {{.format = 6, .media = 3}, {kBadFormat, kNoObject}},
      {{.format = 4, .media = 4}, {kNoObject}},
  };
  for (const auto& [settings, errors] : cases) {
    EXPECT_EQ(ErrorsOf(settings), errors)
        << "format " << settings.format << " mode " << settings.descriptor << " media "
        << settings.media << " width " << settings.width;
    // No row of a refused page leaves the element.
    if (!errors.empty()) {
      Row row = WhiteRow();
      EXPECT_EQ(harness_.Push(row.raster), 0u);
      EXPECT_THAT(harness_.TakeSent(), IsEmpty());
    }
  }

  // The ink set that was refused once stays on the error object.
  Begin({.format = 0});
  EXPECT_EQ(static_cast<std::uint32_t>(
                NumberOf(harness_.TakeSent()[0].properties, "m_eAlgorithmType", -2)),
            0xFFFFFFFFu);
}

TEST_F(ColorElement, RefusesDamagedTableFiles) {
  const ByteVector whole = TableFile().Bytes();
  const auto changed = [&](std::size_t at, std::size_t number) {
    ByteVector bytes = whole, four;
    AppendNumber(four, number);
    std::copy(four.begin(), four.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    return bytes;
  };
  const std::size_t table = TableFile::NumberOf({2, 0, 0, 0, 0});
  const std::pair<const char*, ByteVector> files[] = {
      {"empty", {}},
      {"directory beyond the file", changed(0, whole.size())},
      {"directory too short for its tables", changed(0, 2000)},
      {"four indices", changed(4, 4)},
      {"more indices than memory", changed(4, 0xFFFFFFFF)},
      {"extents that wrap", changed(8, 0x40000000)},
      {"ink set missing", changed(8, 2)},
      {"offset beyond the file", changed(28 + 4 * table, 0xFFFFFF00)},
      {"offset at the file's end", changed(28 + 4 * table, whole.size() - 3100)},
      {"table cut", ByteVector(whole.begin(), whole.begin() + 5000)},
  };
  for (const auto& [what, bytes] : files) {
    Start(bytes);
    EXPECT_THAT(ErrorsOf({}), ElementsAre(kNoObject)) << what;
    EXPECT_THAT(ErrorsOf({.format = 4}), ElementsAre(kNoObject)) << what;
  }

#if defined(__linux__)  // where a file may have holes
  // A table beyond what a signed number of 32 bits counts.
  constexpr std::uintmax_t kFar = 0x80001000;
  const std::size_t curve = TableFile::NumberOf({0, 0, 0, 0, 0});
  Start(changed(28 + 4 * curve, kFar - 4 - 3096));
  std::filesystem::resize_file(folder_.File("tables"), kFar + 256);
  EXPECT_THAT(ErrorsOf({.descriptor = 5}), IsEmpty());
  EXPECT_EQ(Convert(WhiteRow()).data[0], 0);
  std::filesystem::resize_file(folder_.File("tables"), kFar + 255);
  EXPECT_THAT(ErrorsOf({.descriptor = 5}), ElementsAre(kNoObject));
#endif

  // One table and no directory: good for one table a page alone.
  ByteVector single(4 + kCubeBytes);
  single[4] = 99;
  Start(single);
  EXPECT_THAT(ErrorsOf({.format = 4}), ElementsAre(kNoObject));
  QStartPage page = StartPage({.media = 0});
  EXPECT_EQ(harness_.Push(page), 1u);
  EXPECT_EQ(TextOf(page.Properties, "CTOffset") + TextOf(page.Properties, "CTCompression"), "");
  EXPECT_EQ(Convert(WhiteRow()).data[0], 99);
}

TEST_F(ColorElement, ChoosesTablesByTheSettings) {
  const struct {
    Settings settings;
    std::vector<int> indices;  // of the page's table, or of the graphic one
    std::vector<int> photoIndices = {};
  } cases[] = {
      {{.descriptor = 6, .paper = 3}, {1, 0, 0, 0, 0}},
      {{.descriptor = 6, .paper = 2}, {2, 0, 0, 0, 0}},
      {{.descriptor = 6, .media = 2, .preference = 1, .intent = 2, .quality = 3}, {2, 1, 1, 2, 1}},
      {{.descriptor = 6, .media = 2, .preference = 3, .intent = 2, .quality = 3}, {2, 1, 1, 2, 1}},
      {{.descriptor = 6, .media = 2, .preference = 3, .intent = 1, .quality = 3}, {2, 1, 0, 2, 0}},
      {{.descriptor = 6, .media = 2, .preference = 2, .intent = 2, .quality = 3}, {2, 1, 0, 2, 1}},
      {{.format = 7, .descriptor = kNineInks, .paper = 3, .media = 6, .quality = 4},
       {3, 5, 0, 3, 0}},
      {{.descriptor = kBlack, .paper = 3, .media = 3}, {0, 2, 0, 0, 0}},
      {{.format = 4, .preference = 3}, {2, 0, 1, 0, 1}, {2, 0, 0, 0, 0}},
      {{.format = 6, .preference = 1, .intent = 2}, {2, 0, 1, 0, 1}, {2, 0, 1, 0, 0}},
      {{.format = 4, .preference = 2}, {2, 0, 0, 0, 1}, {2, 0, 0, 0, 0}},
      {{.format = 4, .descriptor = kNineInks}, {3, 0, 0, 0, 1}, {3, 0, 0, 0, 0}},
      {{.format = 6, .descriptor = kBlack}, {0, 0, 0, 0, 1}, {0, 0, 0, 0, 0}},
  };
  const TableFile file;
  Start(file.Bytes());
  for (const auto& c : cases) {
    QStartPage page = StartPage(c.settings);
    // Every mode here prints a row once or twice: the first output row is looked at.
    EXPECT_EQ(harness_.Push(page), 1u);
    const std::size_t table = TableFile::NumberOf(c.indices);
    const std::string offset = std::to_string(file.OffsetOf(table));
    std::size_t photo = table;
    if (c.photoIndices.empty()) {
      EXPECT_EQ(TextOf(page.Properties, "CTOffset"), offset);
    } else {
      photo = TableFile::NumberOf(c.photoIndices);
      EXPECT_EQ(TextOf(page.Properties, "CTOffsetGraphic"), offset);
      EXPECT_EQ(TextOf(page.Properties, "CTOffsetPhoto"), std::to_string(file.OffsetOf(photo)));
    }

    // White with the tags 0, 1, 2 and 255: the first two are graphics. Without tags all are.
    const auto planeC = [&](Row row) {
      harness_.TakeSent();
      harness_.Push(row.raster);
      const ByteVector planes = harness_.TakeSent()[0].data;
      return ByteVector(planes.begin(), planes.begin() + 4);
    };
    const unsigned char graphicWhite = TableFile::White(table);
    const unsigned char photoWhite = TableFile::White(photo);
    const ByteVector tagged = {255, 255, 255, 0, 255, 255, 255, 1,
                               255, 255, 255, 2, 255, 255, 255, 255};
    EXPECT_THAT(planeC(Row(tagged, 4)),
                ElementsAre(graphicWhite, graphicWhite, photoWhite, photoWhite));
    EXPECT_THAT(planeC(WhiteRow()), Each(graphicWhite));
  }
}

TEST_F(ColorElement, PublishesHowTheTableWasStored) {
  TableFile file;
  file.Replace({0, 1, 0, 0, 0}, ByteVector(128, 0x11));
  ByteVector damaged = InkTable(7, 3);
  damaged[0] ^= 1;
  file.Replace({2, 1, 0, 0, 0}, damaged);
  file.Replace({2, 2, 0, 0, 0}, ByteVector(256, 5));
  Start(file.Bytes());

  ByteVector decoded(7 * kCubeBytes);
  std::fill_n(decoded.begin(), kCubeEdge, TableFile::White(TableFile::NumberOf({2, 0, 0, 0, 0})));
  char key[16];
  std::snprintf(key, sizeof key, "0x%08x", static_cast<unsigned>(ChecksumOf(decoded)));
  const struct {
    Settings settings;
    std::string compression, key;
  } cases[] = {
      {{}, "ON", key},
      {{.media = 2}, "ON", "0x00000000"},
      {{.media = 3}, "ON", "0x00000000"},
      {{.descriptor = kBlack}, "OFF", ""},
      {{.descriptor = kBlack, .media = 2}, "ON", "0x00000000"},
  };
  for (const auto& c : cases) {
    QStartPage page = StartPage(c.settings);
    EXPECT_EQ(harness_.Push(page), 1u);
    EXPECT_EQ(TextOf(page.Properties, "CTCompression"), c.compression);
    EXPECT_EQ(TextOf(page.Properties, "CTCompressionKey"), c.key);
  }

  // The 4-bit form: 1, 2, 3 and so on, modulo 256.
  EXPECT_EQ(Convert(Row(ByteVector(4 * 3, 253), 1)).data, ByteVector(4, 3));
}

TEST_F(ColorElement, SendsEachRowAsOftenAsThePrintModeNeeds) {
  const struct {
    int descriptor, alternateModes, resolution;
    std::uint32_t rows;
  } cases[] = {
      {5, 0, 1, 1},    {6, 0, 1, 1},     {7, 2, 100, 1},   {104, 0, 0, 1},   {8, 0, 300, 2},
      {12, 2, 300, 2}, {14, 0, 600, 1},  {20, 0, 601, 1},  {33, 2, 200, 3},  {34, 0, 599, 1},
      {41, 0, 300, 2}, {106, 2, 150, 4}, {111, 0, 300, 2}, {48, 2, 600, 2},  {53, 2, 600, 2},
      {79, 2, 600, 2}, {82, 2, 300, 4},  {83, 2, 400, 3},  {109, 2, 600, 2}, {52, 0, 600, 2},
      {52, 2, 600, 1}, {54, 1, 600, 2},  {54, 2, 300, 2},  {108, 0, 601, 1}, {108, 2, 300, 2},
  };
  Start(TableFile().Bytes());
  for (const auto& c : cases) {
    ASSERT_EQ(Begin({.descriptor = c.descriptor,
                     .verticalResolution = c.resolution,
                     .alternateModes = c.alternateModes}),
              1u);
    harness_.TakeSent();
    Row row = WhiteRow();
    row.raster.Row = 10;
    row.raster.PassThroughValue = 0xABCD;
    EXPECT_EQ(harness_.Push(row.raster), 1u);
    const std::vector<SentMessage> sent = harness_.TakeSent();
    ASSERT_THAT(sent, SizeIs(c.rows)) << "mode " << c.descriptor;
    for (std::uint32_t i = 0; i < c.rows; ++i) {
      EXPECT_THAT((std::vector{std::uint32_t{sent[i].kind}, sent[i].rasterFormat, sent[i].row,
                               sent[i].passThroughValue, sent[i].width}),
                  ElementsAre(kContoneRasterMessage, 8, 10 * c.rows + i, 0xABCD, 4));
      EXPECT_EQ(sent[i].data, sent[0].data);
    }
  }

  // All repetitions go out whatever the next element says; the last answer counts.
  ASSERT_EQ(Begin({.verticalResolution = 300}), 1u);
  harness_.TakeSent();
  harness_.next.result = 0;
  Row row = WhiteRow();
  EXPECT_EQ(harness_.Push(row.raster), 0u);
  EXPECT_THAT(harness_.TakeSent(), SizeIs(4));
}

TEST_F(ColorElement, ConvertsTheSpanAndClearsTheRest) {
  const auto white = TableFile::White(TableFile::NumberOf({2, 0, 0, 0, 0}));
  Start(TableFile().Bytes());
  ASSERT_EQ(Begin({}), 1u);

  // Before the first row that is converted nothing is known of the row buffer.
  SentMessage sent = Convert(Row(ByteVector(64, 255), 2));
  EXPECT_EQ(sent.rowBytes, 0u);

  Row part(ByteVector(3 * 9, 255), 1, 9);
  part.raster.FirstPixel = 1;
  sent = Convert(part);
  EXPECT_EQ(sent.firstPixel, 1u);
  EXPECT_EQ(sent.endPixel, 4u);  // clipped to the page
  EXPECT_EQ(sent.rowBytes, 28u);
  ByteVector expected(28);
  std::fill_n(expected.begin() + 1, 3, white);
  EXPECT_EQ(sent.data, expected);

  // An unknown layout sends the row before once more.
  EXPECT_EQ(Convert(Row(ByteVector(64, 0), 2)).data, expected);

  Row none(ByteVector(3 * 9, 255), 1, 3);
  none.raster.FirstPixel = 7;
  sent = Convert(none);
  EXPECT_EQ(std::pair(sent.firstPixel, sent.endPixel), (std::pair{7u, 3u}));
  EXPECT_EQ(sent.data, ByteVector(28));

  // X, R, G, B: only X differs from black.
  sent = Convert(Row({255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0}, 3));
  EXPECT_EQ(sent.data, ByteVector(28));

  // Nine planes, and the colours of one page do not show on the next.
  ASSERT_EQ(Begin({.descriptor = kNineInks}), 1u);
  sent = Convert(WhiteRow());
  EXPECT_THAT(sent.data, SizeIs(36));
  EXPECT_EQ(sent.data[0], TableFile::White(TableFile::NumberOf({3, 0, 0, 0, 0})));
  ASSERT_EQ(Begin({.media = 2}), 1u);
  EXPECT_EQ(Convert(WhiteRow()).data[0], TableFile::White(TableFile::NumberOf({2, 1, 0, 0, 0})));
}

TEST_F(ColorElement, KeepsNothingBeyondItsTime) {
  Start(TableFile().Bytes());
  Row row = WhiteRow();
  const auto refused = [&] {
    harness_.TakeSent();
    return harness_.Push(row.raster) == 0 && harness_.TakeSent().empty();
  };
  EXPECT_TRUE(refused());
  ASSERT_EQ(Begin({}), 1u);
  ASSERT_EQ(Begin({.descriptor = kNineInks}), 1u);  // the page before has no end
  EXPECT_FALSE(refused());
  EXPECT_EQ(harness_.Push(kEndPageMessage), 1u);
  EXPECT_EQ(harness_.Push(kEndPageMessage), 1u);
  EXPECT_TRUE(refused());

  ASSERT_EQ(Begin({}), 1u);
  EXPECT_EQ(harness_.Push(kEndJobMessage), 1u);
  EXPECT_TRUE(refused());
  // A page without width needs no row buffer.
  ASSERT_EQ(Begin({.width = 0}), 1u);
  EXPECT_EQ(harness_.Push(kEndJobMessage), 1u);
  EXPECT_FALSE(refused());

  ASSERT_EQ(Begin({}), 1u);  // open when the element is destroyed
}

// A copy has the page for itself: it converts alike when the original has ended it, and only the
// original writes the dump.
TEST_F(ColorElement, ItsCopiesGoOnWithThePage) {
  harness_.Element().Properties.SetProperty("SaveRgb", 1, "EColorInline");
  Start(TableFile().Bytes());
  for (const Settings& page :
       {Settings{}, Settings{.descriptor = kNineInks}, Settings{.descriptor = kBlack},
        Settings{.descriptor = kBlack, .points = 1}, Settings{.format = 4}}) {
    ASSERT_EQ(Begin(page), 1u);
    Row row(ByteVector{9, 80, 200, 7, 66, 6}, page.format == 4 ? 4 : 1, 1);
    ASSERT_EQ(harness_.Push(row.raster), 1u);
    harness_.TakeSent();
    const auto& original = static_cast<EColorInline&>(harness_.Element());
    auto copy = std::make_unique<EColorInline>(original);
    EColorInline assigned;
    assigned = *copy;
    EXPECT_EQ(copy->GetSourcePad(0)->Owner, copy.get());
    copy.reset();
    ASSERT_EQ(harness_.Push(row.raster), 1u);
    const auto expected = harness_.TakeSent();
    EXPECT_EQ(harness_.Push(kEndPageMessage), 1u);
    const std::size_t saved = SavedRows().size();
    harness_.TakeSent();
    EXPECT_EQ(assigned.DataArrived(&row.raster, 0), 1u);
    const auto sent = harness_.TakeSent();
    ASSERT_EQ(sent.size(), expected.size());
    EXPECT_EQ(sent[0].data, expected[0].data);
    EXPECT_EQ(SavedRows().size(), saved);
  }
}

TEST_F(ColorElement, DumpsTheRowsOfInkPages) {
  harness_.Element().Properties.SetProperty("SaveRgb", 1, "EColorInline");
  Start(TableFile().Bytes());
  constexpr std::size_t kRecord = 14400;

  // A row wider than the strip, a part of it, and one that converts nothing; a row of an unknown
  // layout leaves no record.
  constexpr std::uint32_t kWidth = 5000;
  ByteVector pixels(3 * kWidth);
  for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(i * 31);
  ASSERT_EQ(Begin({.width = kWidth}), 1u);
  Convert(Row(pixels, 1, kWidth));
  Row part(ByteVector{9, 1, 2, 3, 9, 4, 5, 6, 9, 7, 8, 9}, 3, 3);
  part.raster.FirstPixel = 1;
  Convert(part);
  Convert(Row(pixels, 1, 0));
  Convert(Row(pixels, 2, kWidth));
  harness_.Push(kEndPageMessage);

  ByteVector expected(pixels.begin(), pixels.begin() + kRecord);
  expected.resize(3 * kRecord, 0xFF);
  std::iota(&expected[kRecord + 3], &expected[kRecord + 9], static_cast<unsigned char>(4));
  EXPECT_EQ(SavedRows(), expected);

  // Black and points pages write nothing; every page start empties the file, also one that fails.
  for (const Settings& settings :
       {Settings{.descriptor = kBlack, .verticalResolution = 600},
        Settings{.descriptor = kBlack, .verticalResolution = 600, .points = 1}}) {
    ASSERT_EQ(Begin(settings), 1u);
    Convert(WhiteRow());
    harness_.Push(kEndPageMessage);
    EXPECT_THAT(SavedRows(), IsEmpty());
  }
  ASSERT_EQ(Begin({}), 1u);
  Convert(WhiteRow());
  harness_.Push(kEndPageMessage);
  EXPECT_THAT(SavedRows(), SizeIs(kRecord));
  EXPECT_EQ(Begin({.format = 0}), 0u);
  EXPECT_THAT(SavedRows(), IsEmpty());
  harness_.Push(kEndPageMessage);  // closes it; elsewhere an open file cannot be removed
}

// The counters of the chart's rows run on for the whole library, so one test has them all.
TEST_F(ColorElement, PrintsTheChartOfPoints) {
  ByteVector points(256 * 9);
  for (std::size_t i = 0; i < points.size(); ++i)
    points[i] = static_cast<unsigned char>(i * 13 + 1);
  Write("points.bin", points);
  Start(TableFile().Bytes());

  constexpr std::uint32_t kWidth = 4900;
  const auto pageOf = [](int descriptor) {
    return Settings{.descriptor = descriptor, .width = kWidth, .points = 1};
  };
  const auto record = [&](std::size_t patch, std::size_t plane) {
    return points[9 * patch + plane];
  };
  // The layout is not read, nor are the pixels.
  Row row({}, 99, kWidth);
  row.raster.Data = nullptr;

  std::uint32_t number = 0;
  for (const auto& [descriptor, planes] : {std::pair{kSevenInks, 7u}, std::pair{kNineInks, 9u}}) {
    number = 0;
    ASSERT_EQ(Begin(pageOf(descriptor)), 1u);
    for (; number < 302; ++number) {
      const SentMessage sent = Convert(row);
      ASSERT_EQ(sent.rowBytes, planes * kWidth);
      const std::size_t patchRow = number / 300;
      for (std::size_t k = 0; k < planes; ++k) {
        const auto at = [&](std::size_t x) { return sent.data[k * kWidth + x]; };
        ASSERT_EQ(at(0), record(16 * patchRow, k));
        ASSERT_EQ(at(299), record(16 * patchRow, k));
        ASSERT_EQ(at(300), record(16 * patchRow + 1, k));
        ASSERT_EQ(at(4799), record(16 * patchRow + 15, k));
        ASSERT_EQ(at(4800), 0);
      }
    }
    harness_.Push(kEndPageMessage);
  }

  // The next page goes on where this one ended, here within a span; behind row 4799 nothing
  // follows.
  std::filesystem::resize_file(folder_.File("points.bin"), 9 * 17);
  ASSERT_EQ(Begin(pageOf(kSevenInks)), 1u);
  Row span = row;
  span.raster.FirstPixel = 290;
  span.raster.EndPixel = 310;
  SentMessage sent = Convert(span);
  EXPECT_EQ(sent.data[289], 0);
  EXPECT_EQ(sent.data[290], record(16, 0));
  EXPECT_EQ(sent.data[300], 0);  // the short file gave no record 17
  for (number = 303; number < 4799; ++number) harness_.Push(row.raster);
  harness_.Push(kEndPageMessage);
  Write("points.bin", points);
  ASSERT_EQ(Begin(pageOf(kSevenInks)), 1u);
  EXPECT_EQ(Convert(row).data[0], record(15 * 16, 0));
  EXPECT_THAT(Convert(row).data, Each(0));

  ASSERT_EQ(Begin(pageOf(kBlack)), 1u);
  harness_.TakeSent();
  harness_.Push(span.raster);
  ByteVector expected(kWidth);
  std::fill_n(expected.begin() + 290, 20, 3);
  EXPECT_EQ(harness_.TakeSent()[0].data, expected);
}

}  // namespace
}  // namespace corvane
