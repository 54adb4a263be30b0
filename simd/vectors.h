// SPDX-License-Identifier: MIT
//
// Vectors of 128 and of 256 bits for the fast paths: the latter one register where the level has
// it, else two worked on together. Included by files that are compiled once per instruction level
// (cmake/Simd.cmake); everything has internal linkage, so that no level gets another's code.
#pragma once

#include <immintrin.h>

#define CORVANE_INLINE inline __attribute__((always_inline))

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

using Vector128 = __m128i;
#if CORVANE_SIMD_LEVEL >= 2
using Vector256 = __m256i;
#else
struct Vector256 {
  __m128i low;
  __m128i high;
};
#endif

CORVANE_INLINE Vector128 Load128(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
CORVANE_INLINE Vector128 Load64(const void* p) {
  return _mm_loadl_epi64(static_cast<const __m128i*>(p));
}

#if CORVANE_SIMD_LEVEL >= 2

CORVANE_INLINE Vector256 Join(Vector128 low, Vector128 high) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
}
CORVANE_INLINE Vector128 Low(Vector256 a) { return _mm256_castsi256_si128(a); }
CORVANE_INLINE Vector128 High(Vector256 a) { return _mm256_extracti128_si256(a, 1); }
// Bytes of `b` where the mask has its top bit set, of `a` elsewhere.
CORVANE_INLINE Vector256 Choose(Vector256 a, Vector256 b, Vector256 mask) {
  return _mm256_blendv_epi8(a, b, mask);
}

#define CORVANE_BINARY(Name, op128, op256)                                              \
  CORVANE_INLINE Vector128 Name(Vector128 a, Vector128 b) { return _mm_##op128(a, b); } \
  CORVANE_INLINE Vector256 Name(Vector256 a, Vector256 b) { return _mm256_##op256(a, b); }
#define CORVANE_SHIFT(Name, op) \
  CORVANE_INLINE Vector256 Name(Vector256 a, int bits) { return _mm256_##op(a, bits); }

#else

CORVANE_INLINE Vector256 Join(Vector128 low, Vector128 high) { return {low, high}; }
CORVANE_INLINE Vector128 Low(const Vector256& a) { return a.low; }
CORVANE_INLINE Vector128 High(const Vector256& a) { return a.high; }
CORVANE_INLINE Vector256 Choose(const Vector256& a, const Vector256& b, const Vector256& mask) {
  return {_mm_blendv_epi8(a.low, b.low, mask.low), _mm_blendv_epi8(a.high, b.high, mask.high)};
}

#define CORVANE_BINARY(Name, op128, op256)                                              \
  CORVANE_INLINE Vector128 Name(Vector128 a, Vector128 b) { return _mm_##op128(a, b); } \
  CORVANE_INLINE Vector256 Name(const Vector256& a, const Vector256& b) {               \
    return {_mm_##op128(a.low, b.low), _mm_##op128(a.high, b.high)};                    \
  }
#define CORVANE_SHIFT(Name, op)                                 \
  CORVANE_INLINE Vector256 Name(const Vector256& a, int bits) { \
    return {_mm_##op(a.low, bits), _mm_##op(a.high, bits)};     \
  }

#endif

// On words of 16 bits.
CORVANE_BINARY(Add, add_epi16, add_epi16)
CORVANE_BINARY(Sub, sub_epi16, sub_epi16)
CORVANE_BINARY(AddSaturated, adds_epi16, adds_epi16)
CORVANE_BINARY(Greater, cmpgt_epi16, cmpgt_epi16)
CORVANE_BINARY(Equal, cmpeq_epi16, cmpeq_epi16)
CORVANE_BINARY(MultiplyLow, mullo_epi16, mullo_epi16)
CORVANE_BINARY(MultiplyHigh, mulhi_epi16, mulhi_epi16)
CORVANE_BINARY(MultiplyHighUnsigned, mulhi_epu16, mulhi_epu16)
CORVANE_BINARY(MultiplyAddPairs, madd_epi16, madd_epi16)
CORVANE_BINARY(Pack16, packus_epi16, packus_epi16)
CORVANE_SHIFT(ShiftLeft16, slli_epi16)
CORVANE_SHIFT(ShiftRight16, srli_epi16)

// On words of 32 bits.
CORVANE_BINARY(AddPairs32, hadd_epi32, hadd_epi32)
CORVANE_BINARY(Pack32, packus_epi32, packus_epi32)
CORVANE_BINARY(UnpackLow32, unpacklo_epi32, unpacklo_epi32)
CORVANE_BINARY(UnpackHigh32, unpackhi_epi32, unpackhi_epi32)
CORVANE_SHIFT(ShiftRight32, srli_epi32)

// On bytes and bits.
CORVANE_BINARY(And, and_si128, and_si256)
CORVANE_BINARY(AndNot, andnot_si128, andnot_si256)  // ~a & b
CORVANE_BINARY(Or, or_si128, or_si256)
CORVANE_BINARY(Xor, xor_si128, xor_si256)
CORVANE_BINARY(ShuffleBytes, shuffle_epi8, shuffle_epi8)
CORVANE_BINARY(UnpackLow8, unpacklo_epi8, unpacklo_epi8)
CORVANE_BINARY(UnpackHigh8, unpackhi_epi8, unpackhi_epi8)

#undef CORVANE_BINARY
#undef CORVANE_SHIFT

}  // namespace
}  // namespace corvane::CORVANE_SIMD_NAMESPACE
