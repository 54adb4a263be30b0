// SPDX-License-Identifier: MIT
//
// A script of messages (docs/replay.md), line by line.
#pragma once

#include <cstdint>
#include <fstream>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "app/chain/message_json.h"

namespace corvane {

class ScriptReader {
 public:
  // "-" is the standard input. Throws Failure for a file that cannot be opened.
  explicit ScriptReader(const std::string& path);

  // Parses the next line that is not blank; nothing at the end of the script. Throws Failure, which
  // names the line.
  std::optional<std::variant<ChainSetup, ScriptMessage>> Next();

  // Of the line that was handed out last; blank ones count.
  std::uint64_t LineNumber() const { return number_; }

  // Throws Failure for that line.
  [[noreturn]] void Fail(std::string_view problem) const;

 private:
  std::string name_;
  std::ifstream file_;
  std::istream* input_;
  std::string line_;
  std::uint64_t number_ = 0;
};

}  // namespace corvane
