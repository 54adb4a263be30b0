// SPDX-License-Identifier: MIT
#include "app/support/lines.h"

#include "app/support/failure.h"
#include "app/support/interrupt.h"

namespace corvane {

bool ReadLine(std::istream& text, const std::string& name, std::string* line) {
  if (std::getline(text, *line)) {
    if (line->ends_with('\r')) line->pop_back();
    return true;
  }
  ThrowIfInterrupted();
  if (text.bad()) throw Failure(name + ": cannot read");
  return false;
}

}  // namespace corvane
