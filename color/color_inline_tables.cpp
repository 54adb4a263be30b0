// SPDX-License-Identifier: MIT
//
// The colour element's page set-up: finding, loading and publishing the page's tables.

#include <algorithm>
#include <new>

#include "color/color_inline.h"
#include "color/decoder.h"
#include "color/table_lookup.h"
#include "plugin/element_frame.h"

using corvane::InkSet;
using corvane::kStandardGroup;

namespace {

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

}  // namespace

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
    unsigned long indices[kIndexCount] = {};
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
  unsigned long indices[kIndexCount] = {};
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
    SendRasterFormatError();
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
