// SPDX-License-Identifier: MIT
//
// Scripts of corvane replay: every line by itself, and the script sent into a chain.
#include "app/commands/replay.h"

#include <dlfcn.h>

#include "app/chain/message_json.h"
#include "app/chain/plugin_library.h"
#include "fuzz/fuzz.h"
#include "tests/harness/scratch_folder.h"

namespace {

using namespace corvane;

// What is read has to be readable again from what is written of it.
void ReadLine(std::string_view line) {
  auto read = ParseScriptLine(line);
  std::string written;
  if (auto* setup = std::get_if<ChainSetup>(&read)) {
    AppendSetupLine(*setup, &written);
  } else {
    auto& message = std::get<ScriptMessage>(read);
    AppendMessageLine(*message.message, "", message.data.size(), &written);
  }
  FUZZ_EXPECT(fuzz::Succeeds([&] { ParseScriptLine(written); }));
}

}  // namespace

FUZZ_TARGET(replay, input) {
  static const DiagnosticsFolder folder;  // a script may ask for logs
  // Stays loaded: libFuzzer counts in it between the runs and behind the last, too.
  [[maybe_unused]] static void* const plugin =
      dlopen(PluginFile().c_str(), RTLD_NOW | RTLD_NODELETE);
  std::string_view rest = fuzz::TextOf(input);
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    fuzz::Succeeds([&] { ReadLine(line); });
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
  }
  fuzz::Succeeds([&] { RunReplay({fuzz::FileOf(input), "/dev/null", ""}); });
}
