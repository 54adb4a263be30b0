// SPDX-License-Identifier: MIT
//
// The element's life, its messages and its page set-up. Its tables are loaded in page_tables.cpp,
// its rows converted in color_inline_rows.cpp.

#include "color/color_inline.h"

#include <algorithm>
#include <limits>

#include "color/points.h"
#include "plugin/frame/element_frame.h"
#include "printmode/print_modes.h"

using corvane::ForwardMessage;
using corvane::kStandardGroup;
using corvane::PageInt;
using corvane::PageNumber;
using corvane::PageNumber16;
using corvane::PrintMode;
using corvane::SendError;
namespace property = corvane::property;

namespace {

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
  Properties.SetProperty(property::kEObjectType, "EColorInline", kStandardGroup);
  Properties.SetProperty(property::kEObjectName, "EColorInline", kStandardGroup);
  ErrorObject.Properties.SetProperty(property::kEObjectName, "EColorInline", kStandardGroup);
  corvane::ReserveError(ErrorObject, kNoRasterFormatText);
}

EColorInline::EColorInline(const EColorInline& other) : EColorInline() { *this = other; }

EColorInline& EColorInline::operator=(const EColorInline& other) {
  if (this == &other) return *this;
  ZCOM::EObject::operator=(other);
  ConversionCache = other.ConversionCache;
  tables_ = other.tables_;
  PrintableWidth = other.PrintableWidth;
  RowRepeatCount = other.RowRepeatCount;
  VerticalInputResolution = other.VerticalInputResolution;
  ZRXRasterFormat = other.ZRXRasterFormat;
  m_eAlgorithmType = other.m_eAlgorithmType;
  CMYKBinaryDescriptor = other.CMYKBinaryDescriptor;
  MediaType = other.MediaType;
  ColorPreference = other.ColorPreference;
  PageIntent = other.PageIntent;
  PrintQuality = other.PrintQuality;
  PaperCharacteristics = other.PaperCharacteristics;
  OutputRaster = other.OutputRaster;
  ErrorObject = other.ErrorObject;
  ColorTable = other.ColorTable;
  SaveRgb = other.SaveRgb;
  Points = other.Points;
  PointsBuffer = other.PointsBuffer;
  RowBuffer = other.RowBuffer;
  RgbFile.Close();
  converters_ = other.converters_;
  pageIsReady_ = other.pageIsReady_ && tables_.AreThere() && (RowBuffer || !other.RowBuffer) &&
                 (PointsBuffer || !other.PointsBuffer);
  return *this;
}

EColorInline::~EColorInline() = default;

bool EColorInline::IsComplete() const {
  return Properties.IsComplete() && ErrorObject.Properties.IsComplete();
}

unsigned long EColorInline::Initialize() {
  unsigned long saveRgb = 0;
  Properties.GetProperty(property::kSaveRgb, &saveRgb, 0ul, property::kColorGroup);
  SaveRgb = static_cast<std::uint32_t>(saveRgb);

  char name[32] = "";
  unsigned long isReady = 1;
  if (Properties.GetProperty(property::kName, name, sizeof name, nullptr, kStandardGroup) != 0) {
    isReady = ErrorObject.Properties.SetProperty(property::kName, name, kStandardGroup);
  }

  isReady &= corvane::MakePads(*this);

  char filename[256] = "";
  if (HostProperties != nullptr) {
    HostProperties->GetProperty(property::kColorTableFilename, filename, sizeof filename, nullptr,
                                kStandardGroup);
  }
  if (ColorTable.SetFilename(filename) == 0) {
    ZCOM::fwfprintf(stderr, "EColorInline::Initialize: Could not open colortable: %s\n", filename);
    return 0;
  }
  return isReady;
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
      RowBuffer.Release();
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
  if (!LoadTables(page)) return 0;
  if (!AllocateRowBuffer()) return 0;
  if (GetNumPix(PageNumber16(page->Properties, property::kUseAlternateModes)) == 0) {
    SendCreationError();
    return 0;
  }

  pageIsReady_ = true;
  return ForwardMessage(*this, page);
}

// Lets go of everything that belongs to one page; the row buffer stays for the next one.
void EColorInline::ReleasePage() {
  pageIsReady_ = false;
  RgbFile.Close();
  PointsBuffer.Release();
  tables_.Release();
}

void EColorInline::ReadStartPage(const QStartPage& page) {
  ZRXRasterFormat = PageInt(page.Properties, property::kZRXRasterFormat);
  PaperCharacteristics = PageInt(page.Properties, property::kPaperCharacteristics);
  MediaType = PageInt(page.Properties, property::kMediaType);
  ColorPreference = PageInt(page.Properties, property::kColorPreference);
  PageIntent = PageInt(page.Properties, property::kPageIntent);
  PrintQuality = PageInt(page.Properties, property::kPrintQuality);
  PrintableWidth = PageNumber(page.Properties, property::kPrintableWidth);
  VerticalInputResolution = PageNumber(page.Properties, property::kVerticalInputResolution);
  Points = PageNumber(page.Properties, property::kPoints);
  CMYKBinaryDescriptor = PageInt(page.PageProperties, property::kCMYKBinaryDescriptor);
}

// Both are made before anything of the page is checked: a dump is empty even after a failed start.
void EColorInline::OpenDiagnosticFiles() {
  if (Points != 0) {
    if (PointsBuffer.Allocate(corvane::kPointsBytes)) corvane::ReadPoints(PointsBuffer.Data());
  }
  if (SaveRgb != 0) RgbFile.Open(kRgbFile, "wb");
}

bool EColorInline::SelectInkSet() {
  const PrintMode* const mode = corvane::FindPrintMode(CMYKBinaryDescriptor);
  m_eAlgorithmType = mode == nullptr ? kNoInkSet : static_cast<std::uint32_t>(mode->inkSet);
  if (HasInkSet()) return true;

  ErrorObject.Properties.SetProperty(property::kAlgorithmType,
                                     static_cast<unsigned long>(m_eAlgorithmType), kStandardGroup);
  SendError(*this, ErrorObject, kAlgorithmError, kAlgorithmText);
  SendCreationError();
  return false;
}

bool EColorInline::LoadTables(QStartPage* page) {
  const corvane::TableRequest request{PageInkSet(), ZRXRasterFormat, PaperCharacteristics,
                                      MediaType,    ColorPreference, PageIntent,
                                      PrintQuality};
  const corvane::PageTables::Result result =
      tables_.Load(ColorTable, request, converters_->needInterleavedTables, &page->Properties);
  for (int i = 0; i < result.wrongSizes; ++i) SendRasterFormatError();
  if (result.failed) SendCreationError();
  return result.IsSound();
}

void EColorInline::SendRasterFormatError() {
  SendError(*this, ErrorObject, kRasterFormatError,
            ZRXRasterFormat == 0 ? kNoRasterFormatText : kRasterFormatText);
}

void EColorInline::SendCreationError() {
  SendError(*this, ErrorObject, kCreationError, kCreationText);
}

bool EColorInline::AllocateRowBuffer() {
  OutputRaster.RowBytes = 0;
  if (PrintableWidth == 0) return true;

  RowBuffer.Release();
  const std::uint64_t bytes = std::uint64_t{PrintableWidth} * PagePlanes();
  if (bytes <= std::numeric_limits<std::uint32_t>::max() &&
      RowBuffer.Allocate(static_cast<std::size_t>(bytes))) {
    return true;
  }
  SendCreationError();
  return false;
}

unsigned long EColorInline::GetNumPix(unsigned short useAlternateModes) {
  const PrintMode* const mode = corvane::FindPrintMode(CMYKBinaryDescriptor);
  if (mode == nullptr) return 0;
  const std::uint32_t outputRows = mode->Alternate(useAlternateModes).contoneRows;
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
  const bool hasRowBuffer = RowBuffer || PrintableWidth == 0;
  if (!pageIsReady_ || !hasRowBuffer) return 0;

  OutputRaster.RasterFormat = kContoneRasterFormat;
  OutputRaster.PassThroughValue = raster->PassThroughValue;
  OutputRaster.FirstPixel = raster->FirstPixel;
  OutputRaster.EndPixel = std::min(raster->EndPixel, PrintableWidth);
  OutputRaster.Row = raster->Row * RowRepeatCount;
  OutputRaster.Width = PrintableWidth;
  OutputRaster.Data = RowBuffer.Data();
  ColorConvert(raster, OutputRaster.FirstPixel, OutputRaster.EndPixel);

  unsigned long result = 1;
  for (std::uint32_t i = 0; i < RowRepeatCount; ++i) {
    result = ForwardMessage(*this, &OutputRaster);
    ++OutputRaster.Row;
  }
  return result;
}
