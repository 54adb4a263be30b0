// SPDX-License-Identifier: MIT
//
// The body of the fast engine, compiled once per instruction level. A row goes through it in three
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

bool IsSameRow(const FastPage& page, const RowState& state) {
  return page.keepsLookUps && page.keptFirst == state.first && page.keptEnd == state.end &&
         IsKept(page, state);
}

// Interleaves the row's levels, and keeps them as they came to know the row again.
template <int kLanes>
void Interleave(FastPage& page, const RowState& state) {
  const Kernel& kernel = *page.kernel;
  PlaneSource planes[kMaxLanes] = {};
  for (int i = 0; i < kernel.inkCount; ++i) {
    const KernelInk& ink = kernel.inks[i];
    planes[LaneOf(ink.ink)] = SourceOf(ink, state);
  }
  std::uint32_t x = state.first;
  for (; state.end - x >= 16; x += 16) {
    InterleavePixels<kLanes>(planes, x, 16, LevelsAt(page, x));
  }
  if (x < state.end) InterleavePixels<kLanes>(planes, x, state.end - x, LevelsAt(page, x));

  KeepPlanes(page, state);
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
// The passes

// The table look-ups: one load a lane. Bytes are shifted out of a general register; by way of
// memory they would stall.
template <class V>
CORVANE_INLINE LookUp<V> LookUpRules(const FastPage& page, __m128i levels) {
  const auto rule = [&page](InkGroup group, std::uint64_t bytes, int byte) {
    return static_cast<int>(page.rules[static_cast<int>(group)][bytes >> (8 * byte) & 0xFF]);
  };
  using enum InkGroup;
  const std::uint64_t low = LowHalf(levels);
  const LookUp<Lanes8> lower = Unpack(
      _mm_setr_epi32(rule(CMY, low, 0), rule(cmy, low, 1), rule(CMY, low, 2), rule(cmy, low, 3)),
      _mm_setr_epi32(rule(CMY, low, 4), rule(cmy, low, 5), rule(Black, low, 6), 0));
  if constexpr (Vector<V>::kLanes == 8) {
    return lower;
  } else {
    const std::uint64_t high = LowHalf(_mm_srli_si128(levels, 8));
    const __m128i upper =
        SplitRules(_mm_setr_epi32(rule(Black, high, 0), rule(Black, high, 1), 0, 0));
    return {Join(lower.bias, _mm_move_epi64(upper)), Join(lower.meta, _mm_srli_si128(upper, 8))};
  }
}

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
    // Pairs that decide jointly are looked up at the sum of their levels.
    const __m128i joint = JointPairs(levels);
    const __m128i partner = _mm_shuffle_epi8(levels, PartnerBytes());
    LookUp<V> lookUp = LookUpRules<V>(page, _mm_add_epi8(levels, _mm_and_si128(partner, joint)));
    const V mark = And(Vector<V>::WidenMask(joint), Vector<V>::Repeat(kJointMark));
    lookUp.meta = Or(lookUp.meta, mark);
    return lookUp;
  } else {
    return LookUpRules<V>(page, levels);
  }
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
