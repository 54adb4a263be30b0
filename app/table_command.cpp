// SPDX-License-Identifier: MIT
#include "app/table_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <future>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>
#include <tuple>
#include <utility>

#include "app/failure.h"
#include "app/interrupt.h"
#include "app/output_file.h"
#include "app/print_settings.h"
#include "app/table_builder.h"
#include "app/table_encoder.h"
#include "app/table_file.h"
#include "color/decoder.h"

namespace corvane {
namespace {

using nlohmann::ordered_json;

constexpr std::uint32_t kDeltaCurveBytes = 128;
constexpr std::uint32_t kSmallestCodedBytes = 5;

// A file's name need not be UTF-8, which JSON text has to be.
std::string ToText(const ordered_json& value) {
  return value.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}

// ---------------------------------------------------------------------------------------------
// Names of index values

constexpr const char* kInkSetNames[] = {"K", "CcMmYyK without K", "CcMmYyK", "CcMmYyKcm"};

std::string WordOf(const PageSetting& setting, std::uint32_t value) {
  for (const SettingWord& word : setting.words) {
    if (static_cast<std::uint32_t>(word.value) == value) return std::string(word.word);
  }
  return fmt::format("{}", value);
}

// What a page asks for to get the table, in the words of `corvane print`.
std::string Meaning(const TableIndices& indices) {
  const auto& [inkSet, medium, preference, quality, intent] = indices;
  return fmt::format(
      "{}, {}, {}, {}, {}", inkSet < std::size(kInkSetNames) ? kInkSetNames[inkSet] : "unused",
      WordOf(kMediaType, medium + 1), WordOf(kColorPreference, preference == 1 ? 1 : 2),
      WordOf(kPrintQuality, quality + 1), WordOf(kPageIntent, intent + 1));
}

// ---------------------------------------------------------------------------------------------
// Stored forms

enum class StoredForm { Plain, DeltaCurve, Coded };

StoredForm FormOf(const TableEntry& entry) {
  if (entry.size == kBlackCurveBytes) return StoredForm::Plain;
  return entry.size == kDeltaCurveBytes ? StoredForm::DeltaCurve : StoredForm::Coded;
}

const char* NameOf(StoredForm form) {
  switch (form) {
    case StoredForm::Plain:
      return "plain";
    case StoredForm::DeltaCurve:
      return "4-bit steps";
    case StoredForm::Coded:
      return "coded";
  }
  return "";
}

// Decodes as the plug-in does, in place with the stored bytes at the end of the table's buffer, and
// returns what the decoder does: the checksum if it is the stored one.
unsigned long Decode(const std::vector<std::uint8_t>& stored, std::uint32_t bytes) {
  std::vector<std::uint8_t> table(bytes);
  std::copy(stored.rbegin(), stored.rend(), table.rbegin());
  return DecodeColorTable(table.data(), bytes, static_cast<long>(stored.size()));
}

// What is wrong with the stored bytes of a table of `bytes` bytes, or nothing.
std::string FindFault(const std::vector<std::uint8_t>& stored, std::uint32_t bytes) {
  const bool isCurve = bytes == kBlackCurveBytes;
  if (stored.size() > bytes) {
    return fmt::format("{} stored bytes for a table of {}", stored.size(), bytes);
  }
  if (isCurve && (stored.size() == kBlackCurveBytes || stored.size() == kDeltaCurveBytes))
    return {};
  if (stored.size() == bytes || stored.size() == kBlackCurveBytes ||
      stored.size() == kDeltaCurveBytes || stored.size() < kSmallestCodedBytes) {
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
  if (Decode(stored, bytes) != info.checksum) {
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

// The decoded size is what index 0 selects; a single table says by its size what it is.
std::uint32_t ExpectedBytes(const TableFile& file, const TableEntry& entry) {
  if (file.DirectoryBytes() != 0) return DecodedTableBytes(entry.indices[0]);
  for (std::uint32_t inkSet = 0; inkSet < kTableExtents[0]; ++inkSet) {
    if (DecodedTableBytes(inkSet) == entry.size) return entry.size;
  }
  return 0;
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
  return FindFault(file.Read(entry), bytes);
}

// Every table is checked once, however many index tuples share it; its fault names the first.
std::vector<Fault> FindFaults(TableFile& file) {
  std::vector<Fault> faults;
  std::set<std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>> checked;
  for (const TableEntry& entry : file.Entries()) {
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
  return ToText(result);
}

// ---------------------------------------------------------------------------------------------
// Listing

struct TableLine {
  TableEntry entry;
  StoredForm form;
  std::string key;  // empty when the form has none
};

std::vector<TableLine> ReadLines(TableFile& file) {
  std::vector<TableLine> lines;
  for (const TableEntry& entry : file.Entries()) {
    TableLine line{entry, file.DirectoryBytes() == 0 ? StoredForm::Plain : FormOf(entry), ""};
    if (line.form == StoredForm::Coded && file.Holds(entry)) {
      line.key = fmt::format("0x{:08x}", InspectCodedTable(file.Read(entry)).checksum);
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

std::string ToText(const TableFile& file, const std::vector<TableLine>& lines) {
  std::string text = fmt::format("{}: {} bytes, directory of {} bytes, {} tables\n", file.Name(),
                                 file.Bytes(), file.DirectoryBytes(), lines.size());
  constexpr const char* kColumns = "{:<12}{:>9}{:>7}  {:<12}{:<12}{}\n";
  text += fmt::format(kColumns, "indices", "offset", "size", "form", "key", "meaning");
  for (const TableLine& line : lines) {
    text += fmt::format(kColumns, fmt::format("{}", fmt::join(line.entry.indices, " ")),
                        line.entry.offset, line.entry.size, NameOf(line.form),
                        line.key.empty() ? "-" : line.key, Meaning(line.entry.indices));
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
                      {"meaning", Meaning(line.entry.indices)}});
  }
  const ordered_json result = {{"file", file.Name()},
                               {"bytes", file.Bytes()},
                               {"directoryBytes", file.DirectoryBytes()},
                               {"extents", file.Extents()},
                               {"tables", tables}};
  return ToText(result);
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
                                                   const std::vector<int>& places, int jobs) {
  std::vector<std::vector<std::uint8_t>> stored(places.size());
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t i; (i = next++) < places.size();) {
      ThrowIfInterrupted();
      stored[i] = Store(builder.Build(TableKeyOf(places[i])));
    }
  };
  std::vector<std::future<void>> workers;
  for (int i = 0; i < jobs; ++i) workers.push_back(std::async(std::launch::async, work));
  for (auto& worker : workers) worker.get();
  return stored;
}

TableBuilder MakeBuilder(const TableBuildOptions& options) {
  TableSettings settings;
  if (options.inkLimit) settings.inkLimit = *options.inkLimit / 100;
  settings.blackStrength = options.blackStrength;
  if (!options.curves.empty()) settings.curves = ReadInkCurves(options.curves);
  settings.iccProfile = options.iccProfile;
  return TableBuilder(options.inks.empty() ? DefaultInkData() : ReadInkData(options.inks),
                      std::move(settings));
}

}  // namespace

int RunTableBuild(const TableBuildOptions& options) {
  CheckOutputNames({options.output}, {options.inks, options.curves, options.iccProfile});
  const TableBuilder builder = MakeBuilder(options);
  OutputFile output(options.output);  // first, for a place that cannot be written to shows early
  std::vector<int> places;            // of the tables that differ
  std::map<int, std::size_t> known;   // where in `places` a place stands
  std::vector<std::size_t> sources;   // of every table of the file
  for (int place = 0; place < kTableCount; ++place) {
    const int representative = PlaceOf(builder.Representative(TableKeyOf(place)));
    const auto [found, isNew] = known.try_emplace(representative, places.size());
    if (isNew) places.push_back(representative);
    sources.push_back(found->second);
  }

  const int processors = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  const auto distinct = BuildTables(builder, places, options.jobs > 0 ? options.jobs : processors);
  std::vector<const std::vector<std::uint8_t>*> stored;
  for (const std::size_t source : sources) stored.push_back(&distinct[source]);
  const std::vector<std::uint8_t> file = MakeTableFile(kTableExtents, stored);
  output.Write({reinterpret_cast<const char*>(file.data()), file.size()});
  output.Commit();
  if (!options.quiet) {
    const InkData& inks = builder.Inks();
    fmt::print(stderr, "{}: {} tables, {} of them different, {} bytes; {}, {}\n", options.output,
               stored.size(), distinct.size(), file.size(), inks.name,
               inks.measured ? "measured colours" : "modelled colours");
  }
  return 0;
}

int RunTableShow(const TableFileOptions& options) {
  TableFile file(options.file);
  const std::vector<TableLine> lines = ReadLines(file);
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
        fmt::format("{}: {} tables, all sound\n", file.Name(), file.Entries().size()));
  }
  for (const Fault& fault : faults) {
    fmt::print(stderr, "corvane: {}: table {}: {}\n", file.Name(), NameOf(fault.indices),
               fault.text);
  }
  return faults.empty() ? 0 : 1;
}

}  // namespace corvane
