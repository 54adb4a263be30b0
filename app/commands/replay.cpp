// SPDX-License-Identifier: MIT
#include "app/commands/replay.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "app/chain/chain.h"
#include "app/chain/message_recorder.h"
#include "app/chain/row_bytes.h"
#include "app/chain/script_reader.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/limits.h"
#include "app/support/output_stage.h"
#include "app/tables/default_table.h"
#include "host/raster.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

constexpr const char* kStandard = "Standard";

// Gives every raster as many bytes as an element may read for its fields. An element trusts them,
// and a script may leave data out: points mode and unknown layouts read none.
class RowPadding {
 public:
  void Apply(const ScriptReader& script, ScriptMessage* line) {
    if (line->message->MessageKind == kStartPageMessage)
      NotePage(script, static_cast<QStartPage&>(*line->message));
    QRaster* raster = AsRaster(*line->message);
    if (raster == nullptr) return;
    const std::uint64_t bytes = read_.Of(*raster);
    if (bytes > limits::kRasterBytes) {
      script.Fail(fmt::format("the raster stands for {} bytes; at most {} are supported", bytes,
                              limits::kRasterBytes));
    }
    if (line->data.size() < bytes) line->data.resize(bytes);
    raster->Data = line->data.data();
  }

 private:
  void NotePage(const ScriptReader& script, const QStartPage& page) {
    const std::uint64_t width = read_.NotePage(page);
    int descriptor = 0;
    page.PageProperties.GetProperty("CMYKBinaryDescriptor", &descriptor, 0, kStandard);
    if (const PrintMode* mode = FindPrintMode(descriptor)) CheckRowSize(script, page, *mode, width);
  }

  // The elements hold rows as long as the page says; no page that is meant has a gigabyte of them.
  static void CheckRowSize(const ScriptReader& script, const QStartPage& page,
                           const PrintMode& mode, std::uint64_t width) {
    unsigned long input = 0, slot1 = 0, slot2 = 0;
    unsigned short alternateMode = 0;
    page.Properties.GetProperty("UseAlternateModes", &alternateMode, 0, kStandard);
    page.Properties.GetProperty("HorizontalInputResolution", &input, 0, kStandard);
    page.PageProperties.GetProperty("Slot1HorizontalRes", &slot1, 0, kStandard);
    page.PageProperties.GetProperty("Slot2HorizontalRes", &slot2, 0, kStandard);
    const unsigned long finest = std::max(
        {slot1, slot2, static_cast<unsigned long>(mode.Alternate(alternateMode).halftoneDpi)});
    const std::uint64_t factor = input == 0 ? 1 : std::max(finest / input, 1ul);
    const auto planes = static_cast<std::uint64_t>(PlanesOf(mode.inkSet));
    // In steps, so that nothing wraps.
    if (width <= limits::kRasterBytes && factor <= limits::kRasterBytes &&
        width * factor <= limits::kRasterBytes / planes) {
      return;
    }
    script.Fail(
        fmt::format("the page has rows of {} pixels, {} times as fine in print; at most {} "
                    "dots of all planes are supported",
                    width, factor, limits::kRasterBytes));
  }

  RowBytesRead read_;
};

void AddDefaultColorTable(ChainSetup* setup) {
  const bool readsTables = std::find(setup->elements.begin(), setup->elements.end(),
                                     "EColorInline") != setup->elements.end();
  char name[2];
  if (!readsTables ||
      setup->host.GetProperty("ColorTableFilename", name, sizeof name, nullptr, kStandard)) {
    return;
  }
  setup->host.SetProperty("ColorTableFilename", DefaultColorTable().c_str(), kStandard);
}

}  // namespace

int RunReplay(const ReplayOptions& options) {
  std::vector<std::filesystem::path> outputs = DiagnosticFilesIn(options.diagnostics, true);
  outputs.emplace_back(options.output);
  CheckOutputNames(outputs, {options.script});
  CheckEnding(options.output, kMessageEndings);
  UseDiagnosticsFolder(options.diagnostics);
  ScriptReader script(options.script);
  auto line = script.Next();
  ChainSetup setup;
  if (line && std::holds_alternative<ChainSetup>(*line)) {
    setup = std::get<ChainSetup>(std::move(*line));
    line = script.Next();
  }
  AddDefaultColorTable(&setup);

  const PluginLibrary library;
  Chain chain(library, setup);
  OutputStage stage;
  StagedFile& output = stage.CreateStream(options.output);
  OutputRecorder recorder(chain, [&](std::string_view text) { output.Append(text); });
  RowPadding padding;
  std::string resultLine;
  for (; line; line = script.Next()) {
    auto* message = std::get_if<ScriptMessage>(&*line);
    if (message == nullptr) script.Fail("the host line must be the first");
    ThrowIfInterrupted();
    padding.Apply(script, message);
    resultLine.clear();
    AppendResultLine(recorder.Send(*message->message), &resultLine);
    output.Append(resultLine);
  }
  CheckDiagnostics(options.diagnostics);
  stage.Commit();
  return 0;
}

}  // namespace corvane
