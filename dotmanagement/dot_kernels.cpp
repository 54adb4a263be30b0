// SPDX-License-Identifier: MIT
#include "dotmanagement/dot_kernels.h"

namespace corvane {

#if defined(CORVANE_HAS_SIMD)
namespace sse4 {
extern const DotKernels kDotKernels;
}
namespace avx2 {
extern const DotKernels kDotKernels;
}
namespace avx512 {
extern const DotKernels kDotKernels;
}

const DotKernels* DotKernelsFor(CpuLevel level) {
  switch (level) {
    case CpuLevel::Plain:
      return nullptr;
    case CpuLevel::Sse4:
      return &sse4::kDotKernels;
    case CpuLevel::Avx2:
      return &avx2::kDotKernels;
    case CpuLevel::Avx512:
      return &avx512::kDotKernels;
  }
  return nullptr;
}
#else
const DotKernels* DotKernelsFor(CpuLevel) { return nullptr; }
#endif

}  // namespace corvane
