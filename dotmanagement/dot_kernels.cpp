// SPDX-License-Identifier: MIT
#include "dotmanagement/dot_kernels.h"

namespace corvane {

const DotKernels* DotKernelsFor(CpuLevel level) {
  return CORVANE_OF_LEVEL(level, nullptr, kDotKernels);
}

}  // namespace corvane
