// SPDX-License-Identifier: MIT
#include "app/document/eps_box.h"

#include <algorithm>
#include <cstdint>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

namespace corvane {
namespace {

// How much of either end of the file is looked at.
constexpr std::size_t kMostLookedAt = std::size_t{64} << 10;

constexpr std::string_view kBox = "%%BoundingBox:", kExactBox = "%%HiResBoundingBox:";
constexpr std::string_view kPutOff = "(atend)";

std::string BytesAt(const Descriptor& file, std::uint64_t offset, std::size_t size) {
  std::string bytes(size, '\0');
  std::size_t done = 0;
  while (done < size) {
    const std::ptrdiff_t more = file.ReadAt(offset + done, bytes.data() + done, size - done);
    if (more <= 0) break;
    done += static_cast<std::size_t>(more);
  }
  bytes.resize(done);
  return bytes;
}

// Where the program lies in the file: all of it, or what the head of a file with a picture says.
struct Section {
  std::uint64_t begin = 0, end = 0;
};

Section ProgramOf(const Descriptor& file, std::uint64_t fileBytes) {
  constexpr std::string_view kWithPicture = "\xc5\xd0\xd3\xc6";
  const std::string head = BytesAt(file, 0, 12);
  if (head.size() < 12 || !head.starts_with(kWithPicture)) return {0, fileBytes};
  const auto number = [&](std::size_t at) {
    std::uint64_t value = 0;
    for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<std::uint8_t>(head[at + i]);
    return value;
  };
  return {std::min(number(4), fileBytes), std::min(number(4) + number(8), fileBytes)};
}

// The first line of a text, which loses it with its end.
std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

std::optional<EpsBox> BoxIn(std::string_view words) {
  std::istringstream text{std::string(words)};
  text.imbue(std::locale::classic());
  EpsBox box;
  if (!(text >> box.left >> box.bottom >> box.right >> box.top)) return std::nullopt;
  return box.left < box.right && box.bottom < box.top ? std::optional(box) : std::nullopt;
}

// What comments say of boxes.
struct Said {
  std::optional<EpsBox> box, exactBox;
  bool putOff = false;

  void Take(std::string_view line) {
    for (const auto& [key, found] : {std::pair(kBox, &box), std::pair(kExactBox, &exactBox)}) {
      if (!line.starts_with(key)) continue;
      const std::string_view words = line.substr(key.size());
      putOff = putOff || words.find(kPutOff) != std::string_view::npos;
      if (const auto said = BoxIn(words)) *found = said;
    }
  }
};

// Up to the first line that is no comment.
Said HeadOf(std::string_view text) {
  Said said;
  while (!text.empty()) {
    const std::string_view line = TakeLine(text);
    if (line.starts_with("%%EndComments") || (!line.empty() && line[0] != '%')) break;
    said.Take(line);
  }
  return said;
}

// The last of each: those of illustrations within stand before it.
Said TailOf(std::string_view text) {
  Said said;
  while (!text.empty()) said.Take(TakeLine(text));
  return said;
}

}  // namespace

std::optional<EpsBox> BoxOfEps(const Descriptor& file, std::uint64_t fileBytes) {
  const Section program = ProgramOf(file, fileBytes);
  const auto most =
      static_cast<std::size_t>(std::min<std::uint64_t>(program.end - program.begin, kMostLookedAt));
  const std::string head = BytesAt(file, program.begin, most);
  Said said = HeadOf(
      std::string_view(head).substr(std::min(head.find_first_not_of(" \t\r\n\x04"), head.size())));
  if (said.putOff) {
    const std::string tail = BytesAt(file, program.end - most, most);
    const Said last = TailOf(tail);
    if (!said.box) said.box = last.box;
    if (!said.exactBox) said.exactBox = last.exactBox;
  }
  return said.exactBox ? said.exactBox : said.box;
}

}  // namespace corvane
