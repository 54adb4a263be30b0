// SPDX-License-Identifier: MIT
//
// The colour tables of a page: found in the colour-table file by what the page start says, read,
// decoded, and published on the page start.
#pragma once

#include <cstdint>
#include <memory>

#include "color/conversion.h"
#include "color/table/directory.h"
#include "host/framework.h"
#include "printmode/print_mode.h"

namespace corvane {

// What decides about a page's tables; the numbers are the page start's.
struct TableRequest {
  InkSet inkSet = InkSet::Black;
  std::int32_t ZRXRasterFormat = 0;
  std::int32_t PaperCharacteristics = 0;
  std::int32_t MediaType = 0;
  std::int32_t ColorPreference = 0;
  std::int32_t PageIntent = 0;
  std::int32_t PrintQuality = 0;
};

// A copy has tables of its own; where memory is too short for that, it has none.
class PageTables {
 public:
  PageTables() = default;
  PageTables(const PageTables& other) { *this = other; }
  PageTables& operator=(const PageTables& other);

  struct Result {
    bool failed = false;  // a table could not be had, and no further one was read
    int wrongSizes = 0;   // tables stored in as many bytes as only a black curve may be
    bool IsSound() const { return !failed && wrongSizes == 0; }
  };

  // Loads one table for all tags or, with a raster format that tells graphics from photographs, one
  // for each, and publishes where they lie and how they are stored as properties of `page`.
  // `forFast`: in the fast converters' form too.
  Result Load(ZCOM::MFColorTable& file, const TableRequest& request, bool forFast,
              ZCOM::PROPERTIES* page);
  void Release();

  // False when the page has no sound tables.
  bool AreThere() const { return tablePointers_[0] != nullptr; }

  // One pointer per tag; null for all tags when the page has no sound tables.
  const unsigned char* const* TablePointers() const { return tablePointers_; }
  const InterleavedTable* const* InterleavedByTag() const { return interleavedByTag_; }

 private:
  enum class Step { Done, WrongSize, Failed };

  struct DeleteTableData {
    void operator()(unsigned char* data) const { ZCOM::MFColorTable::DeleteData(data); }
  };
  using TableData = std::unique_ptr<unsigned char, DeleteTableData>;

  // A table as the plain converters read it and, if they run, as the fast ones do.
  struct LoadedTable {
    TableData bytes;
    std::unique_ptr<InterleavedTable> interleaved;
    std::uint32_t size = 0;  // bytes

    bool CopyFrom(const LoadedTable& other);
  };

  // A table's place in the file: bytes behind the directory, bytes as stored.
  struct StoredTable {
    std::uint32_t offset = 0;
    std::uint32_t size = 0;
  };

  // What one `Load` works on.
  struct Loading {
    ZCOM::MFColorTable& file;
    const TableRequest& request;
    bool forFast;
    ZCOM::PROPERTIES* page;
    unsigned long directoryBytes;
    TableData directoryHead;
    std::uint64_t tables;  // that the extents promise
  };

  static TableData ReadBytes(Loading& loading, std::uint64_t position, std::uint32_t count);
  static bool ReadDirectory(Loading& loading);
  static bool ReadNumber(Loading& loading, std::uint64_t place, std::uint32_t* number);
  static bool LookUp(Loading& loading, const TableIndices& indices, StoredTable* table);
  static Step LoadTable(Loading& loading, const StoredTable& stored, LoadedTable* table);
  static Step LoadSingleTable(Loading& loading, LoadedTable* table);
  static bool Interleave(const Loading& loading, LoadedTable* table);

  Result LoadFrom(Loading& loading);
  Result LoadForAllTags(Loading& loading);
  Result LoadPhotoAndGraphic(Loading& loading);
  void Use(const LoadedTable& table, unsigned firstTag, unsigned endTag);

  LoadedTable tables_[2];  // the page's table, or its graphic and its photo table
  const unsigned char* tablePointers_[kTags] = {};
  const InterleavedTable* interleavedByTag_[kTags] = {};
};

}  // namespace corvane
