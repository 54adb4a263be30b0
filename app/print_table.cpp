// SPDX-License-Identifier: MIT
#include "app/print_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "app/default_table.h"
#include "app/failure.h"
#include "app/table_encoder.h"
#include "app/table_file.h"
#include "color/decoder.h"
#include "printmode/print_mode.h"

namespace corvane {
namespace {

constexpr std::size_t kLongestPath = 255;  // what the colour element reads of the property
constexpr std::size_t kUncheckedForms[] = {128, 256};  // of a black curve, without a checksum

void CheckTable(TableFile& file, const TableEntry& entry) {
  const std::vector<std::uint8_t> stored = file.Read(entry);
  const std::uint32_t bytes = DecodedTableBytes(entry.indices[0]);
  const bool unchecked = std::find(std::begin(kUncheckedForms), std::end(kUncheckedForms),
                                   stored.size()) != std::end(kUncheckedForms);
  if (unchecked || stored.size() > bytes) return;
  std::vector<std::uint8_t> table(bytes);
  std::copy(stored.begin(), stored.end(), table.end() - static_cast<std::ptrdiff_t>(stored.size()));
  const unsigned long checksum =
      DecodeColorTable(table.data(), bytes, static_cast<long>(stored.size()));
  if (checksum != InspectCodedTable(stored).checksum) {
    throw Failure(
        fmt::format("{}: the colour table at offset {} is damaged (corvane table verify "
                    "checks the file)",
                    file.Name(), entry.offset));
  }
}

// A file of a single table has no checksum: only its size can tell it from any other file.
void CheckSingleTable(const TableFile& file, const QStartPage& page) {
  int descriptor = 0;
  page.PageProperties.GetProperty("CMYKBinaryDescriptor", &descriptor, 0, "Standard");
  const PrintMode* mode = FindPrintMode(descriptor);
  if (mode == nullptr) return;
  const std::uint32_t inkSet = mode->inkSet == InkSet::Black  ? 0
                               : mode->inkSet == InkSet::Nine ? 3
                                                              : 2;
  const std::uint32_t bytes = DecodedTableBytes(inkSet), size = file.Entries().front().size;
  if (size == bytes) return;
  throw Failure(fmt::format("{}: no colour table of mode {}: {} bytes, not {}", file.Name(),
                            descriptor, size, bytes));
}

}  // namespace

std::string FindColorTable(const std::string& given) {
  if (given.empty()) return DefaultColorTable();
  ZCOM::MFColorTable file;
  if (file.SetFilename(given.c_str()) == 0) {
    throw Failure(fmt::format("{}: {}", given, std::strerror(errno)));
  }
  if (given.size() > kLongestPath) throw Failure(given + ": the path is longer than 255 bytes");
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
      return other.offset == offset;
    });
    if (entry != entries.end()) CheckTable(file, *entry);
  }
}

}  // namespace corvane
