// SPDX-License-Identifier: MIT
#include "app/tables/page_tables.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "app/support/failure.h"
#include "app/support/limits.h"
#include "app/tables/default_table.h"
#include "app/tables/stored_table.h"
#include "color/table/stored_form.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

// A file of a single table has no checksum: only its size can tell it from any other file.
void CheckSingleTable(const TableFile& file, const QStartPage& page) {
  int descriptor = 0;
  page.PageProperties.GetProperty("CMYKBinaryDescriptor", &descriptor, 0, "Standard");
  const PrintMode* mode = FindPrintMode(descriptor);
  if (mode == nullptr) return;
  const std::uint32_t bytes = DecodedTableBytes(InkSetIndexOf(mode->inkSet, false));
  const std::uint32_t size = file.Entries().front().size;
  if (size == bytes) return;
  throw Failure(fmt::format("{}: no colour table of mode {}: {} bytes, not {}", file.Name(),
                            descriptor, size, bytes));
}

}  // namespace

std::vector<std::uint8_t> ReadTable(TableFile& file, const TableEntry& entry) {
  const std::vector<std::uint8_t> stored = file.Read(entry);
  const std::uint32_t bytes = DecodedTableBytes(entry.indices[0]);
  DecodedTable table = DecodeStoredTable(stored, bytes);
  // A black curve in a form of its own has no checksum.
  if (StoredFormOf(stored.size(), bytes) == StoredForm::Coded &&
      table.checksum != StoredChecksum(stored.data())) {
    throw Failure(
        fmt::format("{}: the colour table at offset {} is damaged (corvane table verify "
                    "checks the file)",
                    file.Name(), entry.offset));
  }
  return std::move(table.bytes);
}

std::string FindColorTable(const std::string& given) {
  if (given.empty()) return DefaultColorTable();
  ZCOM::MFColorTable file;
  if (file.SetFilename(given.c_str()) == 0) FailOfSystem(given, errno);
  if (given.size() > limits::kColorTablePath)
    throw Failure(given + ": the path is longer than 255 bytes");
  return given;
}

void CheckTablesOf(const QStartPage& page, const std::string& path) {
  TableFile file(path);
  if (file.DirectoryBytes() == 0) return CheckSingleTable(file, page);
  for (const char* property : {"CTOffset", "CTOffsetPhoto", "CTOffsetGraphic"}) {
    char text[32] = "";
    if (page.Properties.GetProperty(property, text, sizeof text, "", "Standard") == 0) continue;
    const auto offset = static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
    const auto& entries = file.Entries();
    const auto entry = std::find_if(entries.begin(), entries.end(), [&](const TableEntry& other) {
      return other.offset == offset && file.Holds(other) &&
             other.size <= DecodedTableBytes(other.indices[0]);
    });
    if (entry != entries.end()) ReadTable(file, *entry);
  }
}

}  // namespace corvane
