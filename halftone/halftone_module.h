// SPDX-License-Identifier: MIT
//
// The second element of the chain: contone rows become binary planes.
#pragma once

#include "host/framework.h"
#include "host/raster.h"
#include "plugin/export.h"

class CORVANE_API EHalftoneModule final : public ZCOM::EObject {
 public:
  EHalftoneModule();
  EHalftoneModule(const EHalftoneModule&);
  EHalftoneModule& operator=(const EHalftoneModule&);
  ~EHalftoneModule() override;

  unsigned long Initialize() override;
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short sinkPad) override;

 private:
  ZCOM::SOURCEPAD* sourcePad_ = nullptr;
  ZCOM::SINKPAD* sinkPad_ = nullptr;
  QError ErrorObject;
};
