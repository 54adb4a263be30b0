// SPDX-License-Identifier: MIT
#include "app/support/message.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "app/support/json.h"

namespace corvane {
namespace {

TEST(Message, ShowsControlCharactersAndLeavesTheRest) {
  const struct {
    std::string text, shown;
  } kCases[] = {
      {"photo été 写真 😀.tif", "photo été 写真 😀.tif"},
      {"a\nb\tc\rd", "a\\nb\\tc\\rd"},
      {"\x1b[2J\x7f", "\\x1b[2J\\x7f"},
      {"\xc2\x9b"
       "31m",
       "\\x9b31m"},                                           // a control of Latin-1
      {"tif.\xe2\x80\xaegnp", "tif.\\u202egnp"},              // turns the direction
      {"\xff\xc3(", "\\xff\\xc3("},                           // no UTF-8
      {"\xe2\x80", "\\xe2\\x80"},                             // cut
      {"\xc0\xaf\xed\xa0\x80", "\\xc0\\xaf\\xed\\xa0\\x80"},  // too long a form; a surrogate
      {std::string("a\0b", 3), "a\\x00b"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(Printable(test.text), test.shown);
    EXPECT_EQ(Printable(test.shown), test.shown);
  }
  EXPECT_EQ(PrintableLines("a\x1b\nb\n"), "a\\x1b\nb\n");
}

TEST(Message, JsonKeepsItsMeaning) {
  const std::string name = "a\x7f\xc2\x9b\xe2\x80\xae\x1bé";
  const std::string text = JsonText(nlohmann::json{{"file", name}}, -1);
  EXPECT_EQ(text, R"({"file":"a\u007f\u009b\u202e\u001bé"})");
  EXPECT_EQ(nlohmann::json::parse(text)["file"], name);
  EXPECT_EQ(JsonText(nlohmann::json("\xff")), "\"\xef\xbf\xbd\"");
}

}  // namespace
}  // namespace corvane
