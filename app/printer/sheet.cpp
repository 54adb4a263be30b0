// SPDX-License-Identifier: MIT
#include "app/printer/sheet.h"

#include <algorithm>
#include <optional>
#include <thread>

#include "app/chain/chain.h"
#include "app/inks/drop_counter.h"
#include "app/inks/ink_model.h"
#include "app/output/tiff.h"
#include "app/printer/thumbnail.h"

namespace corvane {
namespace {

ChainSetup SetupFor(const std::string& colorTable) {
  ChainSetup setup;
  setup.host.SetProperty("ColorTableFilename", colorTable.c_str(), "Standard");
  return setup;
}

int EncoderThreads() {
  return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 8u));
}

PluginLibrary& Library() {
  static PluginLibrary library;
  return library;
}

}  // namespace

PrintedSheet PrintSheet(const PageJob& page, PageStream* stream, StagedFile& file,
                        StagedFile* thumbnail,
                        const std::function<void(std::uint32_t rows)>& progress) {
  TiffSink tiff(file, EncoderThreads());
  DropCounter drops;
  PageReceivers receivers;
  receivers.binary = {&tiff, &drops};
  std::optional<Thumbnail> picture;
  if (thumbnail != nullptr) receivers.binary.push_back(&picture.emplace(*thumbnail));
  receivers.progress = progress;
  Chain chain(Library(), SetupFor(page.colorTable));
  PrintPage(page, stream, chain, receivers);
  const PageShape shape = ShapeOf(page);
  return {shape, InkUseOf(shape, drops.Drops(), DefaultInkData())};
}

}  // namespace corvane
