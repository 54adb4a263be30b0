// SPDX-License-Identifier: MIT
#include "app/commands/command_facts.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {
namespace {

// The names of values that are files, alone or with an ending: FILE, FILE.svg|.png.
bool NamesFile(std::string_view value) {
  constexpr std::array<std::string_view, 5> kFiles = {"FILE", "DIR", "OUT", "MASK", "PROFILE"};
  return std::ranges::any_of(kFiles,
                             [&](std::string_view file) { return value.starts_with(file); });
}

std::vector<std::string> Matches(const std::string& text, const std::regex& pattern) {
  std::vector<std::string> found;
  for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
    found.push_back((*match)[1]);
  }
  return found;
}

// Either a check of the library's, "FORMAT:{tiff,raw}", or the words of a page setting, which stand
// in its description with their values: "plain (1), coated (2)".
std::vector<std::string> ChoicesOf(const std::string& type, const std::string& description) {
  static const std::regex kListed("[{,]([^{},]+)(?=[,}])"), kSetting("([a-z-]+) \\(\\d+\\)");
  const std::size_t list = type.find(":{");
  if (list != std::string::npos) return Matches(type.substr(list), kListed);
  return Matches(description, kSetting);
}

OptionFacts FactsOf(const CLI::Option& option) {
  OptionFacts facts;
  for (const std::string& name : option.get_snames()) facts.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) facts.names.push_back("--" + name);
  facts.description = option.get_description();
  facts.required = option.get_required();
  if (facts.names.empty()) {
    facts.value = option.get_name();
    facts.isFile = true;
  } else if (option.get_items_expected_max() > 0) {
    const std::string type = option.get_type_name();
    facts.value = type.substr(0, type.find(':'));
    facts.choices = ChoicesOf(type, facts.description);
    facts.fallback = option.get_default_str();
    facts.isFile = NamesFile(facts.value);
  }
  return facts;
}

std::string ExampleOf(const CLI::App& command) {
  const std::string footer = command.get_footer();
  const std::size_t line = footer.find("corvane ");
  return line == std::string::npos ? std::string() : footer.substr(line);
}

void Append(const CLI::App& command, const std::string& path, std::vector<CommandFacts>& all) {
  CommandFacts facts;
  facts.path = path;
  facts.description = command.get_description();
  facts.example = ExampleOf(command);
  for (const CLI::Option* option : command.get_options()) facts.options.push_back(FactsOf(*option));
  const std::vector<const CLI::App*> children =
      command.get_subcommands([](const CLI::App*) { return true; });
  for (const CLI::App* child : children) facts.children.push_back(child->get_name());
  all.push_back(facts);
  for (const CLI::App* child : children) Append(*child, path + ' ' + child->get_name(), all);
}

}  // namespace

std::vector<CommandFacts> FactsOf(const CLI::App& program) {
  std::vector<CommandFacts> all;
  Append(program, program.get_name(), all);
  return all;
}

}  // namespace corvane
