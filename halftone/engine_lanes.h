// SPDX-License-Identifier: MIT
//
// The vector code of the fast engines: vectors of words, what a pixel's levels decide, and the step
// of the chain from one binary pixel to the next. Included by files that are compiled once per
// instruction level; everything has internal linkage, so that no level gets another's code.
#pragma once

#include <cstdint>
#include <cstring>

#include "halftone/engine_fast.h"
#include "halftone/plane_bytes.h"
#include "halftone/weight_maps.h"
#include "simd/vectors.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

// Vector types lose attributes as template arguments; what they lose, their alignment, is not used.
#pragma GCC diagnostic ignored "-Wignored-attributes"

// Vectors of 8 or 16 words.
using Lanes8 = Vector128;
using Lanes16 = Vector256;

// What depends on the number of lanes. `Bytes` holds a byte for each lane, in its low end.
template <class V>
struct Vector;

template <>
struct Vector<Lanes8> {
  static constexpr int kLanes = 8;

  static CORVANE_INLINE Lanes8 Load(const void* from) {
    return _mm_load_si128(static_cast<const __m128i*>(from));
  }
  static CORVANE_INLINE void Store(void* to, Lanes8 v) {
    _mm_store_si128(static_cast<__m128i*>(to), v);
  }
  static CORVANE_INLINE Lanes8 Repeat(std::uint32_t word) {
    return _mm_set1_epi32(static_cast<int>(word));
  }
  // By a load alone where there is one.
  static CORVANE_INLINE Lanes8 LoadRepeated(const std::uint32_t* word) {
#if CORVANE_SIMD_LEVEL >= 2
    return _mm_castps_si128(_mm_broadcast_ss(reinterpret_cast<const float*>(word)));
#else
    return Repeat(*word);
#endif
  }
  // The same 16 bytes in each half.
  static CORVANE_INLINE Lanes8 Table(__m128i table) { return table; }
  template <int kBits>
  static CORVANE_INLINE Lanes8 ShiftRight(Lanes8 v) {
    return _mm_srai_epi16(v, kBits);
  }
  template <int kBits>
  static CORVANE_INLINE Lanes8 ShiftRightUnsigned(Lanes8 v) {
    return _mm_srli_epi16(v, kBits);
  }
  static CORVANE_INLINE bool Overlap(Lanes8 a, Lanes8 b) { return !_mm_testz_si128(a, b); }
  static CORVANE_INLINE __m128i LoadBytes(const std::uint8_t* from) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from));
  }
  // Words that are all at most 255.
  static CORVANE_INLINE void StoreAsBytes(std::uint8_t* to, Lanes8 v) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(v, v));
  }
  static CORVANE_INLINE Lanes8 Widen(__m128i bytes) { return _mm_cvtepu8_epi16(bytes); }
  static CORVANE_INLINE Lanes8 WidenMask(__m128i bytes) { return _mm_cvtepi8_epi16(bytes); }
  static CORVANE_INLINE bool SameBytes(const std::uint8_t* a, const std::uint8_t* b) {
    std::uint64_t first, second;
    std::memcpy(&first, a, 8);
    std::memcpy(&second, b, 8);
    return first == second;
  }
};

template <>
struct Vector<Lanes16> {
  static constexpr int kLanes = 16;

#if CORVANE_SIMD_LEVEL >= 2
  static CORVANE_INLINE Lanes16 Load(const void* from) {
    return _mm256_load_si256(static_cast<const __m256i*>(from));
  }
  static CORVANE_INLINE void Store(void* to, Lanes16 v) {
    _mm256_store_si256(static_cast<__m256i*>(to), v);
  }
  static CORVANE_INLINE Lanes16 Repeat(std::uint32_t word) {
    return _mm256_set1_epi32(static_cast<int>(word));
  }
  static CORVANE_INLINE Lanes16 LoadRepeated(const std::uint32_t* word) {
    return _mm256_castps_si256(_mm256_broadcast_ss(reinterpret_cast<const float*>(word)));
  }
  static CORVANE_INLINE Lanes16 Table(__m128i table) { return _mm256_broadcastsi128_si256(table); }
  template <int kBits>
  static CORVANE_INLINE Lanes16 ShiftRight(Lanes16 v) {
    return _mm256_srai_epi16(v, kBits);
  }
  template <int kBits>
  static CORVANE_INLINE Lanes16 ShiftRightUnsigned(Lanes16 v) {
    return _mm256_srli_epi16(v, kBits);
  }
  static CORVANE_INLINE bool Overlap(Lanes16 a, Lanes16 b) { return !_mm256_testz_si256(a, b); }
  static CORVANE_INLINE void StoreAsBytes(std::uint8_t* to, Lanes16 v) {
    _mm_store_si128(reinterpret_cast<__m128i*>(to),
                    _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)));
  }
  static CORVANE_INLINE Lanes16 Widen(__m128i bytes) { return _mm256_cvtepu8_epi16(bytes); }
  static CORVANE_INLINE Lanes16 WidenMask(__m128i bytes) { return _mm256_cvtepi8_epi16(bytes); }
#else
  static CORVANE_INLINE Lanes16 Load(const void* from) {
    const __m128i* const halves = static_cast<const __m128i*>(from);
    return {_mm_load_si128(halves), _mm_load_si128(halves + 1)};
  }
  static CORVANE_INLINE void Store(void* to, const Lanes16& v) {
    __m128i* const halves = static_cast<__m128i*>(to);
    _mm_store_si128(halves, v.low);
    _mm_store_si128(halves + 1, v.high);
  }
  static CORVANE_INLINE Lanes16 Repeat(std::uint32_t word) {
    const __m128i half = _mm_set1_epi32(static_cast<int>(word));
    return {half, half};
  }
  static CORVANE_INLINE Lanes16 LoadRepeated(const std::uint32_t* word) { return Repeat(*word); }
  static CORVANE_INLINE Lanes16 Table(__m128i table) { return {table, table}; }
  template <int kBits>
  static CORVANE_INLINE Lanes16 ShiftRight(const Lanes16& v) {
    return {_mm_srai_epi16(v.low, kBits), _mm_srai_epi16(v.high, kBits)};
  }
  template <int kBits>
  static CORVANE_INLINE Lanes16 ShiftRightUnsigned(const Lanes16& v) {
    return {_mm_srli_epi16(v.low, kBits), _mm_srli_epi16(v.high, kBits)};
  }
  static CORVANE_INLINE bool Overlap(const Lanes16& a, const Lanes16& b) {
    const __m128i both = _mm_or_si128(_mm_and_si128(a.low, b.low), _mm_and_si128(a.high, b.high));
    return !_mm_testz_si128(both, both);
  }
  static CORVANE_INLINE void StoreAsBytes(std::uint8_t* to, const Lanes16& v) {
    _mm_store_si128(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(v.low, v.high));
  }
  static CORVANE_INLINE Lanes16 Widen(__m128i bytes) {
    return {_mm_cvtepu8_epi16(bytes), _mm_cvtepu8_epi16(_mm_srli_si128(bytes, 8))};
  }
  static CORVANE_INLINE Lanes16 WidenMask(__m128i bytes) {
    return {_mm_cvtepi8_epi16(bytes), _mm_cvtepi8_epi16(_mm_srli_si128(bytes, 8))};
  }
#endif
  static CORVANE_INLINE __m128i LoadBytes(const std::uint8_t* from) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(from));
  }
  static CORVANE_INLINE bool SameBytes(const std::uint8_t* a, const std::uint8_t* b) {
    const __m128i equal = _mm_cmpeq_epi8(LoadBytes(a), LoadBytes(b));
    return _mm_movemask_epi8(equal) == 0xFFFF;
  }
};

// ---------------------------------------------------------------------------------------------
// What a pixel's levels decide

// Coupled pairs: c and m in lanes 1 and 3, cd and md in lanes 8 and 9. Each lane's partner, by
// byte and by word; 0x80 gives 0.
CORVANE_INLINE __m128i PartnerBytes() {
  return _mm_setr_epi8(-1, 3, -1, 1, -1, -1, -1, -1, 9, 8, -1, -1, -1, -1, -1, -1);
}
template <class V>
CORVANE_INLINE V PartnerWords();
template <>
CORVANE_INLINE Lanes8 PartnerWords<Lanes8>() {
  return _mm_setr_epi8(-1, -1, 6, 7, -1, -1, 2, 3, -1, -1, -1, -1, -1, -1, -1, -1);
}
CORVANE_INLINE __m128i PartnerWordsOfHighLanes() {
  return _mm_setr_epi8(2, 3, 0, 1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
}
template <>
CORVANE_INLINE Lanes16 PartnerWords<Lanes16>() {
  return Join(PartnerWords<Lanes8>(), PartnerWordsOfHighLanes());
}

// 1 in the second lane of each pair, which wins a tie.
alignas(32) constexpr LaneWords kSecondOfPair = {{0, 0, 0, 1, 0, 0, 0, 0, 0, 1}};

// The pairs whose levels are both low enough for a joint decision, as a byte mask.
CORVANE_INLINE __m128i JointPairs(__m128i levels) {
  const __m128i limit = _mm_set1_epi8(kJointLevelLimit - 1);
  const __m128i pairs = _mm_setr_epi8(0, -1, 0, -1, 0, 0, 0, 0, -1, -1, 0, 0, 0, 0, 0, 0);
  const __m128i larger = _mm_max_epu8(levels, _mm_shuffle_epi8(levels, PartnerBytes()));
  return _mm_and_si128(_mm_cmpeq_epi8(_mm_min_epu8(larger, limit), larger), pairs);
}

// Bias and meta word (see PackRule) of each lane. In the lanes of pairs that decide jointly, the
// meta word has kJointMark too, where byte shuffles do not look.
constexpr std::uint32_t kJointMark = 0x10001000u;
template <class V>
struct LookUp {
  V bias;
  V meta;
};

// Four packed rules: the biases go to the low half, the meta words to the high one.
CORVANE_INLINE __m128i SplitRules(__m128i rules) {
  return _mm_shuffle_epi8(rules,
                          _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15));
}

// Packed rules of lanes 0..3 and 4..7.
CORVANE_INLINE LookUp<Lanes8> Unpack(__m128i first, __m128i second) {
  const __m128i low = SplitRules(first);
  const __m128i high = SplitRules(second);
  return {_mm_unpacklo_epi64(low, high), _mm_unpackhi_epi64(low, high)};
}

CORVANE_INLINE std::uint64_t LowHalf(__m128i v) {
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(v));
}

// The terms of the shares by class of weights, as tables for byte shuffles.
struct ClassTable {
  alignas(16) std::uint8_t byClass[16];
};
enum class Term { Below, SecondBelow, Behind, SecondBehind };
inline constexpr int kTermCount = 4;

constexpr std::uint8_t ShiftOfTerm(const ErrorWeights& weights, Term term) {
  switch (term) {
    case Term::Below:
      return weights.below.firstShift;
    case Term::SecondBelow:
      return weights.below.secondShift;
    case Term::Behind:
      return weights.behind.firstShift;
    default:
      return weights.behind.secondShift;
  }
}

// Of each term the shift (0: absent), and the high byte of the factor whose high product is the
// shifted value (0: absent).
constexpr ClassTable MakeShiftTable(Term term) {
  ClassTable table{};
  for (int i = 0; i < kWeightClassCount; ++i) {
    table.byClass[i] = ShiftOfTerm(kErrorWeights[i], term);
  }
  return table;
}
constexpr ClassTable MakeFactorTable(Term term) {
  ClassTable table = MakeShiftTable(term);
  for (std::uint8_t& entry : table.byClass) {
    entry = static_cast<std::uint8_t>(entry == 0 ? 0 : 0x100 >> entry);
  }
  return table;
}
// The table's entries; the index is in the high or the low byte of each word, and the other byte,
// 0x80, gives 0.
template <class V>
CORVANE_INLINE V FromTable(const ClassTable& table, V index) {
  return ShuffleBytes(
      Vector<V>::Table(_mm_load_si128(reinterpret_cast<const __m128i*>(table.byClass))), index);
}

// Both shares of an error, each the sum of two terms.
#if CORVANE_SIMD_LEVEL >= 3
constexpr ClassTable kShifts[kTermCount] = {
    MakeShiftTable(Term::Below), MakeShiftTable(Term::SecondBelow), MakeShiftTable(Term::Behind),
    MakeShiftTable(Term::SecondBehind)};

// The factor of a whole share, below and behind.
constexpr ClassTable MakeSumTable(Term first, Term second) {
  ClassTable table = MakeFactorTable(first);
  const ClassTable other = MakeFactorTable(second);
  for (int i = 0; i < kWeightClassCount; ++i) {
    table.byClass[i] = static_cast<std::uint8_t>(table.byClass[i] + other.byClass[i]);
  }
  return table;
}
constexpr ClassTable kBelowFactors = MakeSumTable(Term::Below, Term::SecondBelow);
constexpr ClassTable kBehindFactors = MakeSumTable(Term::Behind, Term::SecondBehind);

CORVANE_INLINE __m128i ShiftTerm(__m128i error, __m128i shift) {
  return _mm_srav_epi16(error, shift);
}
CORVANE_INLINE __m256i ShiftTerm(__m256i error, __m256i shift) {
  return _mm256_srav_epi16(error, shift);
}
CORVANE_INLINE __m128i ShiftTerm(__mmask8 present, __m128i error, __m128i shift) {
  return _mm_maskz_srav_epi16(present, error, shift);
}
CORVANE_INLINE __m256i ShiftTerm(__mmask16 present, __m256i error, __m256i shift) {
  return _mm256_maskz_srav_epi16(present, error, shift);
}
CORVANE_INLINE __mmask8 NonZero(__m128i v) { return _mm_test_epi16_mask(v, v); }
CORVANE_INLINE __mmask16 NonZero(__m256i v) { return _mm256_test_epi16_mask(v, v); }

template <class V>
struct Shares {
  V shifts[kTermCount];
  decltype(NonZero(V())) secondBelow;
  decltype(NonZero(V())) secondBehind;

  CORVANE_INLINE void Set(V meta) {
    const V index = Or(meta, Vector<V>::Repeat(0x80008000u));
    for (int term = 0; term < kTermCount; ++term) shifts[term] = FromTable(kShifts[term], index);
    secondBelow = NonZero(shifts[1]);
    secondBehind = NonZero(shifts[3]);
  }
  CORVANE_INLINE V Below(V error) const {
    return Add(ShiftTerm(error, shifts[0]), ShiftTerm(secondBelow, error, shifts[1]));
  }
  CORVANE_INLINE V Behind(V error) const {
    return Add(ShiftTerm(error, shifts[2]), ShiftTerm(secondBehind, error, shifts[3]));
  }
  // The factors of both shares; `index` is that of the high bytes.
  CORVANE_INLINE V BelowFactor(V index) const { return FromTable(kBelowFactors, index); }
  CORVANE_INLINE V BehindFactor(V index) const { return FromTable(kBehindFactors, index); }
};
#else
constexpr ClassTable kFactors[kTermCount] = {
    MakeFactorTable(Term::Below), MakeFactorTable(Term::SecondBelow), MakeFactorTable(Term::Behind),
    MakeFactorTable(Term::SecondBehind)};

template <class V>
struct Shares {
  V factors[kTermCount];

  CORVANE_INLINE void Set(V meta) {
    const V index = Or(meta, Vector<V>::Repeat(0x00800080u));
    for (int term = 0; term < kTermCount; ++term) factors[term] = FromTable(kFactors[term], index);
  }
  CORVANE_INLINE V Below(V error) const {
    return Add(MultiplyHigh(error, factors[0]), MultiplyHigh(error, factors[1]));
  }
  CORVANE_INLINE V Behind(V error) const {
    return Add(MultiplyHigh(error, factors[2]), MultiplyHigh(error, factors[3]));
  }
  CORVANE_INLINE V BelowFactor(V) const { return Add(factors[0], factors[1]); }
  CORVANE_INLINE V BehindFactor(V) const { return Add(factors[2], factors[3]); }
};
#endif

// All that the binary pixels of a contone pixel need.
template <class V>
struct Pixel {
  V input;
  V bias;
  V modulationFactor;
  V zeroLevel;  // mask
  V partner;    // byte shuffle: the partner's error in the lanes of joint pairs, 0 elsewhere
  V certain;    // mask: lanes with a certain drop
  Shares<V> shares;
  // What a drop takes from the share below, from the share behind and from what goes ahead.
  V dropBelow;
  V dropBehind;
  V dropAhead;
};

template <class V, bool kTwoDrop = false>
CORVANE_INLINE V InputOf(const FastPage& page, V levels) {
  using Vec = Vector<V>;
  if constexpr (kTwoDrop) levels = And(levels, Vec::Load(page.inputMask.lane));
  return MultiplyLow(levels, Vec::Load(page.inputScale.lane));
}

template <class V, bool kCoupled, bool kTwoDrop>
CORVANE_INLINE void SetPixel(const FastPage& page, __m128i levels, V input, const LookUp<V>& lookUp,
                             Pixel<V>& pixel) {
  using Vec = Vector<V>;
  const V words = Vec::Widen(levels);
  const V zero = Vec::Repeat(0);
  pixel.input = input;
  pixel.zeroLevel = Equal(words, zero);
  pixel.bias = lookUp.bias;
  pixel.modulationFactor =
      And(Vec::template ShiftRightUnsigned<4>(lookUp.meta), Vec::Repeat(0x00070007u));
  if constexpr (kCoupled) {
    const V apart = Equal(And(lookUp.meta, Vec::Repeat(kJointMark)), zero);
    pixel.partner = Or(PartnerWords<V>(), apart);
  }
  if constexpr (kTwoDrop) {
    pixel.certain = Greater(And(words, Vec::Load(page.certainBit.lane)), zero);
  }
  pixel.shares.Set(lookUp.meta);
  const V index = Or(lookUp.meta, Vec::Repeat(0x00800080u));
  const V drop = Vec::Load(page.dropSize.lane);
  pixel.dropBelow = MultiplyHighUnsigned(pixel.shares.BelowFactor(index), drop);
  pixel.dropBehind = MultiplyHighUnsigned(pixel.shares.BehindFactor(index), drop);
  pixel.dropAhead = Sub(Sub(drop, pixel.dropBelow), pixel.dropBehind);
}

// ---------------------------------------------------------------------------------------------
// The step from pixel to pixel

// What runs along the row.
template <class V>
struct Chain {
  V error;  // of the current binary pixel, its input and its entry included
  V below;  // share of the pixel before it, which has still to get this one's share behind
  V drops;  // of the current 8 binary pixels, a bit each
};

// Takes a half or a 32nd off the error in the lanes of level 0, so that the rest is rounded toward
// zero: error >> s rounds what is taken down, so a positive error that the shift cuts bits off
// gives one more. `decayBits` are these bits of each lane, and the sign.
template <class V>
CORVANE_INLINE V Decay(V error, V zeroLevel, V halve, V decayBits) {
  using Vec = Vector<V>;
  const V less = Greater(And(error, And(zeroLevel, decayBits)), Vec::Repeat(0));
  const V half = And(And(zeroLevel, halve), Vec::template ShiftRight<1>(error));
  const V part = And(AndNot(halve, zeroLevel), Vec::template ShiftRight<5>(error));
  return Sub(Add(error, less), Or(half, part));
}

// One binary pixel of all inks. `next` is the next pixel's input and entry. The order of the sums
// puts what is known last at their end.
template <class V, bool kCoupled, bool kDecays>
CORVANE_INLINE void Step(const FastPage& page, const Pixel<V>& pixel, V threshold, V next, V bit,
                         std::uint16_t* entryBehind, Chain<V>& chain) {
  using Vec = Vector<V>;
  V error = chain.error;
  if constexpr (kDecays) {
    // No error exceeds the largest number.
    threshold = Or(threshold, And(pixel.zeroLevel, Vec::Repeat(0x7FFF7FFFu)));
  }
  V drop;
  V taken;  // by the drop, from what goes ahead
  if constexpr (kCoupled) {
    // A joint decision compares the sum of the errors, and the larger gets the drop. The sum must
    // not wrap; where the other comparison does, the sum is too low for any drop.
    const V partner = ShuffleBytes(error, pixel.partner);
    const V exceeds = Greater(AddSaturated(error, partner), threshold);
    V wins = Greater(error, Sub(partner, Vec::Load(kSecondOfPair.lane)));
    if constexpr (kDecays) {
      // An ink that is not there leaves the drop to the second of the pair.
      const V second = Equal(Vec::Load(kSecondOfPair.lane), Vec::Repeat(0x00010001u));
      wins = Or(wins, And(second, ShuffleBytes(pixel.zeroLevel, PartnerWords<V>())));
    }
    drop = And(exceeds, wins);
    taken = And(exceeds, And(wins, pixel.dropAhead));
  } else {
    drop = Greater(error, threshold);
    taken = And(drop, pixel.dropAhead);
  }
  // The second of a pair may get a drop far below 0, and wrap, where the first has no ink: there
  // the shares are those of what the drop leaves.
  constexpr bool kDropsFirst = kCoupled && kDecays;
  if constexpr (kDropsFirst) error = Sub(error, And(drop, Vec::Load(page.dropSize.lane)));
  if constexpr (kDecays) {
    error = Decay(error, pixel.zeroLevel, Vec::Load(page.halfDecay.lane),
                  Vec::Load(page.decayBits.lane));
  }
  const V below = pixel.shares.Below(error);
  const V behind = pixel.shares.Behind(error);
  const V ahead = Add(error, next);
  const V shared = Add(below, behind);
  if constexpr (kDropsFirst) {
    chain.error = Sub(ahead, shared);
    Vec::Store(entryBehind, Add(chain.below, behind));
    chain.below = below;
    chain.drops = Or(chain.drops, And(drop, bit));
    return;
  }
  chain.error = kCoupled ? Sub(Sub(ahead, shared), taken) : Sub(Sub(ahead, taken), shared);
  Vec::Store(entryBehind, Add(chain.below, Sub(behind, And(drop, pixel.dropBehind))));
  chain.below = Sub(below, And(drop, pixel.dropBelow));
  chain.drops = Or(chain.drops, And(drop, bit));
}

constexpr LaneWords MakeDropBit(int pixel) {
  LaneWords bit{};
  for (std::uint16_t& lane : bit.lane) lane = static_cast<std::uint16_t>(0x80 >> pixel);
  return bit;
}
constexpr LaneWords kDropBits[8] = {MakeDropBit(0), MakeDropBit(1), MakeDropBit(2), MakeDropBit(3),
                                    MakeDropBit(4), MakeDropBit(5), MakeDropBit(6), MakeDropBit(7)};

}  // namespace
}  // namespace corvane::CORVANE_SIMD_NAMESPACE
