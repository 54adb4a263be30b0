// SPDX-License-Identifier: MIT
#include "color/page_tables.h"

#include <algorithm>
#include <new>

#include "color/table/decoder.h"
#include "plugin/frame/element_frame.h"

namespace corvane {
namespace {

constexpr std::int32_t kPaperWithOwnTables = 3;       // "PaperCharacteristics"
constexpr std::int32_t kPreferenceWithOwnTables = 1;  // "ColorPreference"
constexpr std::int32_t kPreferenceByIntent = 3;       // the intent decides for the preference too
constexpr std::int32_t kGraphicIntent = 2;            // "PageIntent"

constexpr std::uint64_t kLargestFilePosition = 0xFFFFFFFF;

// The number of indices and the extents.
constexpr std::uint32_t kDirectoryHeadBytes =
    static_cast<std::uint32_t>(DirectoryNumbers(kTableIndexCount, 0)) * kDirectoryNumberBytes;

// Tags 0 and 1 are graphics, all others photographs.
constexpr int kGraphicTable = 0;
constexpr int kPhotoTable = 1;
constexpr unsigned kFirstPhotoTag = 2;

constexpr bool TellsPhotosFromGraphics(std::int32_t rasterFormat) {
  return rasterFormat == 4 || rasterFormat == 6;
}

TableIndices IndicesOf(const TableRequest& request) {
  TableIndices indices{};
  indices[kInkSetIndex] =
      InkSetIndexOf(request.inkSet, request.PaperCharacteristics == kPaperWithOwnTables);
  indices[kMediaIndex] = static_cast<std::uint32_t>(request.MediaType) - 1;
  indices[kPreferenceIndex] = request.ColorPreference == kPreferenceWithOwnTables ? 1 : 0;
  indices[kQualityIndex] = static_cast<std::uint32_t>(request.PrintQuality) - 1;
  return indices;
}

void SetIntent(const TableRequest& request, bool isGraphic, TableIndices* indices) {
  (*indices)[kIntentIndex] = isGraphic ? 1 : 0;
  if (request.ColorPreference == kPreferenceByIntent) (*indices)[kPreferenceIndex] = isGraphic;
}

// False when memory is short.
bool PublishOffset(ZCOM::PROPERTIES* page, const char* key, std::uint32_t offset) {
  char text[16];
  ZCOM::fwsprintf(text, "%d", static_cast<int>(offset));
  return page->SetProperty(key, text, kStandardGroup) != 0;
}

bool PublishKey(ZCOM::PROPERTIES* page, unsigned long key) {
  char text[16];
  ZCOM::fwsprintf(text, "0x%08x", static_cast<unsigned>(key));
  return page->SetProperty(property::kCTCompressionKey, text, kStandardGroup) != 0;
}

std::uint32_t TableBytes(InkSet set) { return DecodedTableBytes(InkSetIndexOf(set, false)); }

}  // namespace

bool PageTables::LoadedTable::CopyFrom(const LoadedTable& other) {
  if (other.bytes == nullptr) return true;
  size = other.size;
  bytes.reset(ZCOM::MFColorTable::CopyData(other.bytes.get(), size));
  if (other.interleaved != nullptr) {
    interleaved.reset(new (std::nothrow) InterleavedTable(*other.interleaved));
  }
  return bytes != nullptr && (interleaved != nullptr || other.interleaved == nullptr);
}

PageTables& PageTables::operator=(const PageTables& other) {
  if (this == &other) return *this;
  Release();
  for (int which : {kGraphicTable, kPhotoTable}) {
    if (!tables_[which].CopyFrom(other.tables_[which])) {
      Release();
      return *this;
    }
  }
  for (unsigned tag = 0; tag < kTags && other.AreThere(); ++tag) {
    const bool isFirst = other.tablePointers_[tag] == other.tables_[0].bytes.get();
    Use(tables_[isFirst ? 0 : 1], tag, tag + 1);
  }
  return *this;
}

void PageTables::Release() {
  std::fill_n(tablePointers_, kTags, nullptr);
  std::fill_n(interleavedByTag_, kTags, nullptr);
  for (LoadedTable& table : tables_) table = {};
}

PageTables::Result PageTables::Load(ZCOM::MFColorTable& file, const TableRequest& request,
                                    bool forFast, ZCOM::PROPERTIES* page) {
  // One open file for all reads, so that a file that is replaced meanwhile mixes no two versions.
  if (file.Open() == 0) return {.failed = true};
  Loading loading{file, request, forFast, page, 0, nullptr, 0};
  const Result result = LoadFrom(loading);
  file.Close();
  return result;
}

PageTables::Result PageTables::LoadFrom(Loading& loading) {
  if (loading.file.GetHeaderSize(&loading.directoryBytes) == 0) return {.failed = true};
  return TellsPhotosFromGraphics(loading.request.ZRXRasterFormat) ? LoadPhotoAndGraphic(loading)
                                                                  : LoadForAllTags(loading);
}

PageTables::Result PageTables::LoadForAllTags(Loading& loading) {
  LoadedTable& table = tables_[0];
  Step step;
  if (loading.directoryBytes == 0) {
    step = LoadSingleTable(loading, &table);
  } else {
    TableIndices indices = IndicesOf(loading.request);
    SetIntent(loading.request, loading.request.PageIntent == kGraphicIntent, &indices);
    StoredTable stored;
    if (!ReadDirectory(loading) || !LookUp(loading, indices, &stored)) return {.failed = true};
    if (!PublishOffset(loading.page, property::kCTOffset, stored.offset)) return {.failed = true};
    step = LoadTable(loading, stored, &table);
  }
  if (step == Step::Done) Use(table, 0, kTags);
  return {step == Step::Failed, step == Step::WrongSize ? 1 : 0};
}

// The second table is loaded even when the first one has the wrong size, so that both errors are
// told.
PageTables::Result PageTables::LoadPhotoAndGraphic(Loading& loading) {
  if (loading.directoryBytes == 0 || !ReadDirectory(loading)) return {.failed = true};

  constexpr const char* kOffsetKeys[] = {property::kCTOffsetGraphic, property::kCTOffsetPhoto};
  StoredTable stored[2];
  TableIndices indices = IndicesOf(loading.request);
  for (int which : {kPhotoTable, kGraphicTable}) {
    SetIntent(loading.request, which == kGraphicTable, &indices);
    if (!LookUp(loading, indices, &stored[which])) return {.failed = true};
    if (!PublishOffset(loading.page, kOffsetKeys[which], stored[which].offset)) {
      return {.failed = true};
    }
  }

  Result result;
  for (int which : {kPhotoTable, kGraphicTable}) {
    const Step step = LoadTable(loading, stored[which], &tables_[which]);
    if (step == Step::WrongSize) ++result.wrongSizes;
    if (step == Step::Failed) {
      result.failed = true;
      return result;
    }
  }
  if (result.IsSound()) {
    Use(tables_[kGraphicTable], 0, kFirstPhotoTag);
    Use(tables_[kPhotoTable], kFirstPhotoTag, kTags);
  }
  return result;
}

// `count` bytes of the file; null when they cannot be had. `position` and `count` have 32 bits, as
// GetData takes them where a `long` has no more.
PageTables::TableData PageTables::ReadBytes(Loading& loading, std::uint64_t position,
                                            std::uint32_t count) {
  unsigned char* bytes = nullptr;
  if (position > kLargestFilePosition ||
      loading.file.GetData(static_cast<long>(static_cast<std::uint32_t>(position)),
                           static_cast<long>(count), &bytes) == 0) {
    return nullptr;
  }
  return TableData(bytes);
}

// The extents, which say how long a directory is complete. Any file may be named: of its directory
// no more is read than that and the two numbers of a table.
bool PageTables::ReadDirectory(Loading& loading) {
  if (kDirectoryHeadBytes > loading.directoryBytes) return false;
  loading.directoryHead = ReadBytes(loading, kDirectoryStart, kDirectoryHeadBytes);
  if (loading.directoryHead == nullptr) return false;
  const TableDirectory head(loading.directoryHead.get(), kDirectoryHeadBytes);
  if (head.IndexCount() != kTableIndexCount) return false;
  std::uint64_t tables = 1;
  for (std::uint32_t k = 0; k < kTableIndexCount; ++k) {
    tables *= head.Extent(k);
    if (tables > loading.directoryBytes) return false;
  }
  loading.tables = tables;
  return DirectoryNumbers(kTableIndexCount, tables) * kDirectoryNumberBytes <=
         loading.directoryBytes;
}

bool PageTables::ReadNumber(Loading& loading, std::uint64_t place, std::uint32_t* number) {
  const TableData bytes =
      ReadBytes(loading, kDirectoryStart + place * kDirectoryNumberBytes, kDirectoryNumberBytes);
  if (bytes == nullptr) return false;
  *number = DirectoryNumber(bytes.get());
  return true;
}

bool PageTables::LookUp(Loading& loading, const TableIndices& indices, StoredTable* table) {
  // A directory may have more media and qualities than a page may ask for.
  if (indices[kMediaIndex] >= kTableExtents[kMediaIndex]) return false;
  if (indices[kQualityIndex] >= kTableExtents[kQualityIndex]) return false;
  const TableDirectory head(loading.directoryHead.get(), kDirectoryHeadBytes);
  std::uint64_t number = 0;
  if (ktColorGetTable2(head, indices.data(), kTableIndexCount, &number) != LookupResult::Found) {
    return false;
  }
  const std::uint64_t offset = DirectoryNumbers(kTableIndexCount, 0) + number;
  return ReadNumber(loading, offset, &table->offset) &&
         ReadNumber(loading, offset + loading.tables, &table->size);
}

// Only the black curve may be stored as it is used.
PageTables::Step PageTables::LoadTable(Loading& loading, const StoredTable& stored,
                                       LoadedTable* table) {
  const std::uint32_t expected = TableBytes(loading.request.inkSet);
  if (stored.size > expected) return Step::Failed;
  const bool isPlain = StoredFormOf(stored.size, expected) == StoredForm::Plain;
  if (isPlain && expected != kBlackCurveBytes) return Step::WrongSize;

  const std::uint64_t position =
      std::uint64_t{stored.offset} + loading.directoryBytes + kDirectoryStart;
  if (position > kLargestFilePosition) return Step::Failed;
  unsigned char* bytes = nullptr;
  if (loading.file.GetData(static_cast<long>(static_cast<std::uint32_t>(position)),
                           static_cast<long>(stored.size), static_cast<long>(expected),
                           &bytes) == 0 ||
      bytes == nullptr) {
    return Step::Failed;
  }
  table->bytes.reset(bytes);
  table->size = expected;

  if (loading.page->SetProperty(property::kCTCompression, isPlain ? "OFF" : "ON", kStandardGroup) ==
      0) {
    return Step::Failed;
  }
  if (!isPlain) {
    const unsigned long key = DecodeColorTable(bytes, expected, static_cast<long>(stored.size));
    if (!PublishKey(loading.page, key)) return Step::Failed;
  }
  return Interleave(loading, table) ? Step::Done : Step::Failed;
}

// A file without a directory holds a single table, as it is used.
PageTables::Step PageTables::LoadSingleTable(Loading& loading, LoadedTable* table) {
  unsigned char* bytes = nullptr;
  if (loading.file.GetData(0, 0, &bytes) == 0 || bytes == nullptr) return Step::Failed;
  table->bytes.reset(bytes);
  table->size = TableBytes(loading.request.inkSet);
  return Interleave(loading, table) ? Step::Done : Step::Failed;
}

// Makes the form for the fast converters, where it is needed.
bool PageTables::Interleave(const Loading& loading, LoadedTable* table) {
  const InkSet set = loading.request.inkSet;
  if (set == InkSet::Black || !loading.forFast) return true;
  std::unique_ptr<InterleavedTable> interleaved(new (std::nothrow) InterleavedTable);
  if (!interleaved) return false;
  corvane::Interleave(table->bytes.get(), static_cast<unsigned>(PlanesOf(set)), *interleaved);
  table->interleaved = std::move(interleaved);
  return true;
}

void PageTables::Use(const LoadedTable& table, unsigned firstTag, unsigned endTag) {
  for (unsigned tag = firstTag; tag < endTag; ++tag) {
    tablePointers_[tag] = table.bytes.get();
    interleavedByTag_[tag] = table.interleaved.get();
  }
}

}  // namespace corvane
