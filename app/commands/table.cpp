// SPDX-License-Identifier: MIT
#include "app/commands/table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "app/commands/table_inspect.h"
#include "app/page/settings.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/json.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/platform.h"
#include "app/support/progress.h"
#include "app/support/threads.h"
#include "app/tables/builder.h"
#include "app/tables/encoder.h"
#include "app/tables/file.h"
#include "app/tables/stored_table.h"
#include "color/table/stored_form.h"

namespace corvane {
namespace {

using nlohmann::ordered_json;

// ---------------------------------------------------------------------------------------------
// Names of index values

constexpr const char* kInkSetNames[] = {"K", "CcMmYyK without K", "CcMmYyK", "CcMmYyKcm"};

// The ink set that a table is for: what index 0 selects; a single table shows it by its size.
std::optional<std::uint32_t> InkSetOf(const TableFile& file, const TableEntry& entry) {
  if (file.DirectoryBytes() != 0) return entry.indices[0];
  for (const std::uint32_t inkSet : {0u, 2u, 3u}) {
    if (DecodedTableBytes(inkSet) == entry.size) return inkSet;
  }
  return std::nullopt;
}

std::uint32_t ExpectedBytes(const TableFile& file, const TableEntry& entry) {
  const auto inkSet = InkSetOf(file, entry);
  return inkSet ? DecodedTableBytes(*inkSet) : 0;
}

// What a page asks for to get the table, in the words of `corvane print`.
std::string Meaning(const TableFile& file, const TableEntry& entry) {
  const auto inkSet = InkSetOf(file, entry);
  const std::string inks =
      inkSet && *inkSet < std::size(kInkSetNames) ? kInkSetNames[*inkSet] : "unused";
  if (file.DirectoryBytes() == 0) return inks + ", every page";
  const auto& [unused, medium, preference, quality, intent] = entry.indices;
  return fmt::format("{}, {}, {}, {}, {}", inks,
                     SettingText(kMediaType, static_cast<int>(medium) + 1),
                     SettingText(kColorPreference, preference == 1 ? 1 : 2),
                     SettingText(kPrintQuality, static_cast<int>(quality) + 1),
                     SettingText(kPageIntent, static_cast<int>(intent) + 1));
}

// ---------------------------------------------------------------------------------------------
// Stored forms

const char* NameOf(StoredForm form) {
  switch (form) {
    case StoredForm::Plain:
      return "plain";
    case StoredForm::DeltaCurve:
      return "4-bit steps";
    case StoredForm::Coded:
      return "coded";
    case StoredForm::None:
      return "none";
  }
  return "";
}

// What is wrong with the stored bytes of a table of `bytes` bytes, or nothing.
std::string FindFault(const std::vector<std::uint8_t>& stored, std::uint32_t bytes) {
  const StoredForm form = StoredFormOf(stored.size(), bytes);
  const bool isCurve = bytes == kBlackCurveBytes;
  if (isCurve && (form == StoredForm::Plain || form == StoredForm::DeltaCurve)) return {};
  if (form != StoredForm::Coded) {
    return fmt::format("{} stored bytes are no form of a table of {}", stored.size(), bytes);
  }
  const CodedTableInfo info = InspectCodedTable(stored);
  if (!info.complete) return "the row codes end inside a row";
  if (info.emptyRows != 0)
    return fmt::format("{} rows have a code without meaning", info.emptyRows);
  if (info.rows * kCubeEdge != bytes) {
    return fmt::format("the row codes give {} bytes for a table of {}", info.rows * kCubeEdge,
                       bytes);
  }
  if (DecodeStoredTable(stored, bytes).checksum != info.checksum) {
    return fmt::format("the decoded table does not have the stored checksum 0x{:08x}",
                       info.checksum);
  }
  return {};
}

// ---------------------------------------------------------------------------------------------
// Checking

struct Fault {
  TableIndices indices{};
  std::string text;
};

std::string NameOf(const TableIndices& indices) {
  return fmt::format("({})", fmt::join(indices, ", "));
}

std::string FindFault(TableFile& file, const TableEntry& entry) {
  const std::uint32_t bytes = ExpectedBytes(file, entry);
  if (file.DirectoryBytes() == 0) {
    // Read as it is, never decoded.
    return bytes != 0 ? "" : fmt::format("{} bytes are no table of any ink set", entry.size);
  }
  if (!file.Holds(entry)) {
    return fmt::format("offset {} and size {} lie outside the file of {} bytes", entry.offset,
                       entry.size, file.Bytes());
  }
  if (bytes == 0) return {};  // the colour element never asks for it
  if (entry.size > bytes) {
    return fmt::format("{} stored bytes for a table of {}", entry.size, bytes);
  }
  return FindFault(file.Read(entry), bytes);
}

// Every table is checked once, however many index tuples share it; its fault names the first.
std::vector<Fault> FindFaults(TableFile& file) {
  std::vector<Fault> faults;
  std::set<std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>> checked;
  for (const TableEntry& entry : file.Entries()) {
    ThrowIfInterrupted();
    if (!checked.emplace(entry.offset, entry.size, ExpectedBytes(file, entry)).second) continue;
    std::string text = FindFault(file, entry);
    if (!text.empty()) faults.push_back({entry.indices, std::move(text)});
  }
  return faults;
}

std::string ToJson(const TableFile& file, const std::vector<Fault>& faults) {
  ordered_json list = ordered_json::array();
  for (const Fault& fault : faults) {
    list.push_back({{"indices", fault.indices}, {"fault", fault.text}});
  }
  const ordered_json result = {
      {"file", file.Name()}, {"tables", file.Entries().size()}, {"faults", list}};
  return JsonText(result) + '\n';
}

// ---------------------------------------------------------------------------------------------
// Listing

struct TableLine {
  TableEntry entry;
  StoredForm form;
  std::string key;  // empty when the form has none
};

// The file's tables, or the one with these indices.
std::vector<TableEntry> EntriesOf(const TableFile& file, const std::string& indices) {
  if (indices.empty()) return file.Entries();
  const TableEntry* entry = file.Find(ParseTableIndices(indices));
  if (entry == nullptr) throw Failure(fmt::format("{}: has no table {}", file.Name(), indices));
  return {*entry};
}

std::vector<TableLine> ReadLines(TableFile& file, const std::vector<TableEntry>& entries) {
  std::vector<TableLine> lines;
  for (const TableEntry& entry : entries) {
    ThrowIfInterrupted();
    TableLine line{entry, file.DirectoryBytes() == 0 ? StoredForm::Plain : StoredFormOf(entry.size),
                   ""};
    const bool fits = entry.size <= DecodedTableBytes(entry.indices[0]);
    if (line.form == StoredForm::Coded && fits && file.Holds(entry)) {
      line.key = fmt::format("0x{:08x}", StoredChecksum(file.Read(entry).data()));
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

std::string ToText(const TableFile& file, const std::vector<TableLine>& lines) {
  std::string text =
      fmt::format("{}: {} bytes, directory of {} bytes, {} tables\n", Printable(file.Name()),
                  file.Bytes(), file.DirectoryBytes(), lines.size());
  constexpr const char* kColumns = "{:<12}{:>9}{:>7}  {:<12}{:<12}{}\n";
  text += fmt::format(kColumns, "indices", "offset", "size", "form", "key", "meaning");
  for (const TableLine& line : lines) {
    text += fmt::format(kColumns, fmt::format("{}", fmt::join(line.entry.indices, " ")),
                        line.entry.offset, line.entry.size, NameOf(line.form),
                        line.key.empty() ? "-" : line.key, Meaning(file, line.entry));
  }
  return text;
}

std::string ToJson(const TableFile& file, const std::vector<TableLine>& lines) {
  ordered_json tables = ordered_json::array();
  for (const TableLine& line : lines) {
    tables.push_back({{"indices", line.entry.indices},
                      {"offset", line.entry.offset},
                      {"size", line.entry.size},
                      {"form", NameOf(line.form)},
                      {"key", line.key.empty() ? ordered_json() : ordered_json(line.key)},
                      {"meaning", Meaning(file, line.entry)}});
  }
  const ordered_json result = {{"file", file.Name()},
                               {"bytes", file.Bytes()},
                               {"directoryBytes", file.DirectoryBytes()},
                               {"extents", file.Extents()},
                               {"tables", tables}};
  return JsonText(result) + '\n';
}

// ---------------------------------------------------------------------------------------------
// Building

std::vector<std::uint8_t> Store(const std::vector<std::uint8_t>& table) {
  if (table.size() == kBlackCurveBytes) {
    return EncodeBlackCurve(std::span<const std::uint8_t, kBlackCurveBytes>(table));
  }
  auto stored = EncodeColorTable(table);
  if (!stored) throw Failure("a table is too irregular for the coded form");
  return std::move(*stored);
}

// The tables of the given places, several at a time.
std::vector<std::vector<std::uint8_t>> BuildTables(const TableBuilder& builder,
                                                   const std::vector<int>& places, int jobs,
                                                   ProgressStyle style) {
  std::vector<std::vector<std::uint8_t>> stored(places.size());
  Progress progress("making tables", places.size(), style);
  ForEachIndex(places.size(), jobs, [&](std::size_t i) {
    ThrowIfInterrupted();
    stored[i] = Store(builder.Build(TableKeyOf(places[i])));
    progress.Advance(1);
  });
  return stored;
}

TableBuilder MakeBuilder(const TableBuildOptions& options) {
  TableSettings settings;
  if (options.inkLimit) settings.inkLimit = *options.inkLimit / 100;
  settings.blackStrength = options.blackStrength;
  if (!options.curves.empty()) settings.curves = ReadInkCurves(options.curves);
  settings.iccProfile = options.iccProfile;
  return TableBuilder(InksFrom(options.inks), std::move(settings));
}

// Where the tables have their colours from.
std::string OriginOf(const TableBuildOptions& options, const InkData& inks) {
  if (!options.iccProfile.empty()) return "separated by " + options.iccProfile;
  return fmt::format("{}, {}", inks.name, inks.measured ? "measured colours" : "modelled colours");
}

}  // namespace

int RunTableBuild(const TableBuildOptions& options) {
  CheckOutputNames({options.output}, {options.inks, options.curves, options.iccProfile});
  const TableBuilder builder = MakeBuilder(options);
  OutputStage stage;
  StagedFile& output = stage.CreateStream(options.output);  // first: what is in its way shows early
  std::vector<int> places;                                  // of the tables that differ
  std::map<int, std::size_t> known;                         // where in `places` a place stands
  std::vector<std::size_t> sources;                         // of every table of the file
  for (int place = 0; place < kTableCount; ++place) {
    const int representative = PlaceOf(builder.Representative(TableKeyOf(place)));
    const auto [found, isNew] = known.try_emplace(representative, places.size());
    if (isNew) places.push_back(representative);
    sources.push_back(found->second);
  }

  const int processors = ProcessorCount();
  const auto distinct = BuildTables(builder, places, options.jobs > 0 ? options.jobs : processors,
                                    ProgressStyleOf(options.progress, options.quiet));
  std::vector<const std::vector<std::uint8_t>*> stored;
  for (const std::size_t source : sources) stored.push_back(&distinct[source]);
  const std::vector<std::uint8_t> file = MakeTableFile(kTableExtents, stored);
  output.Append(file.data(), file.size());
  stage.Commit();
  if (!options.quiet) {
    Tell(fmt::format("{}: {} tables, {} of them different, {} bytes; {}\n",
                     Printable(options.output), stored.size(), distinct.size(), file.size(),
                     Printable(OriginOf(options, builder.Inks()))));
  }
  return 0;
}

int RunTableShow(const TableFileOptions& options) {
  TableFile file(options.file);
  const std::vector<TableLine> lines = ReadLines(file, EntriesOf(file, options.indices));
  WriteStandardOutput(options.json ? ToJson(file, lines) : ToText(file, lines));
  return 0;
}

int RunTableVerify(const TableFileOptions& options) {
  TableFile file(options.file);
  const std::vector<Fault> faults = FindFaults(file);
  if (options.json) {
    WriteStandardOutput(ToJson(file, faults));
  } else if (faults.empty()) {
    WriteStandardOutput(
        fmt::format("{}: {} tables, all sound\n", Printable(file.Name()), file.Entries().size()));
  }
  constexpr std::size_t kMostShown = 20;
  for (std::size_t i = 0; i < std::min(kMostShown, faults.size()); ++i) {
    Complain(
        fmt::format("{}: table {}: {}", file.Name(), NameOf(faults[i].indices), faults[i].text));
  }
  if (faults.size() > kMostShown) {
    Complain(fmt::format("{}: {} more tables are damaged (--json lists them)", file.Name(),
                         faults.size() - kMostShown));
  }
  return faults.empty() ? 0 : 1;
}

}  // namespace corvane
