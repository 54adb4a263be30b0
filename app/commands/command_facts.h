// SPDX-License-Identifier: MIT
//
// The commands and options of the program as data, for what is written about them: its manual page
// and the completions of shells.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace corvane {

struct OptionFacts {
  std::vector<std::string> names;    // with their dashes, the short ones first; none: positional
  std::string value;                 // its name, empty for a flag
  std::vector<std::string> choices;  // what the value may be, where that is a list of words
  std::string fallback;              // the value when it is not given, if that is shown
  std::string description;
  bool required = false;
  bool isFile = false;  // the value is the name of a file or folder
};

struct CommandFacts {
  std::string path;  // as it is typed: "corvane job make"
  std::string description;
  std::string example;  // a line to type; empty for a group of commands
  std::vector<OptionFacts> options;
  std::vector<std::string> children;  // the words that may follow; empty unless it is a group
};

// The program and all of its commands, each before those below it.
std::vector<CommandFacts> FactsOf(const CLI::App& program);

}  // namespace corvane
