// SPDX-License-Identifier: MIT
#include "app/tables/file.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>

#include "app/commands/table.h"
#include "app/support/failure.h"
#include "app/tables/default_table.h"
#include "app/tables/encoder.h"
#include "color/table/decoder.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

constexpr TableIndices kExtents{4, 1, 2, 1, 2};
constexpr std::size_t kTables = 16;
constexpr std::size_t kDirectoryBytes = 4 * (1 + 5 + 2 * kTables);
constexpr std::size_t kFirstOffset = 4 + 4 * 6;
constexpr std::size_t kFirstSize = kFirstOffset + 4 * kTables;
constexpr std::size_t kFirstTable = 4 + kDirectoryBytes;

// A black curve, two seven-ink tables and a nine-ink table, each for four tuples.
class TableFileTest : public testing::Test {
 protected:
  TableFileTest() {
    Bytes curve(kBlackCurveBytes);
    for (std::size_t i = 0; i < curve.size(); ++i) curve[i] = i;
    tables_.push_back(EncodeBlackCurve(std::span<const std::uint8_t, kBlackCurveBytes>(curve)));
    for (const std::size_t planes : {7, 7, 9}) {
      Bytes table(planes * kCubeBytes);
      for (std::size_t i = 0; i < table.size(); ++i) table[i] = tables_.size() + i % kCubeEdge * 9;
      tables_.push_back(*EncodeColorTable(table));
    }
    std::vector<const Bytes*> stored;
    for (std::size_t i = 0; i < kTables; ++i) stored.push_back(&tables_[i / 4]);
    good_ = MakeTableFile(kExtents, stored);
  }

  std::string Write(const Bytes& bytes) {
    return folder_.Write("t.cvt", std::string(bytes.begin(), bytes.end()));
  }

  ScratchFolder folder_;
  std::vector<Bytes> tables_;
  Bytes good_;
};

std::uint32_t Number(const Bytes& bytes, std::size_t at) {
  return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | std::uint32_t{bytes[at + 3]} << 24;
}

void SetNumber(Bytes& bytes, std::size_t at, std::uint32_t number) {
  for (int i = 0; i < 4; ++i) bytes[at + i] = number >> 8 * i & 0xFF;
}

TEST_F(TableFileTest, KeepsEqualTablesOnce) {
  std::size_t tableBytes = 0;
  for (const Bytes& table : tables_) tableBytes += table.size();
  EXPECT_EQ(good_.size(), 4 + kDirectoryBytes + tableBytes);
  EXPECT_EQ(Number(good_, 0), kDirectoryBytes);

  TableFile file(Write(good_));
  ASSERT_EQ(file.Entries().size(), kTables);
  EXPECT_EQ(file.Extents(), kExtents);
  for (std::size_t i = 0; i < kTables; ++i) {
    const TableEntry& entry = file.Entries()[i];
    const TableIndices expected{static_cast<std::uint32_t>(i / 4), 0,
                                static_cast<std::uint32_t>(i / 2 % 2), 0,
                                static_cast<std::uint32_t>(i % 2)};
    EXPECT_EQ(entry.indices, expected);
    EXPECT_EQ(file.Read(entry), tables_[i / 4]);
  }
}

TEST_F(TableFileTest, VerifyFindsEachFault) {
  struct Mutation {
    const char* name;
    std::function<void(Bytes&)> change;
    const char* problem;  // empty: none
  };
  const std::size_t coded = kFirstTable + tables_[0].size();
  const Mutation mutations[] = {
      {"none", [](Bytes&) {}, ""},
      {"bytes behind the tables", [](Bytes& b) { b.resize(b.size() + 9); }, ""},
      {"empty", [](Bytes& b) { b.clear(); }, "too short for a colour-table file"},
      {"four bytes", [](Bytes& b) { b.resize(4); }, "too short for a colour-table file"},
      {"cut in the directory", [](Bytes& b) { b.resize(100); },
       "no colour-table file, or cut: a directory of 152 bytes in a file of 100"},
      {"another kind", [](Bytes& b) { b = {0x89, 'P', 'N', 'G', '\r', '\n', 26, '\n'}; },
       "no colour-table file, or cut"},
      {"four indices", [](Bytes& b) { SetNumber(b, 4, 4); }, "is not one of 5 indices"},
      {"a tiny directory", [](Bytes& b) { SetNumber(b, 0, 23); }, "is not one of 5 indices"},
      {"no values", [](Bytes& b) { SetNumber(b, 12, 0); }, "index 1 has no values"},
      {"one value more", [](Bytes& b) { SetNumber(b, 8, 5); }, "too small for its tables"},
      {"a product of 2^64",
       [](Bytes& b) {
         for (int i = 0; i < 4; ++i) SetNumber(b, 8 + 4 * i, 65536);
       },
       "too small for its tables"},
      {"offset behind the end", [](Bytes& b) { SetNumber(b, kFirstOffset + 4, 0xFFFFFFFF); },
       "table (0, 0, 0, 0, 1): offset 4294967295 and size 128 lie outside the file"},
      {"cut in the last table", [](Bytes& b) { b.pop_back(); }, "table (3, 0, 0, 0, 0): offset"},
      {"larger than the table", [](Bytes& b) { SetNumber(b, kFirstSize, 257); },
       "table (0, 0, 0, 0, 0): 257 stored bytes for a table of 256"},
      {"a curve's form for cubes", [](Bytes& b) { SetNumber(b, kFirstSize + 16, 128); },
       "table (1, 0, 0, 0, 0): 128 stored bytes are no form of a table of 34391"},
      {"plain cubes",
       [](Bytes& b) {
         b.resize(b.size() + 34391);
         SetNumber(b, kFirstSize + 16, 34391);
       },
       "34391 stored bytes are no form of a table of 34391"},
      {"less than a checksum", [](Bytes& b) { SetNumber(b, kFirstSize + 16, 4); },
       "4 stored bytes"},
      {"a wrong checksum", [=](Bytes& b) { b[coded] ^= 1; },
       "table (1, 0, 0, 0, 0): the decoded table does not have the stored checksum"},
      {"a flipped base value", [=](Bytes& b) { b[coded + 5 + 7 + 2] ^= 1; },
       "does not have the stored checksum"},
      {"a code byte without meaning", [=](Bytes& b) { b[coded + 5 + 7] ^= 0x83; },
       "table (1, 0, 0, 0, 0): "},
      {"a swapped table",
       [](Bytes& b) {
         SetNumber(b, kFirstOffset + 16, Number(b, kFirstOffset + 48));
         SetNumber(b, kFirstSize + 16, Number(b, kFirstSize + 48));
       },
       "the row codes give 44217 bytes for a table of 34391"},
      {"a wrong size",
       [](Bytes& b) { SetNumber(b, kFirstSize + 16, Number(b, kFirstSize + 16) - 1); },
       "table (1, 0, 0, 0, 0): "},
  };
  for (const auto& [name, change, problem] : mutations) {
    SCOPED_TRACE(name);
    Bytes bytes = good_;
    change(bytes);
    const std::string path = Write(bytes);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    std::string thrown;
    int status = 1;
    try {
      status = RunTableVerify({path, false});
    } catch (const Failure& failure) {
      thrown = failure.what();
    }
    const std::string told = testing::internal::GetCapturedStderr() + thrown;
    const std::string summary = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, *problem == 0 ? 0 : 1);
    EXPECT_THAT(told, HasSubstr(problem));
    EXPECT_EQ(summary.empty(), *problem != 0);
    EXPECT_EQ(told.find(path + ": ") != std::string::npos, *problem != 0);
  }
}

// Neither the time nor the text grows with what a directory only promises.
TEST_F(TableFileTest, ADirectoryOfNonsenseIsToldInAFewLines) {
  constexpr std::size_t kMany = 4 * 6 * 2 * 4 * 2;
  const Bytes empty;
  Bytes bytes = MakeTableFile({4, 6, 2, 4, 2}, std::vector<const Bytes*>(kMany, &empty));
  for (std::size_t i = 0; i < kMany; ++i) {
    SetNumber(bytes, kFirstOffset + 4 * i, static_cast<std::uint32_t>(i));
    SetNumber(bytes, kFirstOffset + 4 * (kMany + i), 1 << 20);
  }
  bytes.resize(bytes.size() + kMany + (1 << 20));
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunTableVerify({Write(bytes), false}), 1);
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_THAT(told, HasSubstr("1048576 stored bytes for a table of 256"));
  EXPECT_THAT(told, HasSubstr(": 364 more tables are damaged"));
  EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 21);

  SetNumber(bytes, 8, 64);  // 16 times as many tables
  EXPECT_THAT(FailureOf([&] { TableFile file(Write(bytes)); }),
              HasSubstr("its directory names 6144 tables, more than 4096"));
}

TEST_F(TableFileTest, ShowListsOneTableWhenAsked) {
  const std::string path = Write(good_);
  testing::internal::CaptureStdout();
  EXPECT_EQ(RunTableShow({path, true, "1,0,1,0,1"}), 0);
  const auto shown = nlohmann::json::parse(testing::internal::GetCapturedStdout());
  ASSERT_EQ(shown["tables"].size(), 1u);
  EXPECT_EQ(shown["tables"][0]["indices"], nlohmann::json({1, 0, 1, 0, 1}));
  EXPECT_THAT(FailureOf([&] {
                RunTableShow({path, true, "9,5,9,9,9"});
              }),
              HasSubstr("has no table 9,5,9,9,9"));
}

TEST_F(TableFileTest, TheDefaultFileIsWholeAndSound) {
  TableFile file(DefaultColorTable());
  EXPECT_EQ(file.Extents(), kTableExtents);
  testing::internal::CaptureStdout();
  EXPECT_EQ(RunTableVerify({file.Name(), false}), 0);
  testing::internal::GetCapturedStdout();
}

TEST_F(TableFileTest, ASingleTableNeedsNoDirectory) {
  for (const std::size_t size : {256, 34391, 44217, 1000}) {
    const std::string path = Write(Bytes(4 + size));
    TableFile file(path);
    ASSERT_EQ(file.Entries().size(), 1u);
    EXPECT_EQ(file.Read(file.Entries()[0]).size(), size);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunTableVerify({path, false}), size == 1000 ? 1 : 0);
    testing::internal::GetCapturedStderr();
    testing::internal::GetCapturedStdout();
  }
}

TEST_F(TableFileTest, ShowListsWhatTheDirectoryHolds) {
  const std::string path = Write(good_);
  testing::internal::CaptureStdout();
  EXPECT_EQ(RunTableShow({path, true}), 0);
  const auto shown = nlohmann::json::parse(testing::internal::GetCapturedStdout());
  ASSERT_EQ(shown["tables"].size(), kTables);
  EXPECT_EQ(shown["tables"][0]["form"], "4-bit steps");
  EXPECT_TRUE(shown["tables"][0]["key"].is_null());
  const auto& last = shown["tables"][15];
  EXPECT_EQ(last["indices"], nlohmann::json({3, 0, 1, 0, 1}));
  EXPECT_EQ(last["size"], tables_[3].size());
  std::string key = "0x";
  for (int i = 0; i < 4; ++i) key += fmt::format("{:02x}", tables_[3][i]);
  EXPECT_EQ(last["key"], key);
}

}  // namespace
}  // namespace corvane
