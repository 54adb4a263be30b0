// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane::testing {

// The built plug-in, and the root of the source tree.
std::string PluginFile();
std::string SourceDirectory();

}  // namespace corvane::testing
