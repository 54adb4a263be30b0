// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "app/commands/command_facts.h"

namespace corvane {

// `corvane reference`: what shells and readers of manuals want to know of the commands.
struct ReferenceOptions {
  std::string kind;  // bash, zsh, fish or manual
};

int RunReference(const ReferenceOptions& options, const std::vector<CommandFacts>& commands);

// Completions: a script that the shell reads.
std::string BashCompletion(const std::vector<CommandFacts>& commands);
std::string ZshCompletion(const std::vector<CommandFacts>& commands);
std::string FishCompletion(const std::vector<CommandFacts>& commands);

// The manual page corvane(1), in the language of scdoc.
std::string ManualPage(const std::vector<CommandFacts>& commands);

}  // namespace corvane
