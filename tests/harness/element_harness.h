// SPDX-License-Identifier: MIT
//
// Loose pads around one element: push messages in, look at what comes out.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/raster.h"

namespace corvane::harness {

// What left the element, copied, since an element refills its messages.
struct SentMessage {
  unsigned short kind = 0;
  ZCOM::PROPERTIES properties;
  ZCOM::PROPERTIES pageProperties;  // of a page start
  std::uint32_t rasterFormat = 0, passThroughValue = 0, row = 0, firstPixel = 0, endPixel = 0,
                width = 0, rowBytes = 0;
  std::vector<unsigned char> data;  // of a raster
};

// The element behind the one under test: records what it gets and answers `result`.
class RecordingElement final : public ZCOM::EObject {
 public:
  RecordingElement() : pad(this, 0) {}

  unsigned long DataArrived(ZCOM::QObject* message, unsigned short) override {
    SentMessage sent;
    sent.kind = message->MessageKind;
    sent.properties = message->Properties;
    if (const auto* start = dynamic_cast<const QStartPage*>(message)) {
      sent.pageProperties = start->PageProperties;
    }
    if (const auto* raster = dynamic_cast<const QRaster*>(message)) {
      sent.rasterFormat = raster->RasterFormat;
      sent.passThroughValue = raster->PassThroughValue;
      sent.row = raster->Row;
      sent.firstPixel = raster->FirstPixel;
      sent.endPixel = raster->EndPixel;
      sent.width = raster->Width;
      sent.rowBytes = raster->RowBytes;
      const std::size_t bytes = std::max<std::size_t>(raster->RowBytes, dataBytes);
      if (raster->Data != nullptr) sent.data.assign(raster->Data, raster->Data + bytes);
    }
    messages.push_back(std::move(sent));
    return result;
  }

  ZCOM::SINKPAD pad;
  unsigned long result = 1;
  std::size_t dataBytes = 0;  // of every row, where a row has more than its RowBytes
  std::vector<SentMessage> messages;
};

// Owns an element made by plain `new` or by a factory. Set properties, then call `Start`.
class ElementHarness {
 public:
  explicit ElementHarness(ZCOM::EObject* element) : element_(element) {
    element_->HostProperties = &host;
  }

  // Initializes the element and links the recorder behind it; returns Initialize's result.
  unsigned long Start() {
    const unsigned long ready = element_->Initialize();
    if (ZCOM::SOURCEPAD* source = element_->GetSourcePad(0)) source->Link(&next.pad);
    return ready;
  }

  unsigned long Push(ZCOM::QObject& message) { return element_->DataArrived(&message, 0); }
  unsigned long Push(unsigned short kind) {
    ZCOM::QObject message(kind);
    return Push(message);
  }

  ZCOM::EObject& Element() { return *element_; }

  // Takes what has come out so far.
  std::vector<SentMessage> TakeSent() { return std::exchange(next.messages, {}); }

  ZCOM::PROPERTIES host;
  RecordingElement next;

 private:
  std::unique_ptr<ZCOM::EObject> element_;
};

// A property as a number, or `missing`.
inline long NumberOf(const ZCOM::PROPERTIES& bag, const char* key, long missing = -1) {
  unsigned long value = 0;
  return bag.GetProperty(key, &value, 0ul, "Standard") ? static_cast<long>(value) : missing;
}

// A property as a text; empty when it is missing.
inline std::string TextOf(const ZCOM::PROPERTIES& bag, const char* key) {
  char text[256] = "";
  bag.GetProperty(key, text, sizeof text, "", "Standard");
  return text;
}

}  // namespace corvane::harness
