// SPDX-License-Identifier: MIT
#include "app/commands/check_page.h"

#include <fmt/format.h>

#include <variant>
#include <vector>

#include "app/chain/script_reader.h"
#include "app/page/page_check.h"
#include "app/support/interrupt.h"
#include "app/support/output_stage.h"

namespace corvane {

int RunCheckPage(const CheckPageOptions& options) {
  ScriptReader script(options.script);
  std::string report;
  int pages = 0;
  bool sound = true;
  while (const auto line = script.Next()) {
    ThrowIfInterrupted();
    const auto* message = std::get_if<ScriptMessage>(&*line);
    if (message == nullptr || message->message->MessageKind != kStartPageMessage) continue;
    const std::vector<std::string> faults =
        CheckPageStart(static_cast<const QStartPage&>(*message->message));
    report += fmt::format("page {} (line {}): {}\n", ++pages, script.LineNumber(),
                          faults.empty() ? "sound" : "not as its mode needs it");
    for (const std::string& fault : faults) report += fmt::format("  {}\n", fault);
    sound = sound && faults.empty();
  }
  if (pages == 0) script.Fail("the script ends without a page start (kind 2)");
  WriteStandardOutput(report);
  return sound ? 0 : 1;
}

}  // namespace corvane
