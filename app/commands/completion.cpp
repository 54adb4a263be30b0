// SPDX-License-Identifier: MIT
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "app/commands/reference.h"

namespace corvane {
namespace {

// In single quotes, as all three shells read it.
std::string Quoted(std::string text, std::string_view quote = "'\\''") {
  for (std::size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += quote.size()) {
    text.replace(at, 1, quote);
  }
  return '\'' + text + '\'';
}

std::string Escaped(const std::string& text, std::string_view special) {
  std::string escaped;
  for (const char c : text) {
    if (special.find(c) != std::string_view::npos) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

// Everything but the program itself, as patterns of a case: 'corvane print' | 'corvane job'.
std::string CommandPatterns(const std::vector<CommandFacts>& commands) {
  std::vector<std::string> patterns;
  for (const CommandFacts& command : commands) patterns.push_back(Quoted(command.path));
  patterns.erase(patterns.begin());
  return fmt::format("{}", fmt::join(patterns, " | "));
}

std::vector<std::string> NamesOf(const CommandFacts& command) {
  std::vector<std::string> names = command.children;
  for (const OptionFacts& option : command.options) {
    names.insert(names.end(), option.names.begin(), option.names.end());
  }
  return names;
}

// Cases of the options whose value is one of some words.
std::string BashChoices(const CommandFacts& command) {
  std::string cases;
  for (const OptionFacts& option : command.options) {
    if (option.choices.empty()) continue;
    std::vector<std::string> patterns;
    for (const std::string& name : option.names) {
      patterns.push_back(Quoted(command.path + ' ' + name));
    }
    cases += fmt::format("    {}) words='{}' ;;\n", fmt::join(patterns, " | "),
                         fmt::join(option.choices, " "));
  }
  return cases;
}

// One argument of zsh's _arguments.
std::string ZshSpec(const OptionFacts& option) {
  std::string action;
  if (!option.choices.empty()) action = fmt::format("({})", fmt::join(option.choices, " "));
  if (option.isFile) action = "_files";
  const std::string value =
      option.value.empty() ? "" : fmt::format(":{}:{}", Escaped(option.value, ":\\"), action);
  if (option.names.empty()) return Quoted("*" + value);
  const std::string text = fmt::format("[{}]", Escaped(option.description, "[]\\")) + value;
  if (option.names.size() == 1) return Quoted(option.names[0] + text);
  return fmt::format("'({})'{{{}}}{}", fmt::join(option.names, " "), fmt::join(option.names, ","),
                     Quoted(text));
}

std::string ZshCommand(const CommandFacts& command, const std::vector<CommandFacts>& commands) {
  std::string text = fmt::format("    {})\n", Quoted(command.path));
  if (command.children.empty()) {
    text += "      _arguments";
    for (const OptionFacts& option : command.options) text += " \\\n        " + ZshSpec(option);
    return text + " ;;\n";
  }
  text += "      found=(";
  for (const std::string& child : command.children) {
    const auto facts = std::ranges::find(commands, command.path + ' ' + child, &CommandFacts::path);
    text += "\n        " + Quoted(child + ':' + facts->description);
  }
  return text + ")\n      _describe command found ;;\n";
}

// Whether the words typed so far lead to this command: fish's own test, once per word.
std::string FishCondition(const CommandFacts& command) {
  std::string condition;
  for (std::size_t at = command.path.find(' '); at != std::string::npos;) {
    const std::size_t end = command.path.find(' ', at + 1);
    if (!condition.empty()) condition += "; and ";
    condition += "__fish_seen_subcommand_from " + command.path.substr(at + 1, end - at - 1);
    at = end;
  }
  if (command.children.empty()) return condition;
  if (condition.empty()) return "__fish_use_subcommand";
  return fmt::format("{}; and not __fish_seen_subcommand_from {}", condition,
                     fmt::join(command.children, " "));
}

std::string FishOption(const OptionFacts& option) {
  std::string text;
  for (const std::string& name : option.names) {
    text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
  }
  if (!option.choices.empty()) {
    text += fmt::format(" -x -a '{}'", fmt::join(option.choices, " "));
  } else if (option.isFile) {
    text += " -r -F";
  } else if (!option.value.empty()) {
    text += " -x";
  }
  return text + " -d " + Quoted(Escaped(option.description, "\\"), "\\'");
}

}  // namespace

std::string BashCompletion(const std::vector<CommandFacts>& commands) {
  std::string choices, names;
  for (const CommandFacts& command : commands) {
    choices += BashChoices(command);
    names += fmt::format("      {}) words='{}' ;;\n", Quoted(command.path),
                         fmt::join(NamesOf(command), " "));
  }
  return fmt::format(R"(# Completion of corvane for bash. What it leaves open is the name of a file.
_corvane()
{{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}}
  local command=corvane words= i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case "$command ${{COMP_WORDS[i]}}" in
      {}) command+=" ${{COMP_WORDS[i]}}" ;;
    esac
  done
  if [[ $previous == = ]]; then previous=${{COMP_WORDS[COMP_CWORD - 2]}}; fi
  if [[ $current == = ]]; then previous=${{COMP_WORDS[COMP_CWORD - 1]}} current=; fi
  case "$command $previous" in
{}  esac
  if [[ -z $words ]]; then
    case "$command" in
{}    esac
    if [[ $current != -* && $words == -* ]]; then words=; fi
  fi
  COMPREPLY=($(compgen -W "$words" -- "$current"))
}}
complete -o default -F _corvane corvane
)",
                     CommandPatterns(commands), choices, names);
}

std::string ZshCompletion(const std::vector<CommandFacts>& commands) {
  std::string cases;
  for (const CommandFacts& command : commands) cases += ZshCommand(command, commands);
  return fmt::format(R"(#compdef corvane
# Completion of corvane for zsh.
_corvane() {{
  local command=corvane
  local -a found
  while (( CURRENT > 2 )); do
    case "$command $words[2]" in
      {}) command+=" $words[2]" ;;
      *) break ;;
    esac
    shift words
    (( CURRENT-- ))
  done
  case $command in
{}  esac
}}
_corvane "$@"
)",
                     CommandPatterns(commands), cases);
}

std::string FishCompletion(const std::vector<CommandFacts>& commands) {
  std::string text = "# Completion of corvane for fish.\n";
  for (const CommandFacts& command : commands) {
    const std::string begin = "complete -c corvane -n " + Quoted(FishCondition(command));
    for (const std::string& child : command.children) {
      const auto facts =
          std::ranges::find(commands, command.path + ' ' + child, &CommandFacts::path);
      text += fmt::format("{} -f -a {} -d {}\n", begin, child, Quoted(facts->description, "\\'"));
    }
    for (const OptionFacts& option : command.options) {
      if (!option.names.empty()) text += begin + FishOption(option) + '\n';
    }
  }
  return text;
}

}  // namespace corvane
