// SPDX-License-Identifier: MIT
//
// Names of files in UTF-8 on Windows. The program's manifest makes them UTF-8 for the system, and
// so for what opens files by narrow names. std::filesystem makes wide ones of them, by these two
// functions of the C library, which knows no UTF-8 there; the program is linked so that they are
// called in their place. A wide character has 16 bits: one beyond them is two, of which the state
// holds one.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>

namespace {

constexpr auto kInvalid = static_cast<std::size_t>(-1);
constexpr auto kIncomplete = static_cast<std::size_t>(-2);

constexpr std::uint32_t kFirstHigh = 0xD800, kFirstLow = 0xDC00, kBehindLow = 0xE000;
constexpr std::uint32_t kBeyond = 0x10000, kEnd = 0x110000;

std::size_t FailAsInvalid() {
  errno = EILSEQ;
  return kInvalid;
}

std::uint32_t HeldBy(const std::mbstate_t& state) {
  std::uint32_t held = 0;
  static_assert(sizeof held <= sizeof state);
  std::memcpy(&held, &state, sizeof held);
  return held;
}

void Hold(std::uint32_t value, std::mbstate_t& state) { std::memcpy(&state, &value, sizeof value); }

// How many bytes the character takes that begins with this one; 0: none begins so.
std::size_t LengthFrom(unsigned char first) {
  if (first < 0x80) return 1;
  if (first < 0xC2) return 0;
  if (first < 0xE0) return 2;
  if (first < 0xF0) return 3;
  return first < 0xF5 ? 4 : 0;
}

// The character of so many bytes; kEnd when they are none.
std::uint32_t Decoded(const unsigned char* bytes, std::size_t length) {
  if (length == 1) return bytes[0];
  std::uint32_t character = bytes[0] & (0xFFu >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((bytes[i] & 0xC0) != 0x80) return kEnd;
    character = character << 6 | (bytes[i] & 0x3F);
  }
  constexpr std::uint32_t kFirst[] = {0, 0, 0x80, 0x800, kBeyond};
  const bool surrogate = character >= kFirstHigh && character < kBehindLow;
  return character < kFirst[length] || surrogate ? kEnd : character;
}

}  // namespace

extern "C" {

// As the C library's, in UTF-8. The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
std::size_t __wrap_mbrtowc(wchar_t* wide, const char* text, std::size_t size,
                           std::mbstate_t* state) {
  if (const std::uint32_t low = HeldBy(*state); low != 0) {
    *wide = static_cast<wchar_t>(low);
    Hold(0, *state);
    return 3;  // the rest of the character's four
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  const std::size_t length = LengthFrom(bytes[0]);
  if (length > size) return kIncomplete;
  const std::uint32_t character = length == 0 ? kEnd : Decoded(bytes, length);
  if (character >= kEnd) return FailAsInvalid();
  if (character >= kBeyond) {
    Hold(kFirstLow + (character - kBeyond) % 0x400, *state);
    *wide = static_cast<wchar_t>(kFirstHigh + (character - kBeyond) / 0x400);
    return 1;
  }
  *wide = static_cast<wchar_t>(character);
  return character == 0 ? 0 : length;
}

std::size_t __wrap_wcrtomb(char* text, wchar_t wide, std::mbstate_t* state) {
  std::uint32_t character = static_cast<std::uint16_t>(wide);
  const std::uint32_t high = HeldBy(*state);
  const bool isLow = character >= kFirstLow && character < kBehindLow;
  if ((high != 0) != isLow) return FailAsInvalid();
  if (character >= kFirstHigh && character < kFirstLow) {
    Hold(character, *state);
    return 0;
  }
  if (isLow) character = kBeyond + (high - kFirstHigh) * 0x400 + (character - kFirstLow);
  Hold(0, *state);
  const std::size_t length = character < 0x80      ? 1
                             : character < 0x800   ? 2
                             : character < kBeyond ? 3
                                                   : 4;
  constexpr unsigned kMark[] = {0, 0, 0xC0, 0xE0, 0xF0};
  for (std::size_t i = length - 1; i > 0; --i, character >>= 6) {
    text[i] = static_cast<char>(0x80 | (character & 0x3F));
  }
  text[0] = static_cast<char>(kMark[length] | character);
  return length;
}
// NOLINTEND(bugprone-reserved-identifier)
}
