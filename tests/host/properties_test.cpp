// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>

#include "host/framework.h"

namespace {

unsigned long ReadLong(const ZCOM::PROPERTIES& bag, const char* key, const char* group = "G") {
  unsigned long value;
  bag.GetProperty(key, &value, 77ul, group);
  return value;
}

TEST(Properties, NumbersWrapIntoTheTypeAskedFor) {
  ZCOM::PROPERTIES bag;
  bag.SetProperty("minus", -1, "G");
  bag.SetProperty("large", 4294967295ul, "G");
  bag.SetProperty("odd", 65538, "G");

  EXPECT_EQ(ReadLong(bag, "minus"), 4294967295ul);
  int signedValue;
  EXPECT_EQ(bag.GetProperty("large", &signedValue, 5, "G"), 1);
  EXPECT_EQ(signedValue, -1);
  unsigned short shortValue;
  EXPECT_EQ(bag.GetProperty("odd", &shortValue, 5, "G"), 1);
  EXPECT_EQ(shortValue, 2);
}

TEST(Properties, MissingKeysGroupsAndTypesGiveTheDefault) {
  ZCOM::PROPERTIES bag;
  bag.SetProperty("number", 3, "G");
  bag.SetProperty("text", "12", "G");

  EXPECT_EQ(ReadLong(bag, "absent"), 77u);
  EXPECT_EQ(ReadLong(bag, "number", "other"), 77u);
  EXPECT_EQ(ReadLong(bag, "text"), 77u) << "a text is no number";
  char buffer[8] = "before";
  EXPECT_EQ(bag.GetProperty("number", buffer, sizeof buffer, nullptr, "G"), 0);
  EXPECT_STREQ(buffer, "before") << "without a default the buffer stays";
  EXPECT_EQ(bag.GetProperty("number", buffer, sizeof buffer, "none", "G"), 0);
  EXPECT_STREQ(buffer, "none");
}

TEST(Properties, TextsAreCutToTheBuffer) {
  ZCOM::PROPERTIES bag;
  bag.SetProperty("text", "abcdef", "G");
  char buffer[5] = "????";
  EXPECT_EQ(bag.GetProperty("text", buffer, 4, nullptr, "G"), 1);
  EXPECT_STREQ(buffer, "abc");
  buffer[0] = 'x';
  EXPECT_EQ(bag.GetProperty("text", buffer, 0, nullptr, "G"), 1);
  EXPECT_EQ(buffer[0], 'x');
}

TEST(Properties, SettingReplacesValueAndType) {
  ZCOM::PROPERTIES bag;
  bag.SetProperty("key", "text", "G");
  bag.SetProperty("key", 9, "G");
  EXPECT_EQ(ReadLong(bag, "key"), 9u);
  ASSERT_NE(bag.First(), nullptr);
  EXPECT_EQ(bag.First()->Next(), nullptr);
  EXPECT_TRUE(bag.First()->IsSigned());

  ZCOM::PROPERTIES copy = bag;
  copy.SetProperty("key", 10, "G");
  EXPECT_EQ(ReadLong(bag, "key"), 9u) << "a copy is its own bag";
}

TEST(Properties, EntriesComeInOrderOfGroupAndKey) {
  ZCOM::PROPERTIES bag;
  bag.SetProperty("b", 1, "Z");
  bag.SetProperty("b", "text", "A");
  bag.SetProperty("a", 4294967295ul, "Z");
  bag.SetProperty("b", "a longer text", "A");
  bag.SetProperty("b", "short", "A");
  std::string seen;
  for (const auto* entry = bag.First(); entry != nullptr; entry = entry->Next()) {
    seen += std::string(entry->Group()) + "." + entry->Key() + "=" +
            (entry->Text() != nullptr ? entry->Text() : std::to_string(entry->Bits())) + " ";
  }
  EXPECT_EQ(seen, "A.b=short Z.a=4294967295 Z.b=1 ");
}

}  // namespace
