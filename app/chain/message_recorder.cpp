// SPDX-License-Identifier: MIT
#include "app/chain/message_recorder.h"

#include <algorithm>

#include "app/chain/message_json.h"
#include "host/raster.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

constexpr std::string_view kDotManagement = "EDotManagement";

}  // namespace

ScriptRecorder::ScriptRecorder(StagedFile& file, const ChainSetup& setup) : file_(file) {
  AppendSetupLine(setup, &text_);
  file_.Append(text_);
}

void ScriptRecorder::Record(ZCOM::QObject& message) {
  const QRaster* raster = AsRaster(message);
  text_.clear();
  AppendMessageLine(message, {}, raster ? raster->RowBytes : 0, &text_);
  file_.Append(text_);
}

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
    NotePage(static_cast<QStartPage&>(message));
  }
  text_.clear();
  AppendMessageLine(message, name, DataBytes(element, message), &text_);
  sink_(text_);
  arriving_[element + 1] = &message;
}

void OutputRecorder::NotePage(const QStartPage& page) {
  int descriptor = 0;
  unsigned short alternateMode = 0;
  unsigned long planes = 0;
  page.PageProperties.GetProperty("CMYKBinaryDescriptor", &descriptor, 0, "Standard");
  page.PageProperties.GetProperty("NumberOfPlanes", &planes, 0, "Standard");
  page.Properties.GetProperty("UseAlternateModes", &alternateMode, 0, "Standard");
  const PrintMode* const mode = FindPrintMode(descriptor);
  placedPage_.secondExpansion =
      mode != nullptr && mode->Alternate(alternateMode).placing.secondExpansion;
  placedPage_.planes = static_cast<std::uint8_t>(planes);
}

// `RowBytes`, but for rows of the second expansion: it doubles the planes of some inks, which
// `RowBytes` does not count. A raster that dot management passes on unchanged is not affected.
std::size_t OutputRecorder::DataBytes(std::size_t element, ZCOM::QObject& message) const {
  const QRaster* raster = AsRaster(message);
  if (raster == nullptr) return 0;
  const std::uint32_t planes = placedPage_.planes;
  if (chain_.ElementNames()[element] != kDotManagement || arriving_[element] == &message ||
      !placedPage_.secondExpansion || planes == 0) {
    return raster->RowBytes;
  }
  return std::max<std::size_t>(raster->RowBytes,
                               std::size_t{raster->RowBytes / planes} * kSecondExpansionPlanes);
}

}  // namespace corvane
