// SPDX-License-Identifier: MIT
#include "app/commands/reference.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string>
#include <string_view>
#include <vector>

#include "app/support/output_stage.h"

namespace corvane {
namespace {

// Text in which nothing has a meaning of scdoc's.
std::string Plain(const std::string& text) {
  std::string plain;
  for (const char c : text) {
    if (std::string_view("_*\\#<>~`[]").find(c) != std::string_view::npos) plain += '\\';
    plain += c;
  }
  return plain;
}

std::string Bold(const std::string& text) { return '*' + Plain(text) + '*'; }
std::string Underlined(const std::string& text) { return '_' + Plain(text) + '_'; }

std::string ManualOption(const OptionFacts& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.names) names.push_back(Bold(name));
  std::string text = fmt::format("{}", fmt::join(names, ", "));
  if (!option.value.empty()) text += (text.empty() ? "" : " ") + Underlined(option.value);
  text += "\n\t" + Plain(option.description) + '.';
  if (!option.choices.empty() && option.description.find(option.choices[0]) == std::string::npos) {
    text += " One of " + Plain(fmt::format("{}", fmt::join(option.choices, ", "))) + '.';
  }
  if (!option.fallback.empty()) text += " Default: " + Plain(option.fallback) + '.';
  if (option.required && !option.names.empty()) text += " Required.";
  return text + "\n\n";
}

std::string ManualCommand(const CommandFacts& command) {
  std::string text = "## " + command.path + "\n\n" + Plain(command.description) + ".\n\n";
  for (const OptionFacts& option : command.options) {
    const bool isHelp = !option.names.empty() && option.names.back() == "--help";
    if (!isHelp) text += ManualOption(option);
  }
  if (!command.example.empty()) {
    text += "Example:\n\n```\n" + command.example + "\n```\n\n";
  }
  return text;
}

}  // namespace

std::string ManualPage(const std::vector<CommandFacts>& commands) {
  std::string text = "corvane(1) \"\" \"Corvane manual\"\n\n# NAME\n\ncorvane - " +
                     std::string("makes printhead data of images and documents\n\n") +
                     "# SYNOPSIS\n\n*corvane* _COMMAND_ [_OPTION_...] [_FILE_...]\n\n"
                     "# DESCRIPTION\n\n" +
                     Plain(commands.front().description) +
                     ".\n\n*corvane* _COMMAND_ *--help* shows the options of a command, "
                     "*corvane --version* the version.\n\n# COMMANDS\n\n";
  for (std::size_t i = 1; i < commands.size(); ++i) {
    if (commands[i].children.empty()) text += ManualCommand(commands[i]);
  }
  return text +
         "# EXIT STATUS\n\n*0* when all was done, *1* when something failed, *2* for wrong "
         "usage.\n\n"
         "# ENVIRONMENT\n\n*CORVANE\\_CPU*\n\tThe instruction level: plain, or one that the "
         "machine "
         "has. The bytes are the same at each.\n";
}

int RunReference(const ReferenceOptions& options, const std::vector<CommandFacts>& commands) {
  WriteOutput({}, options.kind == "bash"   ? BashCompletion(commands)
                  : options.kind == "zsh"  ? ZshCompletion(commands)
                  : options.kind == "fish" ? FishCompletion(commands)
                                           : ManualPage(commands));
  return 0;
}

}  // namespace corvane
