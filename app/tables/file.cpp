// SPDX-License-Identifier: MIT
#include "app/tables/file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <limits>
#include <map>
#include <string_view>
#include <system_error>

#include "app/support/failure.h"

namespace corvane {
namespace {

void AppendNumber(std::uint64_t number, std::vector<std::uint8_t>* bytes) {
  for (int shift = 0; shift < 32; shift += 8) bytes->push_back(number >> shift & 0xFF);
}

// Steps to the next tuple, the last index first.
void Advance(const TableIndices& extents, TableIndices* indices) {
  for (std::size_t k = kTableIndexCount; k-- > 0;) {
    if (++(*indices)[k] < extents[k]) return;
    (*indices)[k] = 0;
  }
}

}  // namespace

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

  const std::uint64_t directoryBytes =
      DirectoryNumbers(kTableIndexCount, stored.size()) * kDirectoryNumberBytes;
  if (kDirectoryStart + directoryBytes + tables.size() > std::numeric_limits<std::int32_t>::max()) {
    throw Failure("the tables do not fit a colour-table file of 2 GiB");
  }
  std::vector<std::uint8_t> file;
  file.reserve(kDirectoryStart + directoryBytes + tables.size());
  AppendNumber(directoryBytes, &file);
  AppendNumber(kTableIndexCount, &file);
  for (const std::uint32_t extent : extents) AppendNumber(extent, &file);
  for (const std::uint64_t offset : offsets) AppendNumber(offset, &file);
  for (const auto* table : stored) AppendNumber(table->size(), &file);
  file.insert(file.end(), tables.begin(), tables.end());
  return file;
}

TableFile::TableFile(const std::string& path) : name_(path), file_(path, std::ios::binary) {
  const int opening = file_ ? 0 : errno;
  std::error_code problem;
  bytes_ = std::filesystem::file_size(path, problem);
  if (!file_ || problem) FailOfSystem(name_, opening != 0 ? opening : problem.value());
  if (bytes_ <= kDirectoryStart) throw Failure(name_ + ": too short for a colour-table file");
  std::array<std::uint8_t, kDirectoryStart> sizeField;
  ReadBytes(0, sizeField);
  directoryBytes_ = DirectoryNumber(sizeField.data());
  if (directoryBytes_ == 0) {
    entries_ = {{{}, 0, static_cast<std::uint32_t>(bytes_ - kDirectoryStart)}};
  } else {
    ReadDirectory();
  }
}

void TableFile::ReadDirectory() {
  if (directoryBytes_ > bytes_ - kDirectoryStart) {
    throw Failure(
        fmt::format("{}: no colour-table file, or cut: a directory of {} bytes in a file of {}",
                    name_, directoryBytes_, bytes_));
  }
  // What lies behind the numbers of the tables is not read.
  const auto size = static_cast<std::uint32_t>(std::min<std::uint64_t>(
      directoryBytes_, DirectoryNumbers(kTableIndexCount, kMostTables) * kDirectoryNumberBytes));
  std::vector<std::uint8_t> bytes(size);
  ReadBytes(kDirectoryStart, bytes);
  const TableDirectory directory(bytes.data(), size);
  if (directoryBytes_ < DirectoryNumbers(kTableIndexCount, 0) * kDirectoryNumberBytes ||
      directory.IndexCount() != kTableIndexCount) {
    throw Failure(fmt::format("{}: its directory is not one of {} indices", name_,
                              static_cast<unsigned>(kTableIndexCount)));
  }
  for (std::uint32_t k = 0; k < kTableIndexCount; ++k) {
    extents_[k] = directory.Extent(k);
    if (extents_[k] == 0) throw Failure(fmt::format("{}: index {} has no values", name_, k));
  }
  if (directory.TableCount() > kMostTables) {
    throw Failure(fmt::format("{}: its directory names {} tables, more than {}", name_,
                              directory.TableCount(), kMostTables));
  }
  if (!directory.IsComplete()) {
    throw Failure(fmt::format("{}: its directory of {} bytes is too small for its tables", name_,
                              directoryBytes_));
  }

  TableIndices indices{};
  for (std::uint64_t i = 0; i < directory.TableCount(); ++i) {
    entries_.push_back({indices, directory.Offset(i), directory.StoredSize(i)});
    Advance(extents_, &indices);
  }
}

const TableEntry* TableFile::Find(const TableIndices& indices) const {
  const auto entry = std::find_if(entries_.begin(), entries_.end(), [&](const TableEntry& other) {
    return other.indices == indices;
  });
  return entry == entries_.end() ? nullptr : &*entry;
}

bool TableFile::Holds(const TableEntry& entry) const {
  return std::uint64_t{entry.offset} + entry.size + directoryBytes_ + kDirectoryStart <= bytes_;
}

std::vector<std::uint8_t> TableFile::Read(const TableEntry& entry) {
  if (!Holds(entry)) throw Failure(name_ + ": a table lies outside the file");
  std::vector<std::uint8_t> stored(entry.size);
  ReadBytes(std::uint64_t{entry.offset} + directoryBytes_ + kDirectoryStart, stored);
  return stored;
}

void TableFile::ReadBytes(std::uint64_t position, std::span<std::uint8_t> bytes) {
  file_.seekg(static_cast<std::streamoff>(position));
  file_.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (file_.bad()) FailOfSystem(name_, errno);
  if (!file_) throw Failure(name_ + ": cannot read");
}

}  // namespace corvane
