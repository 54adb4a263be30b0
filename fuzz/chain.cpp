// SPDX-License-Identifier: MIT
//
// Messages through the whole chain.
#include "fuzz/messages.h"

FUZZ_TARGET(chain, input) {
  constexpr const char* kElements[] = {"EColorInline", "EHalftoneModule", "EDotManagement"};
  corvane::fuzz::SendMessages(kElements, input);
}
