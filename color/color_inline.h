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
// that cannot be had. The page start does not follow an error; rows of such a page are refused.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

#include "color/conversion.h"
#include "color/read_views.h"
#include "host/framework.h"
#include "host/raster.h"
#include "plugin/export.h"
#include "printmode/print_mode.h"

// A copy shares pads, tables, buffers and diagnostic file with the element it was made from; the
// last owner frees them.
class CORVANE_API EColorInline final : public ZCOM::EObject {
 public:
  EColorInline();
  EColorInline(const EColorInline&);
  EColorInline& operator=(const EColorInline&);
  ~EColorInline() override;

  unsigned long Initialize() override;
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short sinkPad) override;

 private:
  // A table's place in the colour-table file: bytes behind the directory, bytes as stored.
  struct StoredTable {
    unsigned long offset;
    unsigned long size;
  };

  // A table as the plain converters read it and, if they run, as the fast ones do.
  struct LoadedTable {
    std::shared_ptr<unsigned char> bytes;
    std::shared_ptr<const corvane::InterleavedTable> interleaved;
  };

  static constexpr int kIndexCount = 5;

  // What the steps of a page set-up tell the next one. A step that could not be done has sent its
  // error.
  enum class Step { Done, WrongTableSize, Failed };

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
  bool HasTagTables() const;
  void SelectIndices(unsigned long (&indices)[kIndexCount]) const;
  Step LoadTables(QStartPage* page);
  Step LoadPageTable(QStartPage* page, unsigned long directoryBytes);
  Step LoadPhotoAndGraphicTables(QStartPage* page, unsigned long directoryBytes);
  bool ReadDirectory(unsigned long directoryBytes);
  bool LookUp(unsigned long (&indices)[kIndexCount], StoredTable* table);
  Step LoadTable(QStartPage* page, const StoredTable& table, unsigned long directoryBytes,
                 LoadedTable* loaded);
  bool Interleave(LoadedTable* loaded);
  void UseTable(const LoadedTable& loaded, int firstTag, int lastTag);
  Step AllocateRowBuffer();
  void SendRasterFormatError();
  void SendCreationError();

  // Finds a table in the directory: 0 when found, 1 for another number of indices than the
  // directory's, 2 for an index beyond its extent.
  unsigned char ktColorGetTable2(unsigned char* directory, unsigned long* offset,
                                 unsigned long* size, unsigned long* indices, long count);

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
  void ClearRow();
  void SetRowBytes();

  ZCOM::SOURCEPAD* sourcePad_ = nullptr;
  ZCOM::SINKPAD* sinkPad_ = nullptr;
  std::shared_ptr<std::FILE> RgbFile;  // open while a page runs with `SaveRgb`
  corvane::ConversionSlots ConversionCache;
  std::shared_ptr<unsigned char> TableDirectory;  // during a page set-up
  unsigned char* TablePointers[corvane::kTags] = {};
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
  std::shared_ptr<unsigned char[]> PointsBuffer;  // kPointsBytes while a page runs with `Points`

  std::shared_ptr<unsigned char[]> RowBuffer;  // one row of all planes, `PrintableWidth` apart
  bool pageIsReady_ = false;
  LoadedTable tables_[2];  // the page's table, or its graphic and its photo table
  const corvane::InterleavedTable* interleavedTables_[corvane::kTags] = {};
  const corvane::Converters* converters_ = &corvane::ConvertersFor(corvane::SelectedCpuLevel());
};
