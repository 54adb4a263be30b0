// SPDX-License-Identifier: MIT
#include "plugin/frame/element_frame.h"

#include <new>

namespace corvane {

std::int32_t PageInt(const ZCOM::PROPERTIES& bag, const char* key) {
  int value = 0;
  bag.GetProperty(key, &value, 0, kStandardGroup);
  return value;
}

std::uint32_t PageNumber(const ZCOM::PROPERTIES& bag, const char* key) {
  return static_cast<std::uint32_t>(PageInt(bag, key));
}

std::uint16_t PageNumber16(const ZCOM::PROPERTIES& bag, const char* key) {
  return static_cast<std::uint16_t>(PageInt(bag, key));
}

std::uint64_t PageWidthWithOverspray(const ZCOM::PROPERTIES& bag) {
  return std::uint64_t{PageNumber(bag, property::kPrintableWidth)} +
         PageNumber16(bag, property::kLeftOverSprayPixels) +
         PageNumber16(bag, property::kRightOverSprayPixels);
}

unsigned long MakePads(ZCOM::EObject& element) {
  if (element.GetSourcePad(0) == nullptr) {
    auto* const source = new (std::nothrow) ZCOM::SOURCEPAD(&element);
    if (source != nullptr && element.AddSourcePad(source) == 0) delete source;
  }
  if (element.GetSinkPad(0) == nullptr) {
    auto* const sink = new (std::nothrow) ZCOM::SINKPAD(&element, 0);
    if (sink != nullptr && element.AddSinkPad(sink) == 0) delete sink;
  }
  return element.GetSourcePad(0) != nullptr && element.GetSinkPad(0) != nullptr;
}

unsigned long ForwardMessage(ZCOM::EObject& element, ZCOM::QObject* message) {
  ZCOM::SOURCEPAD* source = element.GetSourcePad(0);
  if (source == nullptr) return 0;
  if (const ZCOM::SINKPAD* sink = source->LinkedSinkPad) {
    return sink->Owner == nullptr ? 0 : sink->Owner->DataArrived(message, sink->Index);
  }
  if (source->Owner != nullptr) {
    source->Owner->ErrorMessage("SourcePad: No sink pad (broken pipe)\n");
  }
  return 0;
}

unsigned long PassOn(ZCOM::EObject& element, ZCOM::QObject* message) {
  // Asked first: what follows may change the message, or delete it.
  const bool isControl =
      message->MessageKind >= kControlMessage && message->MessageKind <= kEndJobMessage;
  const unsigned long result = ForwardMessage(element, message);
  return isControl ? result : 1;
}

void ReserveError(QError& error, const char* longestText) {
  error.Properties.SetProperty(property::kErrorID, 0, kStandardGroup);
  error.Properties.SetProperty(property::kErrorString, longestText, kStandardGroup);
}

void SendError(ZCOM::EObject& element, QError& error, int id, const char* text) {
  error.Properties.SetProperty(property::kErrorID, id, kStandardGroup);
  error.Properties.SetProperty(property::kErrorString, text, kStandardGroup);
  ForwardMessage(element, &error);
}

}  // namespace corvane
