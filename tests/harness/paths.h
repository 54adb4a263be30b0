// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane::harness {

// The built plug-in, and the root of the source tree.
std::string PluginFile();
std::string SourceDirectory();

}  // namespace corvane::harness
