// SPDX-License-Identifier: MIT
//
// The first element of the chain: RGB rows become contone ink planes.
#pragma once

#include "host/framework.h"
#include "host/raster.h"
#include "plugin/export.h"

class CORVANE_API EColorInline final : public ZCOM::EObject {
 public:
  EColorInline();
  EColorInline(const EColorInline&);
  EColorInline& operator=(const EColorInline&);
  ~EColorInline() override;

  unsigned long Initialize() override;
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short sinkPad) override;

 private:
  ZCOM::SOURCEPAD* sourcePad_ = nullptr;
  ZCOM::SINKPAD* sinkPad_ = nullptr;
  QError ErrorObject;
};
