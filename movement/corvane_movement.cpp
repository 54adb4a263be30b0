// SPDX-License-Identifier: MIT
#include "movement/corvane_movement.h"

CorvaneMovement::~CorvaneMovement() = default;
