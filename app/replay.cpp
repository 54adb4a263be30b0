// SPDX-License-Identifier: MIT
#include "app/replay.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <istream>
#include <optional>
#include <string_view>

#include "app/chain.h"
#include "app/default_table.h"
#include "app/failure.h"
#include "app/interrupt.h"
#include "app/message_json.h"
#include "app/message_recorder.h"
#include "app/output_file.h"
#include "host/raster.h"
#include "printmode/print_mode.h"

namespace corvane {
namespace {

constexpr const char* kStandard = "Standard";
constexpr std::uint64_t kMaxRasterBytes = std::uint64_t{1} << 30;
constexpr std::uint64_t kMaxPixelBytes = 4;  // of the RGB layouts

// The script, line by line. Blank lines count but are not handed out.
class ScriptReader {
 public:
  explicit ScriptReader(const std::string& path) : name_(path) {
    if (path == "-") {
      name_ = "standard input";
      return;
    }
    file_.open(path, std::ios::binary);
    if (!file_) throw Failure(name_ + ": cannot open");
    input_ = &file_;
  }

  // Parses the next line; nothing at the end of the script.
  std::optional<std::variant<ChainSetup, ScriptMessage>> Next() {
    while (std::getline(*input_, line_)) {
      ++number_;
      if (line_.find_first_not_of(" \t\r") == std::string::npos) continue;
      try {
        return ParseScriptLine(line_);
      } catch (const Failure& failure) {
        Fail(failure.what());
      }
    }
    ThrowIfInterrupted();
    if (input_->bad()) throw Failure(name_ + ": cannot read");
    return std::nullopt;
  }

  [[noreturn]] void Fail(std::string_view problem) const {
    throw Failure(fmt::format("{}: line {}: {}", name_, number_, problem));
  }

 private:
  std::string name_;
  std::ifstream file_;
  std::istream* input_ = &std::cin;
  std::string line_;
  std::uint64_t number_ = 0;
};

// Gives every raster as many bytes as an element may read for its fields. An element trusts them,
// and a script may leave data out: points mode and unknown layouts read none.
class RowPadding {
 public:
  void Apply(const ScriptReader& script, ScriptMessage* line) {
    if (line->message->MessageKind == kStartPageMessage)
      NotePage(static_cast<QStartPage&>(*line->message));
    QRaster* raster = AsRaster(*line->message);
    if (raster == nullptr) return;
    const std::uint64_t bytes = std::max<std::uint64_t>(raster->RowBytes, BytesRead(*raster));
    if (bytes > kMaxRasterBytes) {
      script.Fail(fmt::format("the raster stands for {} bytes; at most {} are supported", bytes,
                              kMaxRasterBytes));
    }
    if (line->data.size() < bytes) line->data.resize(bytes);
    raster->Data = line->data.data();
  }

 private:
  // An element may still hold an earlier page, so the widest one counts and that of most planes.
  void NotePage(const QStartPage& page) {
    int descriptor = 0;
    unsigned long width = 0;
    unsigned short left = 0;
    unsigned short right = 0;
    page.Properties.GetProperty("PrintableWidth", &width, 0, kStandard);
    page.Properties.GetProperty("LeftOverSprayPixels", &left, 0, kStandard);
    page.Properties.GetProperty("RightOverSprayPixels", &right, 0, kStandard);
    page.PageProperties.GetProperty("CMYKBinaryDescriptor", &descriptor, 0, kStandard);
    widest_ = std::max(widest_, std::uint64_t{width} + left + right);
    if (const PrintMode* mode = FindPrintMode(descriptor)) {
      planes_ = std::max(planes_, PlanesOf(mode->inkSet));
    }
  }

  std::uint64_t BytesRead(const QRaster& raster) const {
    switch (raster.MessageKind) {
      case kRgbRasterMessage:
        return kMaxPixelBytes * std::min<std::uint64_t>(raster.EndPixel, widest_);
      case kContoneRasterMessage: {
        if (planes_ == 0) return 0;
        const std::uint64_t stride = raster.Width == 0 ? widest_ : raster.Width;
        return (planes_ - 1) * stride + std::min(stride, widest_);
      }
      default:
        return raster.RowBytes;
    }
  }

  std::uint64_t widest_ = 0;  // pixels
  int planes_ = 0;            // contone planes
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
  CheckOutputNames({options.output}, {options.script});
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
  OutputFile output(options.output);
  OutputRecorder recorder(chain, [&](std::string_view text) { output.Write(text); });
  RowPadding padding;
  std::string resultLine;
  for (; line; line = script.Next()) {
    auto* message = std::get_if<ScriptMessage>(&*line);
    if (message == nullptr) script.Fail("the host line must be the first");
    ThrowIfInterrupted();
    padding.Apply(script, message);
    resultLine.clear();
    AppendResultLine(recorder.Send(*message->message), &resultLine);
    output.Write(resultLine);
    output.Flush();
  }
  output.Commit();
  return 0;
}

}  // namespace corvane
