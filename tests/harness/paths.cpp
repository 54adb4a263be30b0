// SPDX-License-Identifier: MIT
#include "tests/harness/paths.h"

namespace corvane::harness {

std::string PluginFile() { return CORVANE_PLUGIN_FILE; }
std::string SourceDirectory() { return CORVANE_SOURCE_DIR; }

}  // namespace corvane::harness
