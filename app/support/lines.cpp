// SPDX-License-Identifier: MIT
#include "app/support/lines.h"

#include <array>
#include <cerrno>
#include <cstddef>

#include "app/support/descriptor.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"

namespace corvane {

bool ReadLine(std::istream& text, const std::string& name, std::string* line) {
  if (std::getline(text, *line)) {
    if (line->ends_with('\r')) line->pop_back();
    return true;
  }
  const int problem = errno;
  ThrowIfInterrupted();
  if (text.bad()) FailOfSystem(name, problem);
  return false;
}

std::string ReadText(const std::filesystem::path& file) {
  Descriptor opened = Descriptor::OpenForReading(file);
  if (!opened.IsOpen()) FailOfSystem(file.string(), errno);
  std::string text;
  std::array<char, 1 << 16> bytes;
  for (;;) {
    ThrowIfInterrupted();
    const std::ptrdiff_t size = opened.Read(bytes.data(), bytes.size());
    if (size == 0) return text;
    if (size < 0 && errno != EINTR) FailOfSystem(file.string(), errno);
    if (size > 0) text.append(bytes.data(), static_cast<std::size_t>(size));
  }
}

}  // namespace corvane
