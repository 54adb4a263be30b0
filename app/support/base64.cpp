// SPDX-License-Identifier: MIT
#include "app/support/base64.h"

#include <array>
#include <cstdint>

namespace corvane {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 0x80;  // above every digit, so that a group is checked by one OR

constexpr std::array<std::uint8_t, 256> MakeDigits() {
  std::array<std::uint8_t, 256> digits{};
  for (auto& digit : digits) digit = kNoDigit;
  for (std::uint8_t i = 0; i < 64; ++i) digits[static_cast<unsigned char>(kAlphabet[i])] = i;
  return digits;
}
constexpr auto kDigits = MakeDigits();

std::uint32_t Digit(char c) { return kDigits[static_cast<unsigned char>(c)]; }

}  // namespace

void AppendBase64(const unsigned char* data, std::size_t size, std::string* text) {
  const std::size_t start = text->size();
  text->resize(start + (size + 2) / 3 * 4);
  char* out = text->data() + start;
  for (; size >= 3; size -= 3, data += 3, out += 4) {
    const std::uint32_t group =
        std::uint32_t{data[0]} << 16 | std::uint32_t{data[1]} << 8 | data[2];
    out[0] = kAlphabet[group >> 18];
    out[1] = kAlphabet[group >> 12 & 63];
    out[2] = kAlphabet[group >> 6 & 63];
    out[3] = kAlphabet[group & 63];
  }
  if (size == 0) return;
  const std::uint32_t group =
      std::uint32_t{data[0]} << 16 | (size == 2 ? std::uint32_t{data[1]} << 8 : 0);
  out[0] = kAlphabet[group >> 18];
  out[1] = kAlphabet[group >> 12 & 63];
  out[2] = size == 2 ? kAlphabet[group >> 6 & 63] : '=';
  out[3] = '=';
}

bool DecodeBase64(std::string_view text, std::vector<unsigned char>* data) {
  data->clear();
  if (text.size() % 4 != 0) return false;
  std::size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;

  data->resize(text.size() / 4 * 3);
  unsigned char* out = data->data();
  for (std::size_t at = 0; at < text.size(); at += 4, out += 3) {
    const std::size_t missing = at + 4 == text.size() ? padding : 0;
    const std::uint32_t third = missing == 2 ? 0 : Digit(text[at + 2]);
    const std::uint32_t fourth = missing >= 1 ? 0 : Digit(text[at + 3]);
    const std::uint32_t first = Digit(text[at]);
    const std::uint32_t second = Digit(text[at + 1]);
    if ((first | second | third | fourth) & kNoDigit) return false;
    const std::uint32_t group = first << 18 | second << 12 | third << 6 | fourth;
    if (group & ((1u << 8 * missing) - 1)) return false;
    out[0] = static_cast<unsigned char>(group >> 16);
    out[1] = static_cast<unsigned char>(group >> 8);
    out[2] = static_cast<unsigned char>(group);
  }
  data->resize(data->size() - padding);
  return true;
}

}  // namespace corvane
