// SPDX-License-Identifier: MIT
//
// The element's life, its messages and the frame of its page set-up. Its tables are loaded in
// color_inline_tables.cpp, its rows converted in color_inline_rows.cpp.

#include "color/color_inline.h"

#include <algorithm>
#include <limits>
#include <new>

#include "color/points.h"
#include "plugin/element_frame.h"

using corvane::ForwardMessage;
using corvane::kStandardGroup;
using corvane::PageInt;
using corvane::PageNumber;
using corvane::PageNumber16;
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

constexpr std::int32_t kLastRasterFormat = 7;
constexpr std::uint32_t kContoneRasterFormat = 8;

}  // namespace

// ---- Life

EColorInline::EColorInline() {
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
    SendRasterFormatError();
    return 0;
  }
  if (!SelectInkSet()) return 0;
  if (LoadTables(page) != Step::Done) return 0;
  if (AllocateRowBuffer() != Step::Done) return 0;
  if (GetNumPix(PageNumber16(page->Properties, "UseAlternateModes")) == 0) {
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

void EColorInline::SendRasterFormatError() {
  SendError(*this, ErrorObject, kRasterFormatError,
            ZRXRasterFormat == 0 ? kNoRasterFormatText : kRasterFormatText);
}

void EColorInline::SendCreationError() {
  SendError(*this, ErrorObject, kCreationError, kCreationText);
}

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
  const std::uint32_t outputRows =
      mode->contoneRows[corvane::AlternateModeIndex(useAlternateModes)];
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
