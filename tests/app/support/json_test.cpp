// SPDX-License-Identifier: MIT
#include "app/support/json.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "app/support/failure.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

std::string Nested(std::size_t levels) {
  return std::string(levels, '[') + std::string(levels, ']');
}

TEST(Json, RefusesInItsOwnWords) {
  const struct {
    std::string text, problem;
  } kCases[] = {
      {"", "not JSON at byte 1"},
      {"{\"a\": 1} x", "not JSON at byte 10"},
      {"\"\xff\"", "not JSON at byte 2"},
      {"{\"a\": {\"b\": [0, 1e309]}}", "\"b\" is beyond the numbers there are"},
      {"-1e309", "a number is beyond the numbers there are"},
      {Nested(70000), "is nested more than 64 levels deep"},
      {std::string(70000, '['), "is nested more than 64 levels deep"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(FailureOf([&] { ParseJson(c.text); }), c.problem) << c.text.substr(0, 40);
    const ScratchText file("some.json", c.text);
    EXPECT_EQ(FailureOf([&] { ReadJsonFile(file.Path()); }),
              file.Path().string() + ": " + c.problem);
  }
  EXPECT_EQ(FailureOf([] { ReadJsonFile("/nowhere.json"); }),
            "/nowhere.json: No such file or directory");
}

TEST(Json, ReadsWhatIsSound) {
  EXPECT_EQ(ParseJson("{\"a\": [1, 2.5, 1e308]}").at("a").size(), 3u);
  EXPECT_TRUE(ParseJson(Nested(64)).is_array());
}

}  // namespace
}  // namespace corvane
