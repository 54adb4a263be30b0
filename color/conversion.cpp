// SPDX-License-Identifier: MIT
#include "color/conversion.h"

namespace corvane {

void ConversionSlots::Clear() {
  // All 32 bits of a key can belong to a pixel, but its low bits agree with the slot's number: a
  // key with another blue nibble matches nothing there.
  for (std::uint32_t slot = 0; slot < kCount; ++slot) keys[slot] = ~slot & 15;
}

const Converters& ConvertersFor(CpuLevel level) {
  return *CORVANE_OF_LEVEL(level, &kPlainConverters, kConverters);
}

}  // namespace corvane
