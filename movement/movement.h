// SPDX-License-Identifier: MIT
//
// The paper feed as the host sees it.
#pragma once

#include "printmode/print_mode.h"

class Movement {
 public:
  virtual ~Movement() = default;
};
