// SPDX-License-Identifier: MIT
#include "app/message_recorder.h"

#include <algorithm>

#include "app/message_json.h"
#include "host/raster.h"

namespace corvane {
namespace {

constexpr std::string_view kDotManagement = "EDotManagement";
constexpr int kNineInks4800Descriptor = 109;
constexpr std::uint32_t kDoubledPlanes = 12;  // of a row after the second expansion

}  // namespace

ScriptRecorder::ScriptRecorder(const std::string& file, const ChainSetup& setup) : file_(file) {
  AppendSetupLine(setup, &text_);
  file_.Write(text_);
}

void ScriptRecorder::Record(ZCOM::QObject& message) {
  const QRaster* raster = AsRaster(message);
  text_.clear();
  AppendMessageLine(message, {}, raster ? raster->RowBytes : 0, &text_);
  file_.Write(text_);
}

void ScriptRecorder::Finish() { file_.Commit(); }

OutputRecorder::OutputRecorder(Chain& chain, LineSink sink)
    : chain_(chain), sink_(std::move(sink)), arriving_(chain.ElementNames().size() + 1) {
  for (std::size_t i = 0; i < chain.ElementNames().size(); ++i) {
    chain.Observe(i, [this, i](ZCOM::QObject& message) { Leave(i, message); });
  }
}

unsigned long OutputRecorder::Send(ZCOM::QObject& message) {
  arriving_[0] = &message;
  return chain_.Send(message);
}

void OutputRecorder::Leave(std::size_t element, ZCOM::QObject& message) {
  const std::string& name = chain_.ElementNames()[element];
  if (name == kDotManagement && message.MessageKind == kStartPageMessage &&
      message.IsPassThrough() == 0) {
    const auto& page = static_cast<QStartPage&>(message).PageProperties;
    unsigned long planes = 0;
    page.GetProperty("CMYKBinaryDescriptor", &dotManagementPage_.descriptor, 0, "Standard");
    page.GetProperty("NumberOfPlanes", &planes, 0, "Standard");
    dotManagementPage_.planes = static_cast<std::uint8_t>(planes);
  }
  text_.clear();
  AppendMessageLine(message, name, DataBytes(element, message), &text_);
  sink_(text_);
  arriving_[element + 1] = &message;
}

// `RowBytes`, but for the nine-ink 4800 dpi mode: there dot management doubles the planes of some
// inks, which `RowBytes` does not count. A raster that it passes on unchanged is not affected.
std::size_t OutputRecorder::DataBytes(std::size_t element, ZCOM::QObject& message) const {
  const QRaster* raster = AsRaster(message);
  if (raster == nullptr) return 0;
  const std::uint32_t planes = dotManagementPage_.planes;
  if (chain_.ElementNames()[element] != kDotManagement || arriving_[element] == &message ||
      dotManagementPage_.descriptor != kNineInks4800Descriptor || planes == 0) {
    return raster->RowBytes;
  }
  return std::max<std::size_t>(raster->RowBytes,
                               std::size_t{raster->RowBytes / planes} * kDoubledPlanes);
}

}  // namespace corvane
