// SPDX-License-Identifier: MIT
#include "app/commands/reference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tests/app/commands/run_corvane.h"

namespace corvane {
namespace {

using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

using Words = std::vector<std::string>;

Words Matches(const std::string& text, const std::string& pattern) {
  Words found;
  const std::regex expression(pattern, std::regex::multiline);
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
       ++match) {
    found.push_back((*match)[1]);
  }
  return found;
}

std::string Help(Words command) {
  command.emplace_back("--help");
  return Output(command);
}

// The words that lead to each command that is no group.
std::vector<Words> AllCommands(const Words& group = {}) {
  const std::string help = Help(group);
  const std::size_t list = help.find("Subcommands:");
  if (list == std::string::npos) return {group};
  std::vector<Words> all;
  for (const std::string& name : Matches(help.substr(list), "^  ([a-z-]+)")) {
    Words command = group;
    command.push_back(name);
    for (const Words& below : AllCommands(command)) all.push_back(below);
  }
  return all;
}

TEST(Reference, HasAllThatHelpShows) {
  const std::vector<Words> commands = AllCommands();
  EXPECT_THAT(commands, IsSupersetOf(std::vector<Words>{{"print"}, {"table", "build"}}));
  const std::string bash = Output({"reference", "bash"}), zsh = Output({"reference", "zsh"}),
                    fish = Output({"reference", "fish"}), manual = Output({"reference", "manual"});
  for (const Words& command : commands) {
    std::string path = "corvane";
    for (const std::string& word : command) path += ' ' + word;
    SCOPED_TRACE(path);
    const std::string help = Help(command);
    EXPECT_THAT(help, HasSubstr("Example:\n  " + path + ' '));
    EXPECT_THAT(manual, HasSubstr("## " + path + '\n'));
    for (const std::string& option : Matches(help, "^  (?:-[a-zA-Z],)?--([a-z-]+)")) {
      SCOPED_TRACE(option);
      EXPECT_THAT(Matches(bash, '\'' + path + "'\\) words='(?:.* )?--(" + option + ")[ ']"),
                  Not(testing::IsEmpty()));
      EXPECT_THAT(zsh, HasSubstr("--" + option));
      EXPECT_THAT(fish, HasSubstr(" -l " + option));
      if (option != "help") {
        EXPECT_THAT(manual, HasSubstr("*--" + option + "*"));
      }
    }
  }
}

// What bash offers for the last of these words.
Words Completed(const std::string& script, const std::string& words) {
  const std::string command = "bash -c '. " + script + "; COMP_WORDS=(corvane " + words +
                              "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _corvane; "
                              "printf \"%s\\n\" \"${COMPREPLY[@]}\"'";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
  std::string text;
  for (int c = 0; (c = std::fgetc(pipe.get())) != EOF;) text += static_cast<char>(c);
  return Matches(text, "^(.+)$");
}

TEST(Reference, CompletesInBash) {
  const std::string script = testing::TempDir() + "corvane-completion";
  std::ofstream(script) << Output({"reference", "bash"});
  const std::vector<std::pair<std::string, Words>> kCases = {
      {"pri", {"print"}},
      {"job ma", {"make"}},
      {"job make night.job --landsc", {"--landscape"}},
      {"print --media gl", {"glossy"}},
      {"print --media = gl", {"glossy"}},
      {"print a.png --format \"\"", {"tiff", "raw"}},
      {"table build --lim", {"--limit"}},
      {"print phot", {}},  // the name of a file
      {"print --output pri", {}},
  };
  for (const auto& [words, wanted] : kCases) EXPECT_EQ(Completed(script, words), wanted) << words;
}

TEST(Reference, TellsTheVersion) {
  EXPECT_THAT(Output({"--version"}), testing::MatchesRegex("corvane [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
}  // namespace corvane
