// SPDX-License-Identifier: MIT
//
// The last element of the chain: places the dots of the glossy print modes.
#pragma once

#include "host/framework.h"
#include "host/raster.h"
#include "plugin/export.h"

class CORVANE_API ECorvaneDotManagement final : public ZCOM::EObject {
 public:
  ECorvaneDotManagement();
  ECorvaneDotManagement(const ECorvaneDotManagement&);
  ECorvaneDotManagement& operator=(const ECorvaneDotManagement&);
  ~ECorvaneDotManagement() override;

  unsigned long Initialize() override;
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short sinkPad) override;

 private:
  ZCOM::SOURCEPAD* sourcePad_ = nullptr;
  ZCOM::SINKPAD* sinkPad_ = nullptr;
  QError ErrorObject;
};
