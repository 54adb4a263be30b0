// SPDX-License-Identifier: MIT
#include "color/color_inline.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <new>

#include "color/decoder.h"
#include "color/points.h"
#include "color/table_lookup.h"
#include "plugin/element_frame.h"

using corvane::ForwardMessage;
using corvane::InkSet;
using corvane::kStandardGroup;
using corvane::PixelLayout;
using corvane::PrintMode;
using corvane::SendError;

namespace {

constexpr const char* kOwnGroup = "EColorInline";
constexpr const char* kRgbFile = "c:\\rgb.raw";

constexpr int kRasterFormatError = 28;
constexpr const char* kNoRasterFormatText = "QStartPage::ZRXRasterFormat property not found";
constexpr const char* kRasterFormatText = "Invalid QStartPage::ZRXRasterFormat value";
constexpr int kAlgorithmError = 44;
constexpr const char* kAlgorithmText = "EColorInline::m_eAlgorithmType not supported";
constexpr int kCreationError = 8;
constexpr const char* kCreationText = "Cannot create Color Object.";

constexpr std::uint32_t kNoInkSet = 0xFFFFFFFF;
constexpr std::int32_t kLastRasterFormat = 7;
constexpr std::uint32_t kContoneRasterFormat = 8;

constexpr std::int32_t kPaperWithOwnTables = 3;       // "PaperCharacteristics"
constexpr std::int32_t kPreferenceWithOwnTables = 1;  // "ColorPreference"
constexpr std::int32_t kPreferenceByIntent = 3;       // the intent decides for the preference too
constexpr std::int32_t kGraphicIntent = 2;            // "PageIntent"
constexpr std::int32_t kLastMediaType = 6;            // from 1
constexpr std::int32_t kLastPrintQuality = 4;         // from 1

// Which index of a table lookup stands for what.
enum TableIndex { kInkSetIndex, kMediaIndex, kPreferenceIndex, kQualityIndex, kIntentIndex };

constexpr std::size_t kDirectoryStart = 4;  // bytes of the file before the directory
constexpr std::uint64_t kLargestFilePosition = 0x7FFFFFFF;
constexpr std::uint32_t kCurveBytes = 256;

// Tags 0 and 1 are graphics, all others photographs.
constexpr int kGraphicTable = 0;
constexpr int kPhotoTable = 1;
constexpr int kFirstPhotoTag = 2;
constexpr int kLastTag = corvane::kTags - 1;

// The record of a row in the RGB dump: the pixels of the converted span, 0xFF elsewhere.
constexpr std::uint32_t kStripPixels = 4800;
constexpr std::size_t kStripRecordBytes = kStripPixels * 3;
unsigned char SaveRgbStrip[15000];

std::int32_t PageInt(const ZCOM::PROPERTIES& page, const char* key) {
  int value = 0;
  page.GetProperty(key, &value, 0, kStandardGroup);
  return value;
}

std::uint32_t PageNumber(const ZCOM::PROPERTIES& page, const char* key) {
  unsigned long value = 0;
  page.GetProperty(key, &value, 0ul, kStandardGroup);
  return static_cast<std::uint32_t>(value);
}

void PublishOffset(QStartPage* page, const char* key, unsigned long offset) {
  char text[16];
  ZCOM::fwsprintf(text, "%d", static_cast<int>(static_cast<std::uint32_t>(offset)));
  page->Properties.SetProperty(key, text, kStandardGroup);
}

void PublishKey(QStartPage* page, unsigned long key) {
  char text[16];
  ZCOM::fwsprintf(text, "0x%08x", static_cast<unsigned>(key));
  page->Properties.SetProperty("CTCompressionKey", text, kStandardGroup);
}

std::uint32_t TableBytes(InkSet set) {
  if (set == InkSet::Black) return kCurveBytes;
  return static_cast<std::uint32_t>(corvane::PlanesOf(set)) * corvane::kCubeBytes;
}

// Output rows per inch; 0 for the modes that print every input row once.
std::uint32_t OutputRowsPerInch(const PrintMode& mode, unsigned short useAlternateModes) {
  if (mode.horizontalDpi == 300) return 0;
  const bool hasCoarseAlternate = mode.descriptor == CcMmYy_1200x1200_8Pass ||
                                  mode.descriptor == CcMmYyK_1200x1200_8Pass ||
                                  mode.descriptor == CcMmYycmK_1200x1200_8Pass;
  return hasCoarseAlternate && useAlternateModes == 2 ? 600 : mode.verticalDpi;
}

// The pixels of the span that lie in the strip go there, whatever the conversion does with them.
template <class View>
void FillStrip(View* view, std::uint32_t first, std::uint32_t end) {
  std::memset(SaveRgbStrip, 0xFF, sizeof SaveRgbStrip);
  if (first >= end) return;
  view->cursor = view->raster->Data + std::size_t{first} * View::kBytesPerPixel;
  for (std::uint32_t x = first; x < std::min(end, kStripPixels); ++x) {
    const corvane::Pixel pixel = view->Next();
    SaveRgbStrip[3 * x] = pixel.red;
    SaveRgbStrip[3 * x + 1] = pixel.green;
    SaveRgbStrip[3 * x + 2] = pixel.blue;
  }
}

// The number of the row that a points member fills: 0 for its first call, counting on from page to
// page and wrapping into the negative numbers. Each member has a counter for the whole library.
std::int32_t NextPointsRow(std::atomic<std::int32_t>& PointsRowCounter) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(PointsRowCounter.fetch_add(1)) + 1);
}

}  // namespace

// ---- Life

EColorInline::EColorInline()
    : m_eAlgorithmType(kNoInkSet),
      converters_(&corvane::ConvertersFor(corvane::SelectedCpuLevel())) {
  Properties.SetProperty("EObjectType", "EColorInline", kStandardGroup);
  Properties.SetProperty("EObjectName", "EColorInline", kStandardGroup);
  ErrorObject.Properties.SetProperty("EObjectName", "EColorInline", kStandardGroup);
}

EColorInline::EColorInline(const EColorInline&) = default;
EColorInline& EColorInline::operator=(const EColorInline&) = default;
EColorInline::~EColorInline() = default;

unsigned long EColorInline::Initialize() {
  unsigned long saveRgb = 0;
  Properties.GetProperty("SaveRgb", &saveRgb, 0ul, kOwnGroup);
  SaveRgb = static_cast<std::uint32_t>(saveRgb);

  char name[32] = "";
  if (Properties.GetProperty("Name", name, sizeof name, nullptr, kStandardGroup) != 0) {
    ErrorObject.Properties.SetProperty("Name", name, kStandardGroup);
  }

  const unsigned long padsMade = corvane::MakePads(*this, &sourcePad_, &sinkPad_);

  char filename[256] = "";
  if (HostProperties != nullptr) {
    HostProperties->GetProperty("ColorTableFilename", filename, sizeof filename, nullptr,
                                kStandardGroup);
  }
  if (ColorTable.SetFilename(filename) == 0) {
    ZCOM::fwfprintf(stderr, "EColorInline::Initialize: Could not open colortable: %s\n", filename);
    return 0;
  }
  return padsMade;
}

// ---- Messages

unsigned long EColorInline::DataArrived(ZCOM::QObject* message, unsigned short) {
  if (message == nullptr) return 1;
  if (message->IsPassThrough() != 0) return ForwardMessage(*this, message);

  switch (message->MessageKind) {
    case kStartPageMessage:
      return StartPage(static_cast<QStartPage*>(message));
    case kRgbRasterMessage:
      return ConvertRow(static_cast<QRaster*>(message));
    case kEndPageMessage:
      ReleasePage();
      break;
    case kEndJobMessage:
      RowBuffer.reset();
      break;
    default:
      break;
  }
  return corvane::PassOn(*this, message);
}

// ---- Page start

unsigned long EColorInline::StartPage(QStartPage* page) {
  ReleasePage();
  ConversionCache.Clear();
  ReadStartPage(*page);
  OpenDiagnosticFiles();

  if (ZRXRasterFormat < 1 || ZRXRasterFormat > kLastRasterFormat) {
    SendError(*this, ErrorObject, kRasterFormatError,
              ZRXRasterFormat == 0 ? kNoRasterFormatText : kRasterFormatText);
    return 0;
  }
  if (!SelectInkSet()) return 0;
  if (LoadTables(page) != Step::Done) return 0;
  if (AllocateRowBuffer() != Step::Done) return 0;
  if (GetNumPix(static_cast<unsigned short>(PageNumber(page->Properties, "UseAlternateModes"))) ==
      0) {
    SendCreationError();
    return 0;
  }

  pageIsReady_ = true;
  return ForwardMessage(*this, page);
}

// Lets go of everything that belongs to one page; the row buffer stays for the next one.
void EColorInline::ReleasePage() {
  pageIsReady_ = false;
  RgbFile.reset();
  PointsBuffer.reset();
  TableDirectory.reset();
  std::fill_n(TablePointers, corvane::kTags, nullptr);
  std::fill_n(interleavedTables_, corvane::kTags, nullptr);
  for (LoadedTable& table : tables_) table = {};
}

void EColorInline::ReadStartPage(const QStartPage& page) {
  ZRXRasterFormat = PageInt(page.Properties, "ZRXRasterFormat");
  PaperCharacteristics = PageInt(page.Properties, "PaperCharacteristics");
  MediaType = PageInt(page.Properties, "MediaType");
  ColorPreference = PageInt(page.Properties, "ColorPreference");
  PageIntent = PageInt(page.Properties, "PageIntent");
  PrintQuality = PageInt(page.Properties, "PrintQuality");
  PrintableWidth = PageNumber(page.Properties, "PrintableWidth");
  VerticalInputResolution = PageNumber(page.Properties, "VerticalInputResolution");
  Points = PageNumber(page.Properties, "Points");
  CMYKBinaryDescriptor = PageInt(page.PageProperties, "CMYKBinaryDescriptor");
}

// Both are made before anything of the page is checked: a dump is empty even after a failed start.
void EColorInline::OpenDiagnosticFiles() {
  if (Points != 0) {
    PointsBuffer.reset(new (std::nothrow) unsigned char[corvane::kPointsBytes]);
    if (PointsBuffer) corvane::ReadPoints(PointsBuffer.get());
  }
  if (SaveRgb != 0) {
    if (const ZCOM::FILEHANDLE file = ZCOM::fwfopen(kRgbFile, "wb")) {
      RgbFile.reset(file, ZCOM::fwfclose);
    }
  }
}

bool EColorInline::SelectInkSet() {
  const PrintMode* const mode = corvane::FindPrintMode(CMYKBinaryDescriptor);
  m_eAlgorithmType = mode == nullptr ? kNoInkSet : static_cast<std::uint32_t>(mode->inkSet);
  if (HasInkSet()) return true;

  ErrorObject.Properties.SetProperty("m_eAlgorithmType",
                                     static_cast<unsigned long>(m_eAlgorithmType), kStandardGroup);
  SendError(*this, ErrorObject, kAlgorithmError, kAlgorithmText);
  SendCreationError();
  return false;
}

void EColorInline::SendCreationError() {
  SendError(*this, ErrorObject, kCreationError, kCreationText);
}

// ---- Page start: colour tables

bool EColorInline::HasTagTables() const { return ZRXRasterFormat == 4 || ZRXRasterFormat == 6; }

EColorInline::Step EColorInline::LoadTables(QStartPage* page) {
  unsigned long directoryBytes = 0;
  Step step = Step::Failed;
  if (ColorTable.GetHeaderSize(&directoryBytes) != 0) {
    step = HasTagTables() ? LoadPhotoAndGraphicTables(page, directoryBytes)
                          : LoadPageTable(page, directoryBytes);
  }
  TableDirectory.reset();
  if (step == Step::Failed) SendCreationError();
  return step;
}

// One table for all tags. A file without a directory holds a single table, as it is used.
EColorInline::Step EColorInline::LoadPageTable(QStartPage* page, unsigned long directoryBytes) {
  LoadedTable& table = tables_[0];
  Step step = Step::Done;
  if (directoryBytes == 0) {
    unsigned char* bytes = nullptr;
    if (ColorTable.GetData(0, 0, &bytes) == 0 || bytes == nullptr) return Step::Failed;
    table.bytes.reset(bytes, ZCOM::MFColorTable::DeleteData);
    if (!Interleave(&table)) return Step::Failed;
  } else {
    unsigned long indices[kIndexCount];
    SelectIndices(indices);
    if (ColorPreference == kPreferenceByIntent) {
      indices[kPreferenceIndex] = PageIntent == kGraphicIntent ? 1 : 0;
    }
    StoredTable stored;
    if (!ReadDirectory(directoryBytes) || !LookUp(indices, &stored)) return Step::Failed;
    PublishOffset(page, "CTOffset", stored.offset);
    step = LoadTable(page, stored, directoryBytes, &table);
  }
  if (step == Step::Done) UseTable(table, 0, kLastTag);
  return step;
}

// A table for photographs and one for graphics. The second one is loaded even when the first one
// has the wrong size, so that both errors are told.
EColorInline::Step EColorInline::LoadPhotoAndGraphicTables(QStartPage* page,
                                                           unsigned long directoryBytes) {
  unsigned long indices[kIndexCount];
  SelectIndices(indices);
  if (directoryBytes == 0 || !ReadDirectory(directoryBytes)) return Step::Failed;

  constexpr const char* kOffsetKeys[] = {"CTOffsetGraphic", "CTOffsetPhoto"};
  StoredTable stored[2];
  for (int which : {kPhotoTable, kGraphicTable}) {
    const unsigned long isGraphic = which == kGraphicTable ? 1 : 0;
    indices[kIntentIndex] = isGraphic;
    if (ColorPreference == kPreferenceByIntent) indices[kPreferenceIndex] = isGraphic;
    if (!LookUp(indices, &stored[which])) return Step::Failed;
    PublishOffset(page, kOffsetKeys[which], stored[which].offset);
  }

  Step result = Step::Done;
  for (int which : {kPhotoTable, kGraphicTable}) {
    const Step step = LoadTable(page, stored[which], directoryBytes, &tables_[which]);
    if (step == Step::Failed) return step;
    if (step == Step::WrongTableSize) result = step;
  }
  if (result == Step::Done) {
    UseTable(tables_[kGraphicTable], 0, kFirstPhotoTag - 1);
    UseTable(tables_[kPhotoTable], kFirstPhotoTag, kLastTag);
  }
  return result;
}

void EColorInline::SelectIndices(unsigned long (&indices)[kIndexCount]) const {
  switch (PageInkSet()) {
    case InkSet::Black:
      indices[kInkSetIndex] = 0;
      break;
    case InkSet::Seven:
      indices[kInkSetIndex] = PaperCharacteristics == kPaperWithOwnTables ? 1 : 2;
      break;
    case InkSet::Nine:
      indices[kInkSetIndex] = 3;
      break;
  }
  indices[kMediaIndex] = static_cast<unsigned long>(MediaType) - 1;
  indices[kPreferenceIndex] = ColorPreference == kPreferenceWithOwnTables ? 1 : 0;
  indices[kQualityIndex] = static_cast<unsigned long>(PrintQuality) - 1;
  indices[kIntentIndex] = PageIntent == kGraphicIntent ? 1 : 0;
}

bool EColorInline::ReadDirectory(unsigned long directoryBytes) {
  if (directoryBytes > kLargestFilePosition) return false;
  unsigned char* directory = nullptr;
  if (ColorTable.GetData(kDirectoryStart, static_cast<long>(directoryBytes), &directory) == 0 ||
      directory == nullptr) {
    return false;
  }
  TableDirectory.reset(directory, ZCOM::MFColorTable::DeleteData);
  return corvane::IsCompleteDirectory(directory, static_cast<std::uint32_t>(directoryBytes));
}

bool EColorInline::LookUp(unsigned long (&indices)[kIndexCount], StoredTable* table) {
  if (MediaType < 1 || MediaType > kLastMediaType) return false;
  if (PrintQuality < 1 || PrintQuality > kLastPrintQuality) return false;
  return ktColorGetTable2(TableDirectory.get(), &table->offset, &table->size, indices,
                          kIndexCount) == 0;
}

unsigned char EColorInline::ktColorGetTable2(unsigned char* directory, unsigned long* offset,
                                             unsigned long* size, unsigned long* indices,
                                             long count) {
  std::uint32_t indices32[kIndexCount];
  if (count != kIndexCount)
    return static_cast<unsigned char>(corvane::LookupResult::WrongIndexCount);
  std::transform(indices, indices + count, indices32,
                 [](unsigned long index) { return static_cast<std::uint32_t>(index); });
  std::uint32_t foundOffset, foundSize;
  const corvane::LookupResult result = corvane::LookUpColorTable(
      directory, indices32, static_cast<std::uint32_t>(count), &foundOffset, &foundSize);
  if (result == corvane::LookupResult::Found) {
    *offset = foundOffset;
    *size = foundSize;
  }
  return static_cast<unsigned char>(result);
}

// Only the black curve may be stored as it is used.
EColorInline::Step EColorInline::LoadTable(QStartPage* page, const StoredTable& table,
                                           unsigned long directoryBytes, LoadedTable* loaded) {
  const std::uint32_t expected = TableBytes(PageInkSet());
  if (table.size > expected) return Step::Failed;
  if (table.size == expected && expected != kCurveBytes) {
    SendError(*this, ErrorObject, kRasterFormatError, kRasterFormatText);
    return Step::WrongTableSize;
  }

  const std::uint64_t position = std::uint64_t{table.offset} + directoryBytes + kDirectoryStart;
  if (position > kLargestFilePosition) return Step::Failed;
  unsigned char* bytes = nullptr;
  if (ColorTable.GetData(static_cast<long>(position), static_cast<long>(table.size),
                         static_cast<long>(expected), &bytes) == 0 ||
      bytes == nullptr) {
    return Step::Failed;
  }
  loaded->bytes.reset(bytes, ZCOM::MFColorTable::DeleteData);

  if (table.size == expected) {
    page->Properties.SetProperty("CTCompression", "OFF", kStandardGroup);
  } else {
    const unsigned long key =
        corvane::DecodeColorTable(bytes, expected, static_cast<long>(table.size));
    page->Properties.SetProperty("CTCompression", "ON", kStandardGroup);
    PublishKey(page, key);
  }
  return Interleave(loaded) ? Step::Done : Step::Failed;
}

// Makes the form for the fast converters, where it is needed.
bool EColorInline::Interleave(LoadedTable* loaded) {
  if (PageInkSet() == InkSet::Black || !converters_->needInterleavedTables) return true;
  std::unique_ptr<corvane::InterleavedTable> table(new (std::nothrow) corvane::InterleavedTable);
  if (!table) return false;
  corvane::Interleave(loaded->bytes.get(), PagePlanes(), *table);
  loaded->interleaved = std::move(table);
  return true;
}

void EColorInline::UseTable(const LoadedTable& loaded, int firstTag, int lastTag) {
  for (int tag = firstTag; tag <= lastTag; ++tag) {
    TablePointers[tag] = loaded.bytes.get();
    interleavedTables_[tag] = loaded.interleaved.get();
  }
}

// ---- Page start: row buffer and repeat count

EColorInline::Step EColorInline::AllocateRowBuffer() {
  OutputRaster.RowBytes = 0;
  if (PrintableWidth == 0) return Step::Done;

  RowBuffer.reset();
  const std::uint64_t bytes = std::uint64_t{PrintableWidth} * PagePlanes();
  if (bytes <= std::numeric_limits<std::uint32_t>::max()) {
    RowBuffer.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(bytes)]());
  }
  if (RowBuffer) return Step::Done;
  SendCreationError();
  return Step::Failed;
}

unsigned long EColorInline::GetNumPix(unsigned short useAlternateModes) {
  const PrintMode* const mode = corvane::FindPrintMode(CMYKBinaryDescriptor);
  if (mode == nullptr) return 0;
  const std::uint32_t outputRows = OutputRowsPerInch(*mode, useAlternateModes);
  if (outputRows == 0) {
    RowRepeatCount = 1;
  } else {
    if (VerticalInputResolution == 0) return 0;
    RowRepeatCount = std::max(outputRows / VerticalInputResolution, std::uint32_t{1});
  }
  return 1;
}

// ---- Rows

unsigned long EColorInline::ConvertRow(QRaster* raster) {
  const bool hasRowBuffer = RowBuffer != nullptr || PrintableWidth == 0;
  if (!pageIsReady_ || !hasRowBuffer) return 0;

  OutputRaster.RasterFormat = kContoneRasterFormat;
  OutputRaster.PassThroughValue = raster->PassThroughValue;
  OutputRaster.FirstPixel = raster->FirstPixel;
  OutputRaster.EndPixel = std::min(raster->EndPixel, PrintableWidth);
  OutputRaster.Row = raster->Row * RowRepeatCount;
  OutputRaster.Width = PrintableWidth;
  OutputRaster.Data = RowBuffer.get();
  ColorConvert(raster, OutputRaster.FirstPixel, OutputRaster.EndPixel);

  unsigned long result = 1;
  for (std::uint32_t i = 0; i < RowRepeatCount; ++i) {
    result = ForwardMessage(*this, &OutputRaster);
    ++OutputRaster.Row;
  }
  return result;
}

bool EColorInline::HasInkSet() const { return m_eAlgorithmType != kNoInkSet; }

InkSet EColorInline::PageInkSet() const { return static_cast<InkSet>(m_eAlgorithmType); }

std::uint32_t EColorInline::PagePlanes() const {
  return static_cast<std::uint32_t>(corvane::PlanesOf(PageInkSet()));
}

void EColorInline::ClearRow() {
  if (RowBuffer) std::memset(RowBuffer.get(), 0, std::size_t{PagePlanes()} * PrintableWidth);
}

void EColorInline::SetRowBytes() { OutputRaster.RowBytes = OutputRaster.Width * PagePlanes(); }

short EColorInline::ColorConvert(QRaster* raster, unsigned long first, unsigned long end) {
  if (!HasInkSet()) return 1;
  if (Points != 0) return ConvertPoints(first, end);
  switch (raster->RasterFormat) {
    case 1:
      return ConvertView<InlineRGBRGBRaster>(raster, first, end);
    case 3:
      return ConvertView<InlineXRGBXRGBRaster>(raster, first, end);
    case 4:
      return ConvertView<InlineRGBMRGBMRaster>(raster, first, end);
    default:
      return 1;
  }
}

template <class View>
short EColorInline::ConvertView(QRaster* raster, unsigned long first, unsigned long end) {
  if (raster->Data == nullptr) end = first;
  View view = {raster, raster->Data};
  ClearRow();
  switch (PageInkSet()) {
    case InkSet::Black:
      ColorConvertK(&view, first, end);
      break;
    case InkSet::Seven:
      ColorConvertCcMmYyK(&view, first, end);
      break;
    case InkSet::Nine:
      ColorConvertCcMmYyKcm(&view, first, end);
      break;
  }
  SetRowBytes();
  return 1;
}

short EColorInline::ConvertPoints(unsigned long first, unsigned long end) {
  ClearRow();
  switch (PageInkSet()) {
    case InkSet::Black:
      ColorConvertKPoints(RowBuffer.get(), first, end);
      break;
    case InkSet::Seven:
      ColorConvertCcMmYyKPoints(RowBuffer.get(), first, end);
      break;
    case InkSet::Nine:
      ColorConvertCcMmYyKcmPoints(RowBuffer.get(), first, end);
      break;
  }
  SetRowBytes();
  return 1;
}

// ---- Conversions

template <class View>
short EColorInline::RunConverter(const corvane::RowConverter* converters, View* view,
                                 unsigned long first, unsigned long end) {
  if (first >= end) return 1;
  converters[static_cast<int>(View::kLayout)](
      {view->raster->Data, static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(end),
       RowBuffer.get(), PrintableWidth, TablePointers, interleavedTables_, &ConversionCache});
  return 1;
}

// The dump gets a record for every row, also for one of which nothing is converted.
template <class View>
short EColorInline::RunInkConverter(const corvane::RowConverter* converters, View* view,
                                    unsigned long first, unsigned long end) {
  if (SaveRgb != 0) {
    FillStrip(view, static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(end));
  }
  RunConverter(converters, view, first, end);
  if (SaveRgb != 0) ZCOM::fwfwrite(SaveRgbStrip, 1, kStripRecordBytes, RgbFile.get());
  return 1;
}

short EColorInline::ColorConvertK(InlineRGBRGBRaster* view, unsigned long first,
                                  unsigned long end) {
  return RunConverter(converters_->black, view, first, end);
}

short EColorInline::ColorConvertK(InlineXRGBXRGBRaster* view, unsigned long first,
                                  unsigned long end) {
  return RunConverter(converters_->black, view, first, end);
}

short EColorInline::ColorConvertK(InlineRGBMRGBMRaster* view, unsigned long first,
                                  unsigned long end) {
  return RunConverter(converters_->black, view, first, end);
}

short EColorInline::ColorConvertCcMmYyK(InlineRGBRGBRaster* view, unsigned long first,
                                        unsigned long end) {
  return RunInkConverter(converters_->sevenInks, view, first, end);
}

short EColorInline::ColorConvertCcMmYyK(InlineXRGBXRGBRaster* view, unsigned long first,
                                        unsigned long end) {
  return RunInkConverter(converters_->sevenInks, view, first, end);
}

short EColorInline::ColorConvertCcMmYyK(InlineRGBMRGBMRaster* view, unsigned long first,
                                        unsigned long end) {
  return RunInkConverter(converters_->sevenInks, view, first, end);
}

short EColorInline::ColorConvertCcMmYyKcm(InlineRGBRGBRaster* view, unsigned long first,
                                          unsigned long end) {
  return RunInkConverter(converters_->nineInks, view, first, end);
}

short EColorInline::ColorConvertCcMmYyKcm(InlineXRGBXRGBRaster* view, unsigned long first,
                                          unsigned long end) {
  return RunInkConverter(converters_->nineInks, view, first, end);
}

short EColorInline::ColorConvertCcMmYyKcm(InlineRGBMRGBMRaster* view, unsigned long first,
                                          unsigned long end) {
  return RunInkConverter(converters_->nineInks, view, first, end);
}

// ---- Points diagnostic

short EColorInline::ColorConvertKPoints(unsigned char* rowBuffer, unsigned long first,
                                        unsigned long end) {
  constexpr int kAmount = 3;
  if (first < end) std::memset(rowBuffer + first, kAmount, end - first);
  return 1;
}

short EColorInline::ColorConvertCcMmYyKPoints(unsigned char* rowBuffer, unsigned long first,
                                              unsigned long end) {
  static std::atomic<std::int32_t> PointsRowCounter{-1};
  corvane::FillPointsRow(PointsBuffer.get(), NextPointsRow(PointsRowCounter), 7, rowBuffer,
                         PrintableWidth, static_cast<std::uint32_t>(first),
                         static_cast<std::uint32_t>(end));
  return 1;
}

short EColorInline::ColorConvertCcMmYyKcmPoints(unsigned char* rowBuffer, unsigned long first,
                                                unsigned long end) {
  static std::atomic<std::int32_t> PointsRowCounter{-1};
  corvane::FillPointsRow(PointsBuffer.get(), NextPointsRow(PointsRowCounter), 9, rowBuffer,
                         PrintableWidth, static_cast<std::uint32_t>(first),
                         static_cast<std::uint32_t>(end));
  return 1;
}
