// SPDX-License-Identifier: MIT
//
// What is compiled once per instruction level (cmake/Simd.cmake), and the one way to choose of it.
#pragma once

#include <type_traits>

#include "simd/level.h"

// Declares the same in the namespace of each level: CORVANE_EACH_LEVEL(void Run(Row& row);)
#define CORVANE_EACH_LEVEL(...) \
  namespace sse4 {              \
  __VA_ARGS__                   \
  }                             \
  namespace avx2 {              \
  __VA_ARGS__                   \
  }                             \
  namespace avx512 {            \
  __VA_ARGS__                   \
  }

// The address of `name` in the namespace of `level`; `plain` for the plain level and in a build
// without fast paths.
#if defined(CORVANE_HAS_SIMD)
#define CORVANE_OF_LEVEL(level, plain, name) \
  ::corvane::ChooseByLevel(level, &sse4::name, &avx2::name, &avx512::name, plain)
#else
#define CORVANE_OF_LEVEL(level, plain, name) (static_cast<void>(level), plain)
#endif

namespace corvane {

template <class T>
constexpr T ChooseByLevel(CpuLevel level, T sse4, T avx2, T avx512, std::type_identity_t<T> plain) {
  switch (level) {
    case CpuLevel::Plain:
      return plain;
    case CpuLevel::Sse4:
      return sse4;
    case CpuLevel::Avx2:
      return avx2;
    case CpuLevel::Avx512:
    case CpuLevel::Avx512Vbmi:
      return avx512;
  }
  return plain;
}

}  // namespace corvane
