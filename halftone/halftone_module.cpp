// SPDX-License-Identifier: MIT
#include "halftone/halftone_module.h"

#include "plugin/element_frame.h"

using corvane::ForwardMessage;
using corvane::kStandardGroup;

EHalftoneModule::EHalftoneModule() {
  Properties.SetProperty("EObjectType", "EHalftoneModule", kStandardGroup);
  Properties.SetProperty("EObjectName", "EHalftoneModule", kStandardGroup);
  ErrorObject.Properties.SetProperty("EObjectName", "EHalftoneError", kStandardGroup);
}

EHalftoneModule::EHalftoneModule(const EHalftoneModule&) = default;
EHalftoneModule& EHalftoneModule::operator=(const EHalftoneModule&) = default;
EHalftoneModule::~EHalftoneModule() = default;

unsigned long EHalftoneModule::Initialize() {
  return corvane::MakePads(*this, &sourcePad_, &sinkPad_);
}

unsigned long EHalftoneModule::DataArrived(ZCOM::QObject* message, unsigned short) {
  if (message == nullptr) return 1;
  if (message->IsPassThrough() != 0) return ForwardMessage(*this, message);
  return corvane::PassOn(*this, message);
}
