// SPDX-License-Identifier: MIT
//
// Messages into the colour element alone.
#include "fuzz/messages.h"

FUZZ_TARGET(color_messages, input) {
  constexpr const char* kElements[] = {"EColorInline"};
  corvane::fuzz::SendMessages(kElements, input);
}
