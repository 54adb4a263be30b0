// SPDX-License-Identifier: MIT
//
// The first element of the chain: RGB rows become contone ink planes.
//
// Own properties, read by `Initialize`: "SaveRgb" (group "EColorInline"), nonzero to dump the rows
// of every seven- and nine-ink page to c:\rgb.raw; "Name" (group "Standard"), given on to the error
// object. Host property: "ColorTableFilename", the colour-table file. Page properties (group
// "Standard", 0 when missing): "ZRXRasterFormat", "PaperCharacteristics", "MediaType",
// "ColorPreference", "PageIntent", "PrintQuality", "PrintableWidth", "VerticalInputResolution",
// "UseAlternateModes", "Points"; from the page's second bag "CMYKBinaryDescriptor".
// Published on the page start: "CTOffset" or "CTOffsetPhoto" and "CTOffsetGraphic",
// "CTCompression", "CTCompressionKey". Errors: 28 for a raster format that is none and for a table
// of the wrong size, 44 (8 follows) for a print mode that is none, 8 for tables or a row buffer
// that cannot be had and for a vertical resolution of 0 where the print mode needs one. The page
// start does not follow an error; rows of such a page are refused.
#pragma once

#include <cstdint>

#include "color/conversion.h"
#include "color/page_tables.h"
#include "color/read_views.h"
#include "host/carried_state.h"
#include "host/framework.h"
#include "host/raster.h"
#include "plugin/frame/buffer.h"
#include "plugin/frame/diagnostic_file.h"
#include "plugin/frame/export.h"
#include "printmode/print_mode.h"

// A copy is in the state of the element it was made from, in the middle of a page too, with pads,
// tables and buffers of its own; until its next page start it writes no diagnostic file. A copy
// that finds no memory for the page has none.
class CORVANE_API EColorInline final : public ZCOM::EObject, public corvane::CarriedState {
 public:
  EColorInline();
  EColorInline(const EColorInline&);
  EColorInline& operator=(const EColorInline&);
  ~EColorInline() override;

  // False when memory was too short to make the element whole; it is then good for nothing.
  bool IsComplete() const;

  unsigned long Initialize() override;
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short sinkPad) override;

  // Every row stands alone, but for those of a layout that is none, which leave the row before in
  // place, and for the points chart, whose rows are counted for the library.
  std::size_t StateBytes() const override { return 0; }
  void SaveState(unsigned char*) const override {}
  void RestoreState(const unsigned char*) override {}

 private:
  static constexpr std::uint32_t kNoInkSet = 0xFFFFFFFF;
  bool HasInkSet() const { return m_eAlgorithmType != kNoInkSet; }
  corvane::InkSet PageInkSet() const { return static_cast<corvane::InkSet>(m_eAlgorithmType); }
  std::uint32_t PagePlanes() const {
    return static_cast<std::uint32_t>(corvane::PlanesOf(PageInkSet()));
  }

  unsigned long StartPage(QStartPage* page);
  unsigned long ConvertRow(QRaster* raster);
  void ReleasePage();

  void ReadStartPage(const QStartPage& page);
  void OpenDiagnosticFiles();
  bool SelectInkSet();
  bool LoadTables(QStartPage* page);
  bool AllocateRowBuffer();
  void SendRasterFormatError();
  void SendCreationError();

  // Sets `RowRepeatCount`: 1, or 0 when print mode and input resolution give none.
  unsigned long GetNumPix(unsigned short useAlternateModes);

  // Converts pixels `first` to `end` - 1 of a row into the row buffer and sets the output's
  // `RowBytes`; both stay as they are for a layout that is none. Always 1, as for all members
  // below.
  short ColorConvert(QRaster* raster, unsigned long first, unsigned long end);

  short ColorConvertK(InlineRGBRGBRaster* view, unsigned long first, unsigned long end);
  short ColorConvertK(InlineXRGBXRGBRaster* view, unsigned long first, unsigned long end);
  short ColorConvertK(InlineRGBMRGBMRaster* view, unsigned long first, unsigned long end);
  short ColorConvertCcMmYyK(InlineRGBRGBRaster* view, unsigned long first, unsigned long end);
  short ColorConvertCcMmYyK(InlineXRGBXRGBRaster* view, unsigned long first, unsigned long end);
  short ColorConvertCcMmYyK(InlineRGBMRGBMRaster* view, unsigned long first, unsigned long end);
  short ColorConvertCcMmYyKcm(InlineRGBRGBRaster* view, unsigned long first, unsigned long end);
  short ColorConvertCcMmYyKcm(InlineXRGBXRGBRaster* view, unsigned long first, unsigned long end);
  short ColorConvertCcMmYyKcm(InlineRGBMRGBMRaster* view, unsigned long first, unsigned long end);

  short ColorConvertKPoints(unsigned char* rowBuffer, unsigned long first, unsigned long end);
  short ColorConvertCcMmYyKPoints(unsigned char* rowBuffer, unsigned long first, unsigned long end);
  short ColorConvertCcMmYyKcmPoints(unsigned char* rowBuffer, unsigned long first,
                                    unsigned long end);

  template <class View>
  short ConvertView(QRaster* raster, unsigned long first, unsigned long end);
  short ConvertPoints(unsigned long first, unsigned long end);
  template <class View>
  short RunConverter(const corvane::RowConverter* converters, View* view, unsigned long first,
                     unsigned long end);
  template <class View>
  short RunInkConverter(const corvane::RowConverter* converters, View* view, unsigned long first,
                        unsigned long end);
  void ClearRow(unsigned long first, unsigned long end);
  void SetRowBytes();

  corvane::DiagnosticFile RgbFile;  // open while a page runs with `SaveRgb`
  corvane::ConversionSlots ConversionCache;
  corvane::PageTables tables_;
  std::uint32_t PrintableWidth = 0;  // pixels
  std::uint32_t RowRepeatCount = 0;  // output rows per input row
  std::uint32_t VerticalInputResolution = 0;
  std::int32_t ZRXRasterFormat = 0;
  std::uint32_t m_eAlgorithmType = kNoInkSet;  // a corvane::InkSet, or kNoInkSet
  std::int32_t CMYKBinaryDescriptor = 0;
  std::int32_t MediaType = 0;
  std::int32_t ColorPreference = 0;
  std::int32_t PageIntent = 0;
  std::int32_t PrintQuality = 0;
  std::int32_t PaperCharacteristics = 0;
  QCMYKContoneRaster OutputRaster;
  QError ErrorObject;
  ZCOM::MFColorTable ColorTable;
  std::uint32_t SaveRgb = 0;
  std::uint32_t Points = 0;
  corvane::Buffer<unsigned char> PointsBuffer;  // kPointsBytes while a page runs with `Points`

  corvane::Buffer<unsigned char> RowBuffer;  // one row of all planes, `PrintableWidth` apart
  bool pageIsReady_ = false;
  const corvane::Converters* converters_ = &corvane::ConvertersFor(corvane::SelectedCpuLevel());
};
