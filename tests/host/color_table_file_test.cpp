// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <string>
#include <vector>

#include "host/framework.h"
#include "tests/harness/scratch_folder.h"

namespace {

using Bytes = std::vector<unsigned char>;

class ColorTableFile : public testing::Test {
 protected:
  ZCOM::MFColorTable Open(const Bytes& content) {
    ZCOM::MFColorTable table;
    const std::string path = folder_.Write("t.cvt", std::string(content.begin(), content.end()));
    EXPECT_NE(table.SetFilename(path.c_str()), 0u);
    return table;
  }

  // The buffer's first `size` bytes; empty when there is no buffer.
  static Bytes Take(unsigned char* data, std::size_t size) {
    if (data == nullptr) return {};
    Bytes bytes(data, data + size);
    ZCOM::MFColorTable::DeleteData(data);
    return bytes;
  }

  corvane::ScratchFolder folder_;
};

TEST_F(ColorTableFile, NamesWhatCanBeOpened) {
  ZCOM::MFColorTable table;
  EXPECT_EQ(table.SetFilename(folder_.File("absent").c_str()), 0u);
  EXPECT_EQ(table.SetFilename(nullptr), 0u);
  EXPECT_EQ(table.SetFilename(folder_.File("").c_str()), 0u) << "a folder";
  unsigned long size = 5;
  EXPECT_EQ(table.GetHeaderSize(&size), 0u);
  EXPECT_EQ(size, 0u);
}

TEST_F(ColorTableFile, ReadsTheDirectorySizeThatFits) {
  struct Case {
    Bytes content;
    unsigned long result, size;
  };
  for (const Case& c :
       {Case{{2, 0, 0, 0, 9, 9}, 1, 2}, Case{{0, 0, 0, 0}, 1, 0}, Case{{3, 0, 0, 0, 9, 9}, 0, 0},
        Case{{255, 255, 255, 255, 9}, 0, 0}, Case{{0, 0, 0}, 0, 0}}) {
    ZCOM::MFColorTable table = Open(c.content);
    unsigned long size = 99;
    EXPECT_EQ(table.GetHeaderSize(&size), c.result);
    EXPECT_EQ(size, c.size);
  }
}

TEST_F(ColorTableFile, ReadsRangesThatLieInTheFile) {
  ZCOM::MFColorTable table = Open({0, 0, 0, 0, 10, 11, 12, 13});
  unsigned char* data = nullptr;
  EXPECT_EQ(table.GetData(5, 3, &data), 1u);
  EXPECT_EQ(Take(data, 3), (Bytes{11, 12, 13}));
  EXPECT_EQ(table.GetData(4, 2, 5, &data), 1u);
  EXPECT_EQ(Take(data, 5), (Bytes{0, 0, 0, 10, 11}));

  for (const auto& [offset, size, buffer] :
       std::vector<std::tuple<long, long, long>>{{5, 4, 4},
                                                 {-1, 2, 2},
                                                 {4, -1, 4},
                                                 {4, 3, 2},
                                                 {2147483647, 2147483647, 2147483647},
                                                 {LONG_MAX, 1, 1},
                                                 {LONG_MAX, LONG_MAX, LONG_MAX},
                                                 {LONG_MIN, 1, 1}}) {
    data = reinterpret_cast<unsigned char*>(1);
    EXPECT_EQ(table.GetData(offset, size, buffer, &data), 0u) << offset << ", " << size;
    EXPECT_EQ(data, nullptr);
  }
}

TEST_F(ColorTableFile, GivesTheSingleTableInABufferForTheLargest) {
  ZCOM::MFColorTable table = Open({0, 0, 0, 0, 7, 8});
  unsigned char* data = nullptr;
  ASSERT_EQ(table.GetData(0, 0, &data), 1u);
  const Bytes bytes = Take(data, 44217);
  EXPECT_EQ(bytes[0], 7);
  EXPECT_EQ(bytes[1], 8);
  EXPECT_EQ(std::count(bytes.begin() + 2, bytes.end(), 0), 44215);
}

#if !defined(_WIN32)  // there an open file keeps its name
TEST_F(ColorTableFile, ReadsOneFileBetweenOpenAndClose) {
  ZCOM::MFColorTable table = Open({1, 0, 0, 0, 10});
  EXPECT_EQ(table.Open(), 1u);
  std::filesystem::remove(folder_.File("t.cvt"));
  folder_.Write("t.cvt", std::string(4, 0) + "other");
  unsigned char* data = nullptr;
  ASSERT_EQ(table.GetData(4, 1, &data), 1u);
  EXPECT_EQ(Take(data, 1), Bytes{10});
  table.Close();
  ASSERT_EQ(table.GetData(4, 5, &data), 1u);
  EXPECT_EQ(Take(data, 5), (Bytes{'o', 't', 'h', 'e', 'r'}));
}
#endif

}  // namespace
