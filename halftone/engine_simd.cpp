// SPDX-License-Identifier: MIT
//
// The body of the fast engine, compiled once per instruction level. A row goes through it in four
// steps: its levels are interleaved by ink, the passes run over them, and the drops of each pass
// are taken apart into planes and counted.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "halftone/engine_fast.h"
#include "halftone/weight_maps.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

// Vector types lose attributes as template arguments; what they lose, their alignment, is not used.
#pragma GCC diagnostic ignored "-Wignored-attributes"

#define CORVANE_INLINE inline __attribute__((always_inline))

// ---------------------------------------------------------------------------------------------
// Vectors of 8 or 16 words. Only sse4 has to make the latter of two.

using Lanes8 = __m128i;
#if CORVANE_SIMD_LEVEL >= 2
using Lanes16 = __m256i;
#else
struct Lanes16 {
  __m128i low;
  __m128i high;
};
#endif

#if CORVANE_SIMD_LEVEL >= 2
#define CORVANE_BINARY(Name, op128, op256)                                     \
  CORVANE_INLINE Lanes8 Name(Lanes8 a, Lanes8 b) { return _mm_##op128(a, b); } \
  CORVANE_INLINE Lanes16 Name(Lanes16 a, Lanes16 b) { return _mm256_##op256(a, b); }
#else
#define CORVANE_BINARY(Name, op128, op256)                                     \
  CORVANE_INLINE Lanes8 Name(Lanes8 a, Lanes8 b) { return _mm_##op128(a, b); } \
  CORVANE_INLINE Lanes16 Name(const Lanes16& a, const Lanes16& b) {            \
    return {_mm_##op128(a.low, b.low), _mm_##op128(a.high, b.high)};           \
  }
#endif
CORVANE_BINARY(Add, add_epi16, add_epi16)
CORVANE_BINARY(Sub, sub_epi16, sub_epi16)
CORVANE_BINARY(AddSaturated, adds_epi16, adds_epi16)
CORVANE_BINARY(SubSaturated, subs_epi16, subs_epi16)
CORVANE_BINARY(And, and_si128, and_si256)
CORVANE_BINARY(AndNot, andnot_si128, andnot_si256)  // ~a & b
CORVANE_BINARY(Or, or_si128, or_si256)
CORVANE_BINARY(Greater, cmpgt_epi16, cmpgt_epi16)
CORVANE_BINARY(Equal, cmpeq_epi16, cmpeq_epi16)
CORVANE_BINARY(MultiplyLow, mullo_epi16, mullo_epi16)
CORVANE_BINARY(MultiplyHigh, mulhi_epi16, mulhi_epi16)
CORVANE_BINARY(MultiplyHighUnsigned, mulhi_epu16, mulhi_epu16)
CORVANE_BINARY(ShuffleBytes, shuffle_epi8, shuffle_epi8)
#undef CORVANE_BINARY

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
// Interleaving the levels by ink, and taking the drops apart again

// One step of a byte transpose: interleaves the bytes of the vectors i and i + 4. Seen as an
// address of 3 bits for the vector and 4 for the byte, each byte's address turns left by one bit;
// three steps turn 8 planes of 16 pixels into 16 pixels of 8 lanes, four steps more turn it back.
CORVANE_INLINE void TransposeStep(__m128i (&v)[8]) {
  __m128i turned[8];
  for (int i = 0; i < 4; ++i) {
    turned[2 * i] = _mm_unpacklo_epi8(v[i], v[i + 4]);
    turned[2 * i + 1] = _mm_unpackhi_epi8(v[i], v[i + 4]);
  }
  for (int i = 0; i < 8; ++i) v[i] = turned[i];
}

// Reads `count` bytes, at most 16; the others are 0.
CORVANE_INLINE __m128i LoadPart(const std::uint8_t* from, std::size_t count) {
  if (count >= 16) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  alignas(16) std::uint8_t part[16] = {};
  for (std::size_t i = 0; i < count; ++i) part[i] = from[i];
  return _mm_load_si128(reinterpret_cast<const __m128i*>(part));
}

// (3 * dark + light) / 4, byte by byte.
CORVANE_INLINE __m128i Fold(__m128i dark, __m128i light) {
  const __m128i three = _mm_set1_epi16(3);
  const __m128i low =
      _mm_add_epi16(_mm_mullo_epi16(_mm_cvtepu8_epi16(dark), three), _mm_cvtepu8_epi16(light));
  const __m128i high =
      _mm_add_epi16(_mm_mullo_epi16(_mm_cvtepu8_epi16(_mm_srli_si128(dark, 8)), three),
                    _mm_cvtepu8_epi16(_mm_srli_si128(light, 8)));
  return _mm_packus_epi16(_mm_srli_epi16(low, 2), _mm_srli_epi16(high, 2));
}

// Where the levels of a lane come from.
struct PlaneSource {
  const std::uint8_t* dark;   // null: no ink
  const std::uint8_t* light;  // folded into dark, or null

  CORVANE_INLINE __m128i Load(std::uint32_t x, std::size_t count) const {
    if (dark == nullptr) return _mm_setzero_si128();
    const __m128i levels = LoadPart(dark + x, count);
    return light == nullptr ? levels : Fold(levels, LoadPart(light + x, count));
  }
};

// The levels of a pixel, from -1 to the row's width.
std::uint8_t* LevelsAt(const FastPage& page, std::int64_t x) {
  return page.levels + static_cast<std::size_t>(x + 1) * (page.wide ? 16 : 8);
}

// Interleaves 16 pixels, of which the first `count` exist, by ink.
template <int kLanes>
CORVANE_INLINE void InterleavePixels(const PlaneSource (&planes)[kMaxLanes], std::uint32_t x,
                                     std::size_t count, std::uint8_t* to) {
  __m128i v[8];
  for (int lane = 0; lane < 8; ++lane) v[lane] = planes[lane].Load(x, count);
  for (int step = 0; step < 3; ++step) TransposeStep(v);
  if constexpr (kLanes == 8) {
    for (int i = 0; i < 8; ++i) _mm_storeu_si128(reinterpret_cast<__m128i*>(to) + i, v[i]);
  } else {
    // Only two of the upper lanes are in use.
    const __m128i cd = planes[8].Load(x, count);
    const __m128i md = planes[9].Load(x, count);
    const __m128i pairs[2] = {_mm_unpacklo_epi8(cd, md), _mm_unpackhi_epi8(cd, md)};
    const auto store = [&]<int kPair>() {
      const __m128i upper = _mm_cvtepu16_epi64(_mm_srli_si128(pairs[kPair / 4], kPair % 4 * 4));
      __m128i* const place = reinterpret_cast<__m128i*>(to) + 2 * kPair;
      _mm_storeu_si128(place, _mm_unpacklo_epi64(v[kPair], upper));
      _mm_storeu_si128(place + 1, _mm_unpackhi_epi64(v[kPair], upper));
    };
    store.template operator()<0>();
    store.template operator()<1>();
    store.template operator()<2>();
    store.template operator()<3>();
    store.template operator()<4>();
    store.template operator()<5>();
    store.template operator()<6>();
    store.template operator()<7>();
  }
}

// Calls visit(plane's bytes from the first pixel on, where the page keeps them) for the contone
// planes that the kernel reads, until it returns false.
template <typename Visit>
CORVANE_INLINE bool AllPlanes(const FastPage& page, const RowState& state, Visit visit) {
  const Kernel& kernel = *page.kernel;
  std::uint8_t* kept = page.planes + state.first;
  for (int i = 0; i < kernel.inkCount; ++i) {
    for (const std::uint8_t plane : {kernel.inks[i].contonePlane, kernel.inks[i].foldedPlane}) {
      if (plane == kNoPlane) continue;
      if (!visit(state.data + std::size_t{plane} * state.stride + state.first, kept)) return false;
      kept += page.width;
    }
  }
  return true;
}

bool IsSameRow(const FastPage& page, const RowState& state) {
  if (!page.keepsLookUps || page.keptFirst != state.first || page.keptEnd != state.end) {
    return false;
  }
  const std::size_t count = state.end - state.first;
  return AllPlanes(page, state, [count](const std::uint8_t* levels, const std::uint8_t* kept) {
    return std::memcmp(levels, kept, count) == 0;
  });
}

// Interleaves the row's levels, and keeps them as they came to know the row again.
template <int kLanes>
void Interleave(FastPage& page, const RowState& state) {
  const Kernel& kernel = *page.kernel;
  PlaneSource planes[kMaxLanes] = {};
  for (int i = 0; i < kernel.inkCount; ++i) {
    const KernelInk& ink = kernel.inks[i];
    PlaneSource& source = planes[LaneOf(ink.ink)];
    source.dark = state.data + std::size_t{ink.contonePlane} * state.stride;
    if (ink.foldedPlane != kNoPlane) {
      source.light = state.data + std::size_t{ink.foldedPlane} * state.stride;
    }
  }
  std::uint32_t x = state.first;
  for (; state.end - x >= 16; x += 16) {
    InterleavePixels<kLanes>(planes, x, 16, LevelsAt(page, x));
  }
  if (x < state.end) InterleavePixels<kLanes>(planes, x, state.end - x, LevelsAt(page, x));

  const std::size_t count = state.end - state.first;
  AllPlanes(page, state, [count](const std::uint8_t* levels, std::uint8_t* kept) {
    std::memcpy(kept, levels, count);
    return true;
  });
  page.keptFirst = state.first;
  page.keptEnd = state.end;
  page.keepsLookUps = true;
}

// The bytes of lanes group..group + 7 in 16 columns, by lane.
template <int kLanes>
CORVANE_INLINE void LoadColumns(const std::uint8_t* from, __m128i (&v)[8]) {
  for (int i = 0; i < 8; ++i) {
    if constexpr (kLanes == 8) {
      v[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 16 * i));
    } else {
      v[i] =
          _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from + 32 * i)),
                             _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from + 32 * i + 16)));
    }
  }
  for (int step = 0; step < 4; ++step) TransposeStep(v);
}

// Bits set in each 64-bit half.
CORVANE_INLINE __m128i CountBits(__m128i v) {
  const __m128i counts = _mm_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
  const __m128i nibble = _mm_set1_epi8(15);
  const __m128i low = _mm_shuffle_epi8(counts, _mm_and_si128(v, nibble));
  const __m128i high = _mm_shuffle_epi8(counts, _mm_and_si128(_mm_srli_epi16(v, 4), nibble));
  return _mm_sad_epu8(_mm_add_epi8(low, high), _mm_setzero_si128());
}

CORVANE_INLINE void OrInto(std::uint8_t* to, __m128i bytes, std::size_t count) {
  if (count >= 16) {
    __m128i* const place = reinterpret_cast<__m128i*>(to);
    _mm_storeu_si128(place, _mm_or_si128(_mm_loadu_si128(place), bytes));
    return;
  }
  alignas(16) std::uint8_t part[16];
  _mm_store_si128(reinterpret_cast<__m128i*>(part), bytes);
  for (std::size_t i = 0; i < count; ++i) to[i] = static_cast<std::uint8_t>(to[i] | part[i]);
}

// Adds the pass's drops to the planes and counts them. Both directions may place the same drop:
// one bit, but two counts.
template <int kLanes, bool kTwoDrop>
void Deliver(const FastPage& page, const RowState& state) {
  const Kernel& kernel = *page.kernel;
  const std::size_t planeBytes = (state.outputWidth - 1) / 8 + 1;
  const std::size_t firstColumn = std::size_t{state.first} * page.numPix / 8;
  const std::size_t endColumn = (std::size_t{state.end} * page.numPix + 7) / 8;
  // What stands behind the last column is of an earlier row.
  std::memset(page.drops + endColumn * kLanes, 0, 16 * kLanes);
  if (kTwoDrop) std::memset(page.certain + endColumn * kLanes, 0, 16 * kLanes);

  std::uint8_t* planes[kMaxLanes] = {};
  for (int i = 0; i < kernel.inkCount; ++i) {
    planes[LaneOf(kernel.inks[i].ink)] = state.output + kernel.inks[i].outputPlane * planeBytes;
  }
  __m128i counts[kMaxLanes] = {};
  for (std::size_t column = firstColumn; column < endColumn; column += 16) {
    for (int group = 0; group < kLanes; group += 8) {
      __m128i drops[8], certain[8];
      LoadColumns<kLanes>(page.drops + column * kLanes + group, drops);
      if (kTwoDrop && group == 0) LoadColumns<kLanes>(page.certain + column * kLanes, certain);
      if (kTwoDrop && group == 8) LoadColumns<kLanes>(page.certain + column * kLanes + 8, certain);
      for (int i = 0; i < 8; ++i) {
        const int lane = group + i;
        std::uint8_t* const plane = planes[lane];
        if (plane == nullptr) continue;
        __m128i first = drops[i];
        counts[lane] = _mm_add_epi64(counts[lane], CountBits(drops[i]));
        if (kTwoDrop && page.certainBit.lane[lane] != 0) {
          counts[lane] = _mm_add_epi64(counts[lane], CountBits(certain[i]));
          first = _mm_xor_si128(drops[i], certain[i]);
          OrInto(plane + planeBytes + column, _mm_and_si128(drops[i], certain[i]),
                 endColumn - column);
        }
        OrInto(plane + column, first, endColumn - column);
      }
    }
  }
  for (int i = 0; i < kernel.inkCount; ++i) {
    const __m128i count = counts[LaneOf(kernel.inks[i].ink)];
    state.DotCount[static_cast<int>(kernel.inks[i].ink)] += static_cast<std::uint32_t>(
        _mm_cvtsi128_si32(_mm_add_epi64(count, _mm_unpackhi_epi64(count, count))));
  }
}

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
#if CORVANE_SIMD_LEVEL >= 2
  return _mm256_set_m128i(PartnerWordsOfHighLanes(), PartnerWords<Lanes8>());
#else
  return {PartnerWords<Lanes8>(), PartnerWordsOfHighLanes()};
#endif
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

// Bias and meta word (see PackRule) of each lane.
template <class V>
struct LookUp {
  V bias;
  V meta;
};

// Four packed rules: the biases in the low half, the meta words in the high one.
CORVANE_INLINE __m128i SplitRules(int first, int second, int third, int fourth) {
  return _mm_shuffle_epi8(_mm_setr_epi32(first, second, third, fourth),
                          _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15));
}

CORVANE_INLINE std::uint64_t LowHalf(__m128i v) {
#ifdef __x86_64__
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(v));
#else
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(v)) |
         std::uint64_t{static_cast<std::uint32_t>(_mm_extract_epi32(v, 1))} << 32;
#endif
}

// The table look-ups: one load a lane. Bytes are shifted out of a general register; by way of
// memory they would stall.
template <class V>
CORVANE_INLINE LookUp<V> LookUpRules(const FastPage& page, __m128i levels) {
  const auto rule = [&page](InkGroup group, std::uint64_t bytes, int byte) {
    return static_cast<int>(page.rules[static_cast<int>(group)][bytes >> (8 * byte) & 0xFF]);
  };
  using enum InkGroup;
  const std::uint64_t low = LowHalf(levels);
  const __m128i first =
      SplitRules(rule(CMY, low, 0), rule(cmy, low, 1), rule(CMY, low, 2), rule(cmy, low, 3));
  const __m128i second = SplitRules(rule(CMY, low, 4), rule(cmy, low, 5), rule(Black, low, 6), 0);
  const Lanes8 bias = _mm_unpacklo_epi64(first, second);
  const Lanes8 meta = _mm_unpackhi_epi64(first, second);
  if constexpr (Vector<V>::kLanes == 8) {
    return {bias, meta};
  } else {
    const std::uint64_t high = LowHalf(_mm_srli_si128(levels, 8));
    const __m128i third = SplitRules(rule(Black, high, 0), rule(Black, high, 1), 0, 0);
    const Lanes8 highBias = _mm_move_epi64(third);
    const Lanes8 highMeta = _mm_srli_si128(third, 8);
#if CORVANE_SIMD_LEVEL >= 2
    return {_mm256_set_m128i(highBias, bias), _mm256_set_m128i(highMeta, meta)};
#else
    return {{bias, highBias}, {meta, highMeta}};
#endif
  }
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
constexpr ClassTable kFactors[kTermCount] = {
    MakeFactorTable(Term::Below), MakeFactorTable(Term::SecondBelow), MakeFactorTable(Term::Behind),
    MakeFactorTable(Term::SecondBehind)};

// The factors of a term; the index is in the high byte of each word.
template <class V>
CORVANE_INLINE V FactorsOf(Term term, V index) {
  const ClassTable& table = kFactors[static_cast<int>(term)];
  return ShuffleBytes(
      Vector<V>::Table(_mm_load_si128(reinterpret_cast<const __m128i*>(table.byClass))), index);
}

// Both shares of an error, each the sum of two terms.
#if CORVANE_SIMD_LEVEL == 3
constexpr ClassTable kShifts[kTermCount] = {
    MakeShiftTable(Term::Below), MakeShiftTable(Term::SecondBelow), MakeShiftTable(Term::Behind),
    MakeShiftTable(Term::SecondBehind)};

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
    for (int term = 0; term < kTermCount; ++term) {
      const void* const table = kShifts[term].byClass;
      shifts[term] =
          ShuffleBytes(Vector<V>::Table(_mm_load_si128(static_cast<const __m128i*>(table))), index);
    }
    secondBelow = NonZero(shifts[1]);
    secondBehind = NonZero(shifts[3]);
  }
  CORVANE_INLINE V Below(V error) const {
    return Add(ShiftTerm(error, shifts[0]), ShiftTerm(secondBelow, error, shifts[1]));
  }
  CORVANE_INLINE V Behind(V error) const {
    return Add(ShiftTerm(error, shifts[2]), ShiftTerm(secondBehind, error, shifts[3]));
  }
};
#else
template <class V>
struct Shares {
  V factors[kTermCount];

  CORVANE_INLINE void Set(V meta) {
    const V index = Or(meta, Vector<V>::Repeat(0x00800080u));
    for (int term = 0; term < kTermCount; ++term) {
      factors[term] = FactorsOf(static_cast<Term>(term), index);
    }
  }
  CORVANE_INLINE V Below(V error) const {
    return Add(MultiplyHigh(error, factors[0]), MultiplyHigh(error, factors[1]));
  }
  CORVANE_INLINE V Behind(V error) const {
    return Add(MultiplyHigh(error, factors[2]), MultiplyHigh(error, factors[3]));
  }
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

template <class V, bool kTwoDrop>
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
    const V apart = Equal(Vec::WidenMask(JointPairs(levels)), zero);
    pixel.partner = Or(PartnerWords<V>(), apart);
  }
  if constexpr (kTwoDrop) {
    pixel.certain = Greater(And(words, Vec::Load(page.certainBit.lane)), zero);
  }
  pixel.shares.Set(lookUp.meta);
  const V index = Or(lookUp.meta, Vec::Repeat(0x00800080u));
  const V drop = Vec::Load(page.dropSize.lane);
  pixel.dropBelow = MultiplyHighUnsigned(
      Add(FactorsOf(Term::Below, index), FactorsOf(Term::SecondBelow, index)), drop);
  pixel.dropBehind = MultiplyHighUnsigned(
      Add(FactorsOf(Term::Behind, index), FactorsOf(Term::SecondBehind, index)), drop);
  pixel.dropAhead = Sub(Sub(drop, pixel.dropBelow), pixel.dropBehind);
}

// ---------------------------------------------------------------------------------------------
// The passes

// What runs along the row.
template <class V>
struct Chain {
  V error;  // of the current binary pixel, its input and its entry included
  V below;  // share of the pixel before it, which has still to get this one's share behind
  V drops;  // of the current 8 binary pixels, a bit each
};

// Takes a half or a 32nd off the error in the lanes of level 0, so that the rest is rounded toward
// zero: with y = error - 1 where it is not negative, y - (y >> s) is exact.
template <class V>
CORVANE_INLINE V Decay(V error, V zeroLevel, V halve) {
  using Vec = Vector<V>;
  const V y = Add(error, And(zeroLevel, Greater(error, Vec::Repeat(0xFFFFFFFFu))));
  const V half = And(And(zeroLevel, halve), Vec::template ShiftRight<1>(y));
  const V part = And(AndNot(halve, zeroLevel), Vec::template ShiftRight<5>(y));
  return Sub(Sub(y, half), part);
}

// One binary pixel of all inks. `next` is the next pixel's input and entry.
template <class V, bool kCoupled, bool kDecays>
CORVANE_INLINE void Step(const FastPage& page, const Pixel<V>& pixel, V threshold, V next, V bit,
                         std::uint16_t* entryBehind, Chain<V>& chain) {
  using Vec = Vector<V>;
  V error = chain.error;
  V drop;
  if constexpr (kCoupled) {
    // A joint decision compares the sum of the errors; the larger gets the drop. Saturation does
    // not change either comparison.
    const V partner = ShuffleBytes(error, pixel.partner);
    V wins = Greater(error, SubSaturated(partner, Vec::Load(kSecondOfPair.lane)));
    if constexpr (kDecays) {
      // An ink that is not there leaves the drop to the second of the pair.
      const V second = Equal(Vec::Load(kSecondOfPair.lane), Vec::Repeat(0x00010001u));
      wins = Or(wins, And(second, ShuffleBytes(pixel.zeroLevel, PartnerWords<V>())));
    }
    drop = And(Greater(AddSaturated(error, partner), threshold), wins);
  } else {
    drop = Greater(error, threshold);
  }
  if constexpr (kDecays) {
    drop = AndNot(pixel.zeroLevel, drop);
    error = Decay(error, pixel.zeroLevel, Vec::Load(page.halfDecay.lane));
  }
  const V below = pixel.shares.Below(error);
  const V behind = pixel.shares.Behind(error);
  chain.error = Sub(Sub(Add(error, next), And(drop, pixel.dropAhead)), Add(below, behind));
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

template <class V>
CORVANE_INLINE void StoreLookUp(std::uint16_t* to, const LookUp<V>& lookUp) {
  Vector<V>::Store(to, lookUp.bias);
  Vector<V>::Store(to + Vector<V>::kLanes, lookUp.meta);
}

// The look-up of a pixel: made, and stored for rows to come, or the one that was kept.
template <class V, bool kCoupled>
CORVANE_INLINE LookUp<V> GetLookUp(const FastPage& page, bool kept, __m128i levels,
                                   std::uint16_t* stored) {
  if (kept) return {Vector<V>::Load(stored), Vector<V>::Load(stored + Vector<V>::kLanes)};
  if constexpr (kCoupled) {
    const __m128i partner = _mm_shuffle_epi8(levels, PartnerBytes());
    levels = _mm_add_epi8(levels, _mm_and_si128(partner, JointPairs(levels)));
  }
  return LookUpRules<V>(page, levels);
}

// What goes on from pass to pass and row to row, by lane.
struct RowErrors {
  LaneWords carried;
};

// One pass over pixels first..end - 1, at least one. kNumPix is the number of binary pixels per
// contone pixel where it is fixed, else 0.
template <class V, int kNumPix, int kStep, bool kCoupled, bool kTwoDrop>
void Diffuse(FastPage& page, const RowState& state, bool kept, RowErrors& errors) {
  using Vec = Vector<V>;
  constexpr int kLanes = Vec::kLanes;
  const int numPix = kNumPix != 0 ? kNumPix : static_cast<int>(page.numPix);
  const std::uint32_t firstX = kStep > 0 ? state.first : state.end - 1;

  // The pixel behind the last one is read ahead: it repeats the last.
  std::uint8_t* const beyond =
      LevelsAt(page, kStep > 0 ? std::int64_t{state.end} : std::int64_t{state.first} - 1);
  std::memcpy(beyond, beyond - kStep * kLanes, kLanes);

  const std::uint8_t* levels = LevelsAt(page, firstX);
  std::uint16_t* stored = page.lookUps + (std::size_t{firstX} + 1) * 2 * kLanes;
  std::uint32_t place = firstX * page.numPix + (kStep > 0 ? 0 : page.numPix - 1);
  std::uint16_t* entry = page.line + (std::size_t{place} + 1) * kLanes;
  std::uint32_t phase = *state.RowPhase;

  Pixel<V> pixel;
  LookUp<V> lookUp = GetLookUp<V, kCoupled>(page, kept, Vec::LoadBytes(levels), stored);
  if (!kept) StoreLookUp(stored, lookUp);
  const __m128i firstLevels = Vec::LoadBytes(levels);
  SetPixel<V, kCoupled, kTwoDrop>(
      page, firstLevels, InputOf<V, kTwoDrop>(page, Vec::Widen(firstLevels)), lookUp, pixel);

  Chain<V> chain;
  chain.below = Vec::Repeat(0);
  chain.drops = Vec::Repeat(0);
  chain.error = Add(Vec::Load(errors.carried.lane), Add(pixel.input, Vec::Load(entry)));
  V certain = Vec::Repeat(0);

  for (std::uint32_t count = state.end - state.first; count != 0; --count) {
    // The next pixel's look-ups stand before this one's chain, so that they are done when it ends.
    levels += kStep * kLanes;
    stored += kStep * 2 * kLanes;
    const bool changes = !Vec::SameBytes(levels, levels - kStep * kLanes);
    const __m128i nextLevels = Vec::LoadBytes(levels);
    V nextInput = pixel.input;
    if (changes) {
      nextInput = InputOf<V, kTwoDrop>(page, Vec::Widen(nextLevels));
      lookUp = GetLookUp<V, kCoupled>(page, kept, nextLevels, stored);
    }
    if (!kept) StoreLookUp(stored, lookUp);

    // A lane of level 0 in which there is no error at all needs nothing: it gets no drop, as
    // thresholds are positive, and hands on zeros.
    V waiting = chain.error;
    for (int k = 1; k < numPix; ++k) waiting = Or(waiting, Vec::Load(entry + k * kStep * kLanes));
    const bool decays = Vec::Overlap(waiting, pixel.zeroLevel);

    const auto step = [&]<bool kDecays>(int k) {
      const std::uint32_t p = place + static_cast<std::uint32_t>(k * kStep);
      const std::uint32_t at = kNumPix != 0 ? phase + k : (phase + k) % kModulationLength;
      const V modulation = Vec::LoadRepeated(&page.modulation[at]);
      const V threshold = Add(pixel.bias, MultiplyLow(modulation, pixel.modulationFactor));
      const V next =
          Add(k + 1 < numPix ? pixel.input : nextInput, Vec::Load(entry + kStep * kLanes));
      const V bit = Vec::Load(kDropBits[p % 8].lane);
      if constexpr (kTwoDrop) certain = Or(certain, And(pixel.certain, bit));
      Step<V, kCoupled, kDecays>(page, pixel, threshold, next, bit, entry - kStep * kLanes, chain);
      entry += kStep * kLanes;
      if ((kNumPix == 0 || k + 1 == kNumPix) && p % 8 == (kStep > 0 ? 7 : 0)) {
        Vec::StoreAsBytes(page.drops + std::size_t{p / 8} * kLanes, chain.drops);
        chain.drops = Vec::Repeat(0);
        if constexpr (kTwoDrop) {
          Vec::StoreAsBytes(page.certain + std::size_t{p / 8} * kLanes, certain);
          certain = Vec::Repeat(0);
        }
      }
    };
    if (decays) {
      for (int k = 0; k < numPix; ++k) step.template operator()<true>(k);
    } else {
      for (int k = 0; k < numPix; ++k) step.template operator()<false>(k);
    }
    place += static_cast<std::uint32_t>(kStep * numPix);
    phase = (phase + static_cast<std::uint32_t>(numPix)) % kModulationLength;
    if (changes) SetPixel<V, kCoupled, kTwoDrop>(page, nextLevels, nextInput, lookUp, pixel);
  }

  // The chain is one input and one entry ahead.
  const V ahead = Add(pixel.input, Vec::Load(entry));
  Vec::Store(errors.carried.lane, Sub(chain.error, ahead));
  Vec::Store(entry - kStep * kLanes, chain.below);
  const std::uint32_t last = place - kStep;
  if (last % 8 != (kStep > 0 ? 7 : 0)) {
    Vec::StoreAsBytes(page.drops + std::size_t{last / 8} * kLanes, chain.drops);
    if constexpr (kTwoDrop) {
      Vec::StoreAsBytes(page.certain + std::size_t{last / 8} * kLanes, certain);
    }
  }
  *state.RowPhase = phase;
}

using DiffuseFunction = void (*)(FastPage&, const RowState&, bool kept, RowErrors&);

template <class V, int kNumPix, int kStep>
DiffuseFunction DiffuseFor(const FastPage& page) {
  if constexpr (Vector<V>::kLanes == 16) {
    if (page.twoDrop) return Diffuse<V, kNumPix, kStep, false, true>;
  }
  return page.coupled ? Diffuse<V, kNumPix, kStep, true, false>
                      : Diffuse<V, kNumPix, kStep, false, false>;
}

template <class V, int kStep>
DiffuseFunction DiffuseFor(const FastPage& page) {
  switch (page.numPix) {
    case 1:
      return DiffuseFor<V, 1, kStep>(page);
    case 2:
      return DiffuseFor<V, 2, kStep>(page);
    case 4:
      return DiffuseFor<V, 4, kStep>(page);
    default:
      return DiffuseFor<V, 0, kStep>(page);
  }
}

// Clears the entries on the side where the pass begins, up to the guard of its first pixel, and
// returns the guard.
template <int kLanes, int kStep>
std::uint16_t* ClearLineStart(const FastPage& page, const RowState& state) {
  const std::size_t firstEntry = kStep > 0 ? 0 : std::size_t{state.end} * page.numPix + 1;
  const std::size_t endEntry = kStep > 0 ? std::size_t{state.first} * page.numPix + 1
                                         : std::size_t{page.width} * page.numPix + 2;
  std::memset(page.line + firstEntry * kLanes, 0, (endEntry - firstEntry) * kLanes * 2);
  return page.line + (kStep > 0 ? endEntry - 1 : firstEntry) * kLanes;
}

template <class V, int kStep>
void RunPass(FastPage& page, const RowState& state, bool kept, RowErrors& errors) {
  using Vec = Vector<V>;
  constexpr int kLanes = Vec::kLanes;
  std::uint16_t* const guard = ClearLineStart<kLanes, kStep>(page, state);
  if (state.first < state.end) {
    DiffuseFor<V, kStep>(page)(page, state, kept, errors);
    if constexpr (kLanes == 16) {
      (page.twoDrop ? Deliver<16, true> : Deliver<16, false>)(page, state);
    } else {
      Deliver<8, false>(page, state);
    }
  }
  // What the first pixel handed to the guard goes to its own entry.
  Vec::Store(guard + kStep * kLanes, Add(Vec::Load(guard + kStep * kLanes), Vec::Load(guard)));
  Vec::Store(guard, Vec::Repeat(0));
}

// No ink at all in the pixels of the row.
bool IsWhite(const FastPage& page, const RowState& state) {
  if (state.first >= state.end) return true;
  const std::size_t count = state.end - state.first;
  return AllPlanes(page, state, [count](const std::uint8_t* levels, const std::uint8_t*) {
    return levels[0] == 0 && std::memcmp(levels, levels + 1, count - 1) == 0;
  });
}

bool IsZero(const std::uint16_t* words, std::size_t count) {
  return words[0] == 0 && std::memcmp(words, words + 1, (count - 1) * sizeof(*words)) == 0;
}

template <class V>
void RunRowIn(FastPage& page, const RowState& state) {
  constexpr int kLanes = Vector<V>::kLanes;
  const Kernel& kernel = *page.kernel;
  const RowPasses passes = PassesOf(kernel, state);
  RowErrors errors{};
  for (int i = 0; i < kernel.inkCount; ++i) {
    errors.carried.lane[LaneOf(kernel.inks[i].ink)] =
        static_cast<std::uint16_t>(state.CarriedError[static_cast<int>(kernel.inks[i].state)]);
  }

  const bool white = IsWhite(page, state);
  if (white && page.linesEmpty && IsZero(errors.carried.lane, kMaxLanes)) {
    const std::uint64_t pixels =
        state.first < state.end ? std::uint64_t{state.end - state.first} * page.numPix : 0;
    const int passCount = passes.forward + passes.backward;
    *state.RowPhase =
        static_cast<std::uint32_t>((*state.RowPhase + pixels * passCount) % kModulationLength);
    return;
  }

  bool kept = true;
  if (state.first < state.end && !IsSameRow(page, state)) {
    Interleave<kLanes>(page, state);
    kept = false;
  }
  if (passes.forward) {
    RunPass<V, +1>(page, state, kept, errors);
    kept = true;
  }
  if (passes.backward) RunPass<V, -1>(page, state, kept, errors);
  page.linesEmpty =
      white && IsZero(page.line, (std::size_t{page.width} * page.numPix + 2) * kLanes);

  for (int i = 0; i < kernel.inkCount; ++i) {
    state.CarriedError[static_cast<int>(kernel.inks[i].state)] =
        static_cast<std::int16_t>(errors.carried.lane[LaneOf(kernel.inks[i].ink)]);
  }
}

}  // namespace

void RunRow(FastPage& page, const RowState& state) {
  if (page.wide) {
    RunRowIn<Lanes16>(page, state);
  } else {
    RunRowIn<Lanes8>(page, state);
  }
}

}  // namespace corvane::CORVANE_SIMD_NAMESPACE
