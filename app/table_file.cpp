// SPDX-License-Identifier: MIT
#include "app/table_file.h"

#include <fmt/format.h>

#include <filesystem>
#include <limits>
#include <map>
#include <string_view>
#include <system_error>

#include "app/failure.h"
#include "color/decoder.h"

namespace corvane {
namespace {

constexpr std::uint32_t kNumberBytes = 4;
constexpr std::uint32_t kSizeFieldBytes = 4;  // in front of the directory
constexpr std::uint32_t kInkSetBytes[] = {256, 7 * kCubeBytes, 7 * kCubeBytes, 9 * kCubeBytes};

void AppendNumber(std::uint64_t number, std::vector<std::uint8_t>* bytes) {
  for (int shift = 0; shift < 32; shift += 8) bytes->push_back(number >> shift & 0xFF);
}

std::uint32_t NumberAt(std::span<const std::uint8_t> bytes, std::size_t index) {
  std::uint32_t number = 0;
  for (int i = kNumberBytes; i-- > 0;) number = number << 8 | bytes[index * kNumberBytes + i];
  return number;
}

// Numbers of a directory for `tables` tables: N, the extents, the offsets, the sizes.
constexpr std::uint64_t DirectoryNumbers(std::uint64_t tables) {
  return 1 + kTableIndexCount + 2 * tables;
}

// Steps to the next tuple, the last index first.
void Advance(const TableIndices& extents, TableIndices* indices) {
  for (std::size_t k = kTableIndexCount; k-- > 0;) {
    if (++(*indices)[k] < extents[k]) return;
    (*indices)[k] = 0;
  }
}

}  // namespace

std::uint32_t DecodedTableBytes(std::uint32_t inkSet) {
  return inkSet < std::size(kInkSetBytes) ? kInkSetBytes[inkSet] : 0;
}

std::vector<std::uint8_t> MakeTableFile(const TableIndices& extents,
                                        std::span<const std::vector<std::uint8_t>* const> stored) {
  std::vector<std::uint8_t> tables;
  std::vector<std::uint64_t> offsets;
  std::map<std::string_view, std::uint64_t> known;
  for (const auto* table : stored) {
    const std::string_view bytes(reinterpret_cast<const char*>(table->data()), table->size());
    const auto [place, isNew] = known.try_emplace(bytes, tables.size());
    if (isNew) tables.insert(tables.end(), table->begin(), table->end());
    offsets.push_back(place->second);
  }

  const std::uint64_t directoryBytes = DirectoryNumbers(stored.size()) * kNumberBytes;
  if (kSizeFieldBytes + directoryBytes + tables.size() > std::numeric_limits<std::int32_t>::max()) {
    throw Failure("the tables do not fit a colour-table file of 2 GiB");
  }
  std::vector<std::uint8_t> file;
  file.reserve(kSizeFieldBytes + directoryBytes + tables.size());
  AppendNumber(directoryBytes, &file);
  AppendNumber(kTableIndexCount, &file);
  for (const std::uint32_t extent : extents) AppendNumber(extent, &file);
  for (const std::uint64_t offset : offsets) AppendNumber(offset, &file);
  for (const auto* table : stored) AppendNumber(table->size(), &file);
  file.insert(file.end(), tables.begin(), tables.end());
  return file;
}

TableFile::TableFile(const std::string& path) : name_(path), file_(path, std::ios::binary) {
  std::error_code problem;
  bytes_ = std::filesystem::file_size(path, problem);
  if (!file_ || problem) {
    throw Failure(name_ + ": cannot open" + (problem ? ": " + problem.message() : ""));
  }
  if (bytes_ <= kSizeFieldBytes) throw Failure(name_ + ": too short for a colour-table file");
  std::array<std::uint8_t, kSizeFieldBytes> sizeField;
  ReadBytes(0, sizeField);
  directoryBytes_ = NumberAt(sizeField, 0);
  if (directoryBytes_ == 0) {
    entries_ = {{{}, 0, static_cast<std::uint32_t>(bytes_ - kSizeFieldBytes)}};
  } else {
    ReadDirectory();
  }
}

void TableFile::ReadDirectory() {
  if (directoryBytes_ > bytes_ - kSizeFieldBytes) {
    throw Failure(
        fmt::format("{}: no colour-table file, or cut: a directory of {} bytes in a file of {}",
                    name_, directoryBytes_, bytes_));
  }
  std::vector<std::uint8_t> directory(directoryBytes_);
  ReadBytes(kSizeFieldBytes, directory);
  const std::uint64_t numbers = directoryBytes_ / kNumberBytes;
  if (numbers < DirectoryNumbers(0) || NumberAt(directory, 0) != kTableIndexCount) {
    throw Failure(
        fmt::format("{}: its directory is not one of {} indices", name_, kTableIndexCount));
  }
  std::uint64_t tables = 1;
  for (std::size_t k = 0; k < kTableIndexCount; ++k) {
    extents_[k] = NumberAt(directory, 1 + k);
    if (extents_[k] == 0) throw Failure(fmt::format("{}: index {} has no values", name_, k));
    // The product so far is below 2^30, or the check would have refused it: this one fits 64 bits.
    tables *= extents_[k];
    if (DirectoryNumbers(tables) > numbers) {
      throw Failure(fmt::format("{}: its directory of {} bytes is too small for its tables", name_,
                                directoryBytes_));
    }
  }

  TableIndices indices{};
  for (std::uint64_t i = 0; i < tables; ++i) {
    entries_.push_back({indices, NumberAt(directory, DirectoryNumbers(0) + i),
                        NumberAt(directory, DirectoryNumbers(0) + tables + i)});
    Advance(extents_, &indices);
  }
}

bool TableFile::Holds(const TableEntry& entry) const {
  return std::uint64_t{entry.offset} + entry.size + directoryBytes_ + kSizeFieldBytes <= bytes_;
}

std::vector<std::uint8_t> TableFile::Read(const TableEntry& entry) {
  std::vector<std::uint8_t> stored(entry.size);
  ReadBytes(std::uint64_t{entry.offset} + directoryBytes_ + kSizeFieldBytes, stored);
  return stored;
}

void TableFile::ReadBytes(std::uint64_t position, std::span<std::uint8_t> bytes) {
  file_.seekg(static_cast<std::streamoff>(position));
  file_.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!file_) throw Failure(name_ + ": cannot read");
}

}  // namespace corvane
