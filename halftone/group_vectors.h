// SPDX-License-Identifier: MIT
//
// The vectors of the group engine: 32 words in a register with AVX-512, else 16 (two registers with
// SSE4.1), and what differs between them. A mask has a bit for each word with AVX-512, else all
// ones or zeros in each. Included by files that are compiled once per instruction level; everything
// has internal linkage, so that no level gets another's code.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "halftone/engine_groups.h"
#include "halftone/weight_maps.h"
#include "simd/vectors.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

#if CORVANE_SIMD_LEVEL >= 3

constexpr int kLanes = 32;
constexpr bool kDropIsLast = true;  // a comparison takes longer than the shares
using Words = __m512i;
using Mask = __mmask32;

CORVANE_INLINE Words Load(const void* from) { return _mm512_load_si512(from); }
CORVANE_INLINE void Store(void* to, Words v) { _mm512_store_si512(to, v); }
CORVANE_INLINE Words Widen(const std::uint8_t* bytes) {
  return _mm512_cvtepu8_epi16(_mm256_load_si256(reinterpret_cast<const __m256i*>(bytes)));
}
CORVANE_INLINE void StoreAsBytes(std::uint8_t* to, Words v) {
  _mm256_store_si256(reinterpret_cast<__m256i*>(to), _mm512_cvtepi16_epi8(v));
}
CORVANE_INLINE Words Zero() { return _mm512_setzero_si512(); }
CORVANE_INLINE Words Repeat(int word) { return _mm512_set1_epi16(static_cast<short>(word)); }

CORVANE_INLINE Words Add(Words a, Words b) { return _mm512_add_epi16(a, b); }
CORVANE_INLINE Words Sub(Words a, Words b) { return _mm512_sub_epi16(a, b); }
CORVANE_INLINE Words AddSaturated(Words a, Words b) { return _mm512_adds_epi16(a, b); }
CORVANE_INLINE Words MultiplyLow(Words a, Words b) { return _mm512_mullo_epi16(a, b); }
CORVANE_INLINE Words And(Words a, Words b) { return _mm512_and_si512(a, b); }
CORVANE_INLINE Words Or(Words a, Words b) { return _mm512_or_si512(a, b); }
CORVANE_INLINE Words Xor(Words a, Words b) { return _mm512_xor_si512(a, b); }
CORVANE_INLINE Words ShuffleBytes(Words a, Words b) { return _mm512_shuffle_epi8(a, b); }
template <int kBits>
CORVANE_INLINE Words ShiftRight(Words v) {
  return _mm512_srai_epi16(v, kBits);
}
template <int kBits>
CORVANE_INLINE Words ShiftRightUnsigned(Words v) {
  return _mm512_srli_epi16(v, kBits);
}

CORVANE_INLINE Mask Greater(Words a, Words b) { return _mm512_cmpgt_epi16_mask(a, b); }
CORVANE_INLINE Mask GreaterWhere(Mask mask, Words a, Words b) {
  return _mm512_mask_cmpgt_epi16_mask(mask, a, b);
}
CORVANE_INLINE Mask Overlaps(Words a, Words b) { return _mm512_test_epi16_mask(a, b); }
CORVANE_INLINE Mask IsZero(Words v) { return _mm512_testn_epi16_mask(v, v); }
CORVANE_INLINE Mask Both(Mask a, Mask b) { return a & b; }
CORVANE_INLINE Mask Either(Mask a, Mask b) { return a | b; }
CORVANE_INLINE Mask Without(Mask a, Mask b) { return a & ~b; }
CORVANE_INLINE bool AnyWhere(Mask mask, Words v) {
  return _mm512_mask_test_epi16_mask(mask, v, v) != 0;
}
CORVANE_INLINE Words Where(Mask mask, Words v) { return _mm512_maskz_mov_epi16(mask, v); }
CORVANE_INLINE Words SubWhere(Mask mask, Words a, Words b) {
  return _mm512_mask_sub_epi16(a, mask, a, b);
}
CORVANE_INLINE Words AddWhere(Mask mask, Words a, Words b) {
  return _mm512_mask_add_epi16(a, mask, a, b);
}
CORVANE_INLINE Words Choose(Words no, Words yes, Mask mask) {
  return _mm512_mask_mov_epi16(no, mask, yes);
}
CORVANE_INLINE void StoreWhere(Mask mask, std::uint16_t* to, Words v) {
  _mm512_mask_storeu_epi16(to, mask, v);
}
CORVANE_INLINE std::uint32_t UnequalLanes(Words a, Words b) {
  return _mm512_cmpneq_epi16_mask(a, b);
}
CORVANE_INLINE Words WordsOf(Mask mask) { return _mm512_movm_epi16(mask); }
CORVANE_INLINE Mask MaskOf(Words words) { return _mm512_movepi16_mask(words); }

// Of the bytes of two pixels: those that are equal, a bit each.
CORVANE_INLINE std::uint64_t EqualBytes(Words a, Words b) { return _mm512_cmpeq_epi8_mask(a, b); }
CORVANE_INLINE Words ClearWhereZero(Words levels, Words bytes) {
  return _mm512_maskz_mov_epi8(_mm512_test_epi8_mask(levels, levels), bytes);
}
CORVANE_INLINE Words SwapPixels(Words bytes) { return _mm512_shuffle_i64x2(bytes, bytes, 0x4E); }
CORVANE_INLINE Words RepeatFirstPixel(Words bytes) {
  return _mm512_shuffle_i64x2(bytes, bytes, 0x44);
}
CORVANE_INLINE Words BytesUpTo(int limit, Words bytes) {
  return _mm512_movm_epi8(
      _mm512_cmple_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(limit))));
}
CORVANE_INLINE Words LargerBytes(Words a, Words b) { return _mm512_max_epu8(a, b); }
CORVANE_INLINE Words RepeatTable(const std::uint8_t (&table)[16]) {
  return _mm512_broadcast_i32x4(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
}

// The modulation of each lane's segment, from that of all segments.
CORVANE_INLINE Words SpreadModulation(const LaneGroup& group, const std::uint16_t* segments) {
  return _mm512_permutexvar_epi16(Load(group.segmentOf.lane), _mm512_loadu_si512(segments));
}

// Takes a half or a 32nd off the errors of level 0, the rest rounded toward zero: of w, one less
// than an error that is not negative, w - (w >> shift) is just that.
CORVANE_INLINE Words Decay(const LaneGroup& group, Words error, Mask zero) {
  const Words w = SubWhere(zero, error, Add(Repeat(1), ShiftRight<15>(error)));
  return Sub(w, _mm512_maskz_srav_epi16(zero, w, Load(group.decayShift.lane)));
}

// The shares of an error, each the sum of up to two shifted terms, and what a drop takes of them
// and of what goes ahead.
struct Shares {
  Words shift0, shift1, shift2, shift3;
  Mask secondBelow, secondBehind;
  Words dropBelow, dropBehind, dropAhead;

  CORVANE_INLINE void Set(const LaneGroup& group, Words meta) {
    shift0 = _mm512_permutexvar_epi16(meta, Load(group.shifts[0].lane));
    shift1 = _mm512_permutexvar_epi16(meta, Load(group.shifts[1].lane));
    shift2 = _mm512_permutexvar_epi16(meta, Load(group.shifts[2].lane));
    shift3 = _mm512_permutexvar_epi16(meta, Load(group.shifts[3].lane));
    secondBelow = Overlaps(shift1, shift1);
    secondBehind = Overlaps(shift3, shift3);
    dropBelow = _mm512_permutexvar_epi16(meta, Load(group.dropBelow.lane));
    dropBehind = _mm512_permutexvar_epi16(meta, Load(group.dropBehind.lane));
    dropAhead = _mm512_permutexvar_epi16(meta, Load(group.dropAhead.lane));
  }
  CORVANE_INLINE Words Below(Words error) const {
    return Add(_mm512_srav_epi16(error, shift0),
               _mm512_maskz_srav_epi16(secondBelow, error, shift1));
  }
  CORVANE_INLINE Words Behind(Words error) const {
    return Add(_mm512_srav_epi16(error, shift2),
               _mm512_maskz_srav_epi16(secondBehind, error, shift3));
  }
};

#else

constexpr int kLanes = 16;
constexpr bool kDropIsLast = false;
using Words = Vector256;
using Mask = Vector256;

#if CORVANE_SIMD_LEVEL >= 2
CORVANE_INLINE Words Load(const void* from) {
  return _mm256_load_si256(static_cast<const __m256i*>(from));
}
CORVANE_INLINE void Store(void* to, Words v) { _mm256_store_si256(static_cast<__m256i*>(to), v); }
CORVANE_INLINE Words Widen(const std::uint8_t* bytes) {
  return _mm256_cvtepu8_epi16(_mm_load_si128(reinterpret_cast<const __m128i*>(bytes)));
}
CORVANE_INLINE Words Repeat(int word) { return _mm256_set1_epi16(static_cast<short>(word)); }
template <int kBits>
CORVANE_INLINE Words ShiftRight(Words v) {
  return _mm256_srai_epi16(v, kBits);
}
template <int kBits>
CORVANE_INLINE Words ShiftRightUnsigned(Words v) {
  return _mm256_srli_epi16(v, kBits);
}
template <int kBits>
CORVANE_INLINE Words ShiftLeft(Words v) {
  return _mm256_slli_epi16(v, kBits);
}
CORVANE_INLINE bool Overlap(Words a, Words b) { return !_mm256_testz_si256(a, b); }
#else
CORVANE_INLINE Words Load(const void* from) {
  const __m128i* const halves = static_cast<const __m128i*>(from);
  return {_mm_load_si128(halves), _mm_load_si128(halves + 1)};
}
CORVANE_INLINE void Store(void* to, const Words& v) {
  __m128i* const halves = static_cast<__m128i*>(to);
  _mm_store_si128(halves, v.low);
  _mm_store_si128(halves + 1, v.high);
}
CORVANE_INLINE Words Widen(const std::uint8_t* bytes) {
  const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(bytes));
  return {_mm_cvtepu8_epi16(v), _mm_unpackhi_epi8(v, _mm_setzero_si128())};
}
CORVANE_INLINE Words Repeat(int word) {
  const __m128i half = _mm_set1_epi16(static_cast<short>(word));
  return {half, half};
}
template <int kBits>
CORVANE_INLINE Words ShiftRight(const Words& v) {
  return {_mm_srai_epi16(v.low, kBits), _mm_srai_epi16(v.high, kBits)};
}
template <int kBits>
CORVANE_INLINE Words ShiftRightUnsigned(const Words& v) {
  return {_mm_srli_epi16(v.low, kBits), _mm_srli_epi16(v.high, kBits)};
}
template <int kBits>
CORVANE_INLINE Words ShiftLeft(const Words& v) {
  return {_mm_slli_epi16(v.low, kBits), _mm_slli_epi16(v.high, kBits)};
}
CORVANE_INLINE bool Overlap(const Words& a, const Words& b) {
  const __m128i both = _mm_or_si128(_mm_and_si128(a.low, b.low), _mm_and_si128(a.high, b.high));
  return !_mm_testz_si128(both, both);
}
#endif

CORVANE_INLINE std::uint64_t EqualBytes(const Words& a, const Words& b) {
  const auto low = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(Low(a), Low(b))));
  const auto high = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(High(a), High(b))));
  return low | high << 16;
}
CORVANE_INLINE Words ClearWhereZero(const Words& levels, const Words& bytes) {
  const __m128i zero = _mm_setzero_si128();
  return AndNot(Join(_mm_cmpeq_epi8(Low(levels), zero), _mm_cmpeq_epi8(High(levels), zero)), bytes);
}
CORVANE_INLINE Words SwapPixels(const Words& bytes) { return Join(High(bytes), Low(bytes)); }
CORVANE_INLINE Words RepeatFirstPixel(const Words& bytes) { return Join(Low(bytes), Low(bytes)); }
CORVANE_INLINE Words BytesUpTo(int limit, const Words& bytes) {
  const __m128i most = _mm_set1_epi8(static_cast<char>(limit));
  return Join(_mm_cmpeq_epi8(_mm_min_epu8(Low(bytes), most), Low(bytes)),
              _mm_cmpeq_epi8(_mm_min_epu8(High(bytes), most), High(bytes)));
}
CORVANE_INLINE Words LargerBytes(const Words& a, const Words& b) {
  return Join(_mm_max_epu8(Low(a), Low(b)), _mm_max_epu8(High(a), High(b)));
}
CORVANE_INLINE Words RepeatTable(const std::uint8_t (&table)[16]) {
  const __m128i bytes = _mm_load_si128(reinterpret_cast<const __m128i*>(table));
  return Join(bytes, bytes);
}

CORVANE_INLINE void StoreAsBytes(std::uint8_t* to, const Words& v) {
  _mm_store_si128(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(Low(v), High(v)));
}
CORVANE_INLINE Words Zero() { return Repeat(0); }
CORVANE_INLINE Mask GreaterWhere(const Mask& mask, const Words& a, const Words& b) {
  return And(mask, Greater(a, b));
}
CORVANE_INLINE Mask Overlaps(const Words& a, const Words& b) {
  const Words none = Equal(And(a, b), Zero());
  return Equal(none, Zero());
}
CORVANE_INLINE Mask IsZero(const Words& v) { return Equal(v, Zero()); }
CORVANE_INLINE Mask Both(const Mask& a, const Mask& b) { return And(a, b); }
CORVANE_INLINE Mask Either(const Mask& a, const Mask& b) { return Or(a, b); }
CORVANE_INLINE Mask Without(const Mask& a, const Mask& b) { return AndNot(b, a); }
CORVANE_INLINE bool AnyWhere(const Mask& mask, const Words& v) { return Overlap(mask, v); }
CORVANE_INLINE Words Where(const Mask& mask, const Words& v) { return And(mask, v); }
CORVANE_INLINE Words SubWhere(const Mask& mask, const Words& a, const Words& b) {
  return Sub(a, And(mask, b));
}
CORVANE_INLINE Words AddWhere(const Mask& mask, const Words& a, const Words& b) {
  return Add(a, And(mask, b));
}
CORVANE_INLINE void StoreWhere(const Mask& mask, std::uint16_t* to, const Words& v) {
  Store(to, Choose(Load(to), v, mask));
}
CORVANE_INLINE std::uint32_t UnequalLanes(const Words& a, const Words& b) {
  const Words equal = Equal(a, b);
  return ~static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(Low(equal), High(equal)))) &
         0xFFFF;
}
CORVANE_INLINE Words WordsOf(const Mask& mask) { return mask; }
CORVANE_INLINE Mask MaskOf(const Words& words) { return ShiftRight<15>(words); }

// Segments of 2 or 8 lanes all lie within 16 bytes; those of one lane have the upper half behind.
CORVANE_INLINE Words SpreadModulation(const LaneGroup& group, const std::uint16_t* segments) {
  const std::uint16_t* const upper = segments + group.upperSegments;
  return ShuffleBytes(Join(Load128(segments), Load128(upper)), Load(group.segmentBytes.lane));
}

CORVANE_INLINE Words Decay(const LaneGroup& group, const Words& error, const Mask& zero) {
  const Words w = SubWhere(zero, error, Add(Repeat(1), ShiftRight<15>(error)));
  const Mask halved = And(zero, Load(group.halves.lane));
  const Words part = Or(And(halved, ShiftRight<1>(w)), And(AndNot(halved, zero), ShiftRight<5>(w)));
  return Sub(w, part);
}

// Terms are high products: the shift by s is the product with 2^(16 - s), which has one byte. The
// index of a table is in the high byte of each word, and the other byte, 0x80, gives 0.
struct Shares {
  Words factor0, factor1, factor2, factor3;
  Words dropBelow, dropBehind, dropAhead;

  CORVANE_INLINE void Set(const LaneGroup& group, const Words& meta) {
    const Words index = Or(And(ShiftLeft<8>(meta), Repeat(0x0F00)), Repeat(0x80));
    factor0 = ShuffleBytes(RepeatTable(group.factors[0].byClass), index);
    factor1 = ShuffleBytes(RepeatTable(group.factors[1].byClass), index);
    factor2 = ShuffleBytes(RepeatTable(group.factors[2].byClass), index);
    factor3 = ShuffleBytes(RepeatTable(group.factors[3].byClass), index);
    const Words drop = Load(group.dropSize.lane);
    dropBelow = MultiplyHighUnsigned(Add(factor0, factor1), drop);
    dropBehind = MultiplyHighUnsigned(Add(factor2, factor3), drop);
    dropAhead = Sub(Sub(drop, dropBelow), dropBehind);
  }
  CORVANE_INLINE Words Below(const Words& error) const {
    return Add(MultiplyHigh(error, factor0), MultiplyHigh(error, factor1));
  }
  CORVANE_INLINE Words Behind(const Words& error) const {
    return Add(MultiplyHigh(error, factor2), MultiplyHigh(error, factor3));
  }
};

#endif

}  // namespace
}  // namespace corvane::CORVANE_SIMD_NAMESPACE
