// SPDX-License-Identifier: MIT
#include "app/chain/script_reader.h"

#include <fmt/format.h>

#include <iostream>

#include "app/support/failure.h"
#include "app/support/lines.h"

namespace corvane {

ScriptReader::ScriptReader(const std::string& path) : name_(path), input_(&std::cin) {
  if (path == "-") {
    name_ = "standard input";
    return;
  }
  file_.open(path, std::ios::binary);
  if (!file_) throw Failure(name_ + ": cannot open");
  input_ = &file_;
}

std::optional<std::variant<ChainSetup, ScriptMessage>> ScriptReader::Next() {
  while (ReadLine(*input_, name_, &line_)) {
    ++number_;
    if (line_.find_first_not_of(" \t") == std::string::npos) continue;
    try {
      return ParseScriptLine(line_);
    } catch (const Failure& failure) {
      Fail(failure.what());
    }
  }
  return std::nullopt;
}

void ScriptReader::Fail(std::string_view problem) const {
  throw Failure(fmt::format("{}: line {}: {}", name_, number_, problem));
}

}  // namespace corvane
