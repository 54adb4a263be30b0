// SPDX-License-Identifier: MIT
#include "dotmanagement/dot_management.h"

#include "plugin/element_frame.h"

using corvane::ForwardMessage;
using corvane::kStandardGroup;

ECorvaneDotManagement::ECorvaneDotManagement() {
  Properties.SetProperty("EObjectType", "EDotManagement", kStandardGroup);
  Properties.SetProperty("Name", "EDotManagement", kStandardGroup);
}

ECorvaneDotManagement::ECorvaneDotManagement(const ECorvaneDotManagement&) = default;
ECorvaneDotManagement& ECorvaneDotManagement::operator=(const ECorvaneDotManagement&) = default;
ECorvaneDotManagement::~ECorvaneDotManagement() = default;

unsigned long ECorvaneDotManagement::Initialize() {
  return corvane::MakePads(*this, &sourcePad_, &sinkPad_);
}

unsigned long ECorvaneDotManagement::DataArrived(ZCOM::QObject* message, unsigned short) {
  if (message == nullptr) return 1;
  if (message->IsPassThrough() != 0) return ForwardMessage(*this, message);
  return corvane::PassOn(*this, message);
}
