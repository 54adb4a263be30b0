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
#include "halftone/engine_lanes.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

// ---------------------------------------------------------------------------------------------
// Interleaving the levels by ink, and taking the drops apart again

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

// The levels of a pixel, from -1 to the row's width.
std::uint8_t* LevelsAt(const FastPage& page, std::int64_t x) {
  return page.levels + static_cast<std::size_t>(x + 1) * (page.wide ? 16 : 8);
}

// Writes 16 pixels of 8 lanes into every kLanes-th byte group and reports where they differ from
// what stood there.
template <int kLanes>
CORVANE_INLINE __m128i StorePixels(std::uint8_t* to, const __m128i (&v)[8], __m128i differences) {
  for (int i = 0; i < 8; ++i) {
    if constexpr (kLanes == 8) {
      __m128i* const place = reinterpret_cast<__m128i*>(to + 16 * i);
      differences = _mm_or_si128(differences, _mm_xor_si128(_mm_loadu_si128(place), v[i]));
      _mm_storeu_si128(place, v[i]);
    } else {
      __m128i* const even = reinterpret_cast<__m128i*>(to + 32 * i);
      __m128i* const odd = reinterpret_cast<__m128i*>(to + 32 * i + 16);
      const __m128i old = _mm_unpacklo_epi64(_mm_loadl_epi64(even), _mm_loadl_epi64(odd));
      differences = _mm_or_si128(differences, _mm_xor_si128(old, v[i]));
      _mm_storel_epi64(even, v[i]);
      _mm_storeh_pd(reinterpret_cast<double*>(odd), _mm_castsi128_pd(v[i]));
    }
  }
  return differences;
}

// Interleaves the row's levels and returns whether they are those that were there.
template <int kLanes>
bool Interleave(FastPage& page, const RowState& state) {
  const Kernel& kernel = *page.kernel;
  const std::uint8_t* dark[kMaxLanes] = {};
  const std::uint8_t* light[kMaxLanes] = {};
  for (int i = 0; i < kernel.inkCount; ++i) {
    const KernelInk& ink = kernel.inks[i];
    const int lane = LaneOf(ink.ink);
    dark[lane] = state.data + std::size_t{ink.contonePlane} * state.stride;
    if (ink.foldedPlane != kNoPlane) {
      light[lane] = state.data + std::size_t{ink.foldedPlane} * state.stride;
    }
  }
  __m128i differences = _mm_setzero_si128();
  for (std::uint32_t x = state.first; x < state.end; x += 16) {
    const std::size_t count = state.end - x;
    for (int group = 0; group < kLanes; group += 8) {
      __m128i v[8];
      for (int i = 0; i < 8; ++i) {
        const std::uint8_t* const plane = dark[group + i];
        const std::uint8_t* const folded = light[group + i];
        v[i] = plane == nullptr ? _mm_setzero_si128() : LoadPart(plane + x, count);
        if (folded != nullptr) v[i] = Fold(v[i], LoadPart(folded + x, count));
      }
      for (int step = 0; step < 3; ++step) TransposeStep(v);
      differences = StorePixels<kLanes>(LevelsAt(page, x) + group, v, differences);
    }
  }
  return _mm_testz_si128(differences, differences) != 0;
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
// Look-ups

// The table look-ups: one load a lane. Bytes are shifted out of a general register; by way of
// memory they would stall.
template <class V>
CORVANE_INLINE LookUp<V> LookUpRules(const FastPage& page, __m128i levels) {
  const auto rule = [&page](InkGroup group, std::uint64_t bytes, int byte) {
    return static_cast<int>(page.rules[static_cast<int>(group)][bytes >> (8 * byte) & 0xFF]);
  };
  using enum InkGroup;
  const std::uint64_t low = LowHalf(levels);
  const LookUp<Lanes8> lowLanes = Unpack(
      _mm_setr_epi32(rule(CMY, low, 0), rule(cmy, low, 1), rule(CMY, low, 2), rule(cmy, low, 3)),
      _mm_setr_epi32(rule(CMY, low, 4), rule(cmy, low, 5), rule(Black, low, 6), 0));
  if constexpr (Vector<V>::kLanes == 8) {
    return lowLanes;
  } else {
    const std::uint64_t high = LowHalf(_mm_srli_si128(levels, 8));
    const LookUp<Lanes8> highLanes = Unpack(
        _mm_setr_epi32(rule(Black, high, 0), rule(Black, high, 1), 0, 0), _mm_setzero_si128());
#if CORVANE_SIMD_LEVEL >= 2
    return {_mm256_set_m128i(highLanes.bias, lowLanes.bias),
            _mm256_set_m128i(highLanes.meta, lowLanes.meta)};
#else
    return {{lowLanes.bias, highLanes.bias}, {lowLanes.meta, highLanes.meta}};
#endif
  }
}

// ---------------------------------------------------------------------------------------------
// The passes

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
  SetPixel<V, kCoupled, kTwoDrop>(page, Vec::LoadBytes(levels), lookUp, pixel);

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
    const V nextInput = InputOf<V>(page, Vec::Widen(nextLevels));
    if (changes) lookUp = GetLookUp<V, kCoupled>(page, kept, nextLevels, stored);
    if (!kept) StoreLookUp(stored, lookUp);

    // A lane of level 0 in which there is no error at all needs nothing: it gets no drop, as
    // thresholds are positive, and hands on zeros.
    V waiting = chain.error;
    for (int k = 1; k < numPix; ++k) waiting = Or(waiting, Vec::Load(entry + k * kStep * kLanes));
    const bool decays = Vec::Overlap(waiting, pixel.zeroLevel);

    const auto step = [&]<bool kDecays>(int k) {
      const std::uint32_t p = place + static_cast<std::uint32_t>(k * kStep);
      const std::uint32_t at = kNumPix != 0 ? phase + k : (phase + k) % kModulationLength;
      const V modulation = Vec::Repeat(page.modulation[at]);
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
    if (changes) SetPixel<V, kCoupled, kTwoDrop>(page, nextLevels, lookUp, pixel);
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
  std::memset(beyond, 0, kLanes);
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
  const auto isEmpty = [&](std::uint8_t plane) {
    const std::uint8_t* const levels = state.data + std::size_t{plane} * state.stride + state.first;
    return levels[0] == 0 && std::memcmp(levels, levels + 1, count - 1) == 0;
  };
  for (int i = 0; i < page.kernel->inkCount; ++i) {
    const KernelInk& ink = page.kernel->inks[i];
    if (!isEmpty(ink.contonePlane)) return false;
    if (ink.foldedPlane != kNoPlane && !isEmpty(ink.foldedPlane)) return false;
  }
  return true;
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

  const bool sameLevels = Interleave<kLanes>(page, state);
  bool kept =
      sameLevels && page.keepsLookUps && page.keptFirst == state.first && page.keptEnd == state.end;
  if (passes.forward) {
    RunPass<V, +1>(page, state, kept, errors);
    kept = true;
  }
  if (passes.backward) RunPass<V, -1>(page, state, kept, errors);
  page.keepsLookUps = state.first < state.end;
  page.keptFirst = state.first;
  page.keptEnd = state.end;
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
