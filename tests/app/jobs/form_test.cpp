// SPDX-License-Identifier: MIT
#include "app/jobs/form.h"

#include <gtest/gtest.h>

#include <string>

namespace corvane {
namespace {

// The rows of a page, a character a band; and a chain whose state is the band before, unless that
// was white.
class FormTest : public testing::Test {
 protected:
  struct Rows : KeptRows {
    explicit Rows(std::size_t size) : bytes(size) {}
    std::size_t Bytes() const override { return bytes; }

    std::size_t bytes;
  };

  static ChainState StateBehind(char band) {
    return ChainState(8, static_cast<std::uint8_t>(band == ' ' ? 0 : band));
  }

  // Which bands were taken over: '.', and which had to be computed.
  std::string Print(const std::string& page, const std::string& key = "form",
                    std::size_t bytes = 100) {
    FormMatcher matcher(store_, key);
    matcher.Start(StateBehind(' '));
    std::string computed;
    for (const char band : page) {
      const bool found = matcher.Next(reinterpret_cast<const std::uint8_t*>(&band), 1) != nullptr;
      computed += found ? '.' : band;
      if (found) {
        EXPECT_EQ(matcher.State(), StateBehind(band));
      } else {
        matcher.Computed([&] {
          ++looks_;
          return StateBehind(band);
        });
      }
    }
    matcher.Finish({std::make_shared<Rows>(bytes)});
    return computed;
  }

  FormStore store_{1000};
  int looks_ = 0;  // at a state
};

TEST_F(FormTest, TakesOverEqualRowsBehindEqualStatesAlone) {
  EXPECT_EQ(Print("ab cd e"), "ab cd e");
  EXPECT_EQ(Print("ab cd e"), ".......");
  // Behind a change a band more is computed: its rows are equal, and the state before is not.
  EXPECT_EQ(Print("aX cd e"), ".X ....");
  EXPECT_EQ(Print("ab Xd e"), "...Xd..");
  // Equal rows elsewhere are others: the rows' numbers count.
  EXPECT_EQ(Print("b cd ea"), "b cd ea");
  EXPECT_EQ(Print("ab cd e", "other settings"), "ab cd e");
}

TEST_F(FormTest, FollowsOneFormAndThenAnother) {
  Print("ab cd ef");
  Print("uv wx yz");
  EXPECT_EQ(Print("ab wx ef"), "........");
  EXPECT_EQ(Print("ab wX ef"), "....X ..");
}

TEST_F(FormTest, LooksMoreSeldomTheLongerNothingIsAlike) {
  Print(std::string(64, 'a'));
  EXPECT_EQ(looks_, 64);
  const std::string changed(48, 'b');
  EXPECT_EQ(Print(std::string(16, 'a') + changed), std::string(16, '.') + changed);
  EXPECT_EQ(looks_, 64 + 6);
  // A page of its own is looked at everywhere, for those that are like it.
  Print(std::string(64, 'c'));
  EXPECT_EQ(looks_, 64 + 6 + 64);
}

TEST_F(FormTest, ForgetsWhatWasNotUsedForLongest) {
  Print("a b", "1", 400);
  Print("a b", "2", 400);
  EXPECT_EQ(Print("a b", "1", 400), "...");
  Print("a b", "3", 400);
  EXPECT_EQ(Print("a b", "1", 400), "...");
  EXPECT_EQ(Print("a b", "2", 2000), "a b");
  EXPECT_EQ(Print("a b", "2", 400), "a b");  // was too large to be kept
}

}  // namespace
}  // namespace corvane
