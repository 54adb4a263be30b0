// SPDX-License-Identifier: MIT
#include "color/color_inline.h"

#include "plugin/element_frame.h"

using corvane::ForwardMessage;
using corvane::kStandardGroup;

EColorInline::EColorInline() {
  Properties.SetProperty("EObjectType", "EColorInline", kStandardGroup);
  Properties.SetProperty("EObjectName", "EColorInline", kStandardGroup);
  ErrorObject.Properties.SetProperty("EObjectName", "EColorInline", kStandardGroup);
}

EColorInline::EColorInline(const EColorInline&) = default;
EColorInline& EColorInline::operator=(const EColorInline&) = default;
EColorInline::~EColorInline() = default;

unsigned long EColorInline::Initialize() {
  return corvane::MakePads(*this, &sourcePad_, &sinkPad_);
}

unsigned long EColorInline::DataArrived(ZCOM::QObject* message, unsigned short) {
  if (message == nullptr) return 1;
  if (message->IsPassThrough() != 0) return ForwardMessage(*this, message);
  return corvane::PassOn(*this, message);
}
