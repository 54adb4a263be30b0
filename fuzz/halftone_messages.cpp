// SPDX-License-Identifier: MIT
//
// Messages into the halftone element alone.
#include "fuzz/messages.h"

FUZZ_TARGET(halftone_messages, input) {
  constexpr const char* kElements[] = {"EHalftoneModule"};
  corvane::fuzz::SendMessages(kElements, input);
}
