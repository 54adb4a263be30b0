// SPDX-License-Identifier: MIT
#pragma once

#include "movement/movement.h"
#include "plugin/export.h"

class CORVANE_API CorvaneMovement final : public Movement {
 public:
  ~CorvaneMovement() override;
};
