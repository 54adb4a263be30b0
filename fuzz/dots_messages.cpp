// SPDX-License-Identifier: MIT
//
// Messages into dot management alone.
#include "fuzz/messages.h"

FUZZ_TARGET(dots_messages, input) {
  constexpr const char* kElements[] = {"EDotManagement"};
  corvane::fuzz::SendMessages(kElements, input);
}
