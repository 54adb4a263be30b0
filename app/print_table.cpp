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
