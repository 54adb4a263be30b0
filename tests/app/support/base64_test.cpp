// SPDX-License-Identifier: MIT
#include "app/support/base64.h"

#include <gtest/gtest.h>

#include <numeric>

namespace corvane {
namespace {

std::vector<unsigned char> Bytes(std::string_view text) { return {text.begin(), text.end()}; }

TEST(Base64, KnownTexts) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"\xFB\xFF\xBF", "+/+/"},
  };
  for (const auto& [plain, coded] : cases) {
    const auto bytes = Bytes(plain);
    std::string text = "kept ";
    AppendBase64(bytes.data(), bytes.size(), &text);
    EXPECT_EQ(text, std::string("kept ") + coded);
    std::vector<unsigned char> decoded = {1, 2, 3};
    EXPECT_TRUE(DecodeBase64(coded, &decoded));
    EXPECT_EQ(decoded, bytes);
  }
}

TEST(Base64, EveryByteSurvives) {
  std::vector<unsigned char> bytes(256);
  std::iota(bytes.begin(), bytes.end(), 0);
  std::string text;
  AppendBase64(bytes.data(), bytes.size(), &text);
  std::vector<unsigned char> decoded;
  ASSERT_TRUE(DecodeBase64(text, &decoded));
  EXPECT_EQ(decoded, bytes);
}

TEST(Base64, RefusesWhatIsNone) {
  std::vector<unsigned char> decoded;
  for (const char* text : {"Zg=", "Zg", "Z", "====", "Z===", "Zg==Zg==", "Zh==", "Zm9=", "Zm 9",
                           "=Zg=", "Zg=v", "Zm9\xFF", "Zm-_"}) {
    EXPECT_FALSE(DecodeBase64(text, &decoded)) << text;
  }
}

}  // namespace
}  // namespace corvane
