// SPDX-License-Identifier: MIT
//
// The body of the segment engine, compiled once per instruction level. It works in scan order: the
// backward pass is the forward one on a mirrored row.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "halftone/engine_fast.h"
#include "halftone/engine_lanes.h"
#include "halftone/engine_segments.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

// Where a pass finds contone pixels and binary pixels: position 0 is the first that it scans.
// kStep is +1 forward, -1 backward.
template <int kStep>
struct Scan {
  const std::uint8_t* levels;  // of position 0
  std::int16_t* entries;       // of binary position 0

  Scan(const FastPage& page, const RowState& state) {
    const KernelInk& ink = page.kernel->inks[0];
    const std::size_t numPix = page.numPix;
    levels = state.data + std::size_t{ink.contonePlane} * state.stride;
    levels += kStep > 0 ? state.first : state.end - 1;
    entries = state.ErrorRows[static_cast<int>(ink.state)];
    entries += kStep > 0 ? state.first * numPix + 1 : state.end * numPix;
  }

  // 16 levels from position x on.
  __m128i Levels(std::size_t x) const {
    if constexpr (kStep > 0) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(levels + x));
    const __m128i mirrored = _mm_loadu_si128(reinterpret_cast<const __m128i*>(levels - x - 15));
    return _mm_shuffle_epi8(mirrored,
                            _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0));
  }

  // 8 entries from binary position p on.
  __m128i Entries(std::size_t p) const {
    if constexpr (kStep > 0) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(entries + p));
    return Mirrored(_mm_loadu_si128(reinterpret_cast<const __m128i*>(entries - p - 7)));
  }
  void StoreEntries(std::size_t p, __m128i v) const {
    if constexpr (kStep > 0) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(entries + p), v);
    } else {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(entries - p - 7), Mirrored(v));
    }
  }
  // The entry before that of binary position p; the guard at 0.
  std::int16_t& EntryBefore(std::size_t p) const {
    return kStep > 0 ? *(entries + p - 1) : *(entries - p + 1);
  }

 private:
  static __m128i Mirrored(__m128i words) {
    return _mm_shuffle_epi8(words,
                            _mm_setr_epi8(14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1));
  }
};

CORVANE_INLINE __m128i LoadWords(const std::uint16_t* from) {
  return _mm_load_si128(reinterpret_cast<const __m128i*>(from));
}
CORVANE_INLINE void StoreWords(std::uint16_t* to, __m128i words) {
  _mm_store_si128(reinterpret_cast<__m128i*>(to), words);
}
CORVANE_INLINE __m128i LoadBytes(const std::uint8_t* from) {
  return _mm_load_si128(reinterpret_cast<const __m128i*>(from));
}

// ---------------------------------------------------------------------------------------------
// From the row to segments, position by position, and back

CORVANE_INLINE void TransposeWords(__m128i (&v)[8]) {
  for (int step = 0; step < 3; ++step) {
    __m128i turned[8];
    for (int i = 0; i < 4; ++i) {
      turned[2 * i] = _mm_unpacklo_epi16(v[i], v[i + 4]);
      turned[2 * i + 1] = _mm_unpackhi_epi16(v[i], v[i + 4]);
    }
    for (int i = 0; i < 8; ++i) v[i] = turned[i];
  }
}

// Where a segment's position `offset` is in scan order. The first segment has nothing before its
// start and takes what stands behind it.
CORVANE_INLINE std::size_t StartOf(std::uint32_t segment, std::uint32_t length,
                                   std::int64_t offset) {
  return static_cast<std::size_t>(segment == 0 && offset < 0 ? 0 : segment * length + offset);
}

// Interleaves `count` levels of each segment, beginning at its position `offset`. Fewer than 16
// write over what stands behind them.
template <int kStep>
void LoadLevels(const Scan<kStep>& scan, std::uint32_t segmentPixels, std::int64_t offset,
                std::uint32_t count, std::uint8_t* to) {
  for (std::uint32_t x = 0; x < count; x += 16) {
    if (x + 16 > count && count > 16) x = count - 16;
    __m128i lower[8], upper[8];
    for (std::uint32_t i = 0; i < 8; ++i) {
      lower[i] = scan.Levels(StartOf(i, segmentPixels, offset) + x);
      upper[i] = scan.Levels(StartOf(i + 8, segmentPixels, offset) + x);
    }
    for (int step = 0; step < 3; ++step) {
      TransposeStep(lower);
      TransposeStep(upper);
    }
    __m128i* const pixels = reinterpret_cast<__m128i*>(to + x * kSegments);
    for (int i = 0; i < 8; ++i) {
      _mm_store_si128(pixels + 2 * i, _mm_unpacklo_epi64(lower[i], upper[i]));
      _mm_store_si128(pixels + 2 * i + 1, _mm_unpackhi_epi64(lower[i], upper[i]));
    }
  }
}

// The same for error-line entries; count is a multiple of 8.
template <int kStep>
void LoadEntries(const Scan<kStep>& scan, std::uint32_t segmentLength, std::int64_t offset,
                 std::uint32_t count, std::uint16_t* to) {
  for (std::uint32_t group = 0; group < kSegments; group += 8) {
    for (std::uint32_t p = 0; p < count; p += 8) {
      __m128i v[8];
      for (std::uint32_t i = 0; i < 8; ++i) {
        v[i] = scan.Entries(StartOf(group + i, segmentLength, offset) + p);
      }
      TransposeWords(v);
      for (std::uint32_t i = 0; i < 8; ++i) StoreWords(to + (p + i) * kSegments + group, v[i]);
    }
  }
}

// How the guesses of each segment came out.
struct Outcome {
  LaneWords start[kGuesses];       // errors at which the guesses reached their segments
  LaneWords end[kGuesses];         // and left them
  LaneWords second;                // all ones: the second guess holds
  bool serial[kSegments];          // neither: the segment was diffused on the row itself
  std::int16_t handed[kSegments];  // share that its first pixel hands to the one before
  std::int16_t carried;            // the error behind the last segment
};

// Writes the shares of the guesses that hold into the error line.
template <int kStep>
void StoreShares(const Scan<kStep>& scan, std::uint32_t segmentLength, const std::uint16_t* shares,
                 const Outcome& outcome) {
  for (std::uint32_t group = 0; group < kSegments; group += 8) {
    const __m128i second = LoadWords(outcome.second.lane + group);
    for (std::uint32_t p = 0; p < segmentLength; p += 8) {
      __m128i v[8];
      for (std::uint32_t i = 0; i < 8; ++i) {
        const std::uint16_t* const guesses = shares + (p + i) * kGuesses * kSegments + group;
        v[i] = _mm_blendv_epi8(LoadWords(guesses), LoadWords(guesses + kSegments), second);
      }
      TransposeWords(v);
      for (std::uint32_t i = 0; i < 8; ++i) {
        const std::uint32_t segment = group + i;
        if (outcome.serial[segment]) continue;
        scan.StoreEntries(std::size_t{segment} * segmentLength + p, v[i]);
      }
    }
  }
  for (std::uint32_t segment = 0; segment < kSegments; ++segment) {
    std::int16_t& entry = scan.EntryBefore(std::size_t{segment} * segmentLength);
    entry = static_cast<std::int16_t>(entry + outcome.handed[segment]);
  }
}

// 128 bits, the last one first.
CORVANE_INLINE __m128i MirroredBits(__m128i v) {
  const __m128i nibble = _mm_set1_epi8(15);
  const __m128i mirroredNibbles =
      _mm_setr_epi8(0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15);
  const __m128i high = _mm_shuffle_epi8(mirroredNibbles, _mm_and_si128(v, nibble));
  const __m128i low =
      _mm_shuffle_epi8(mirroredNibbles, _mm_and_si128(_mm_srli_epi16(v, 4), nibble));
  return _mm_shuffle_epi8(_mm_or_si128(_mm_slli_epi16(high, 4), low),
                          _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0));
}

// Gathers the drops of the guesses that hold into one string of bits, in the order of the plane.
template <int kStep>
void GatherDrops(const FastPage& page, std::uint32_t segmentLength, const Outcome& outcome) {
  const std::uint32_t segmentBytes = segmentLength / 8;
  const std::size_t allBytes = std::size_t{kSegments} * segmentBytes;
  alignas(16) std::uint8_t first[kSegments], second[kSegments];
  for (std::uint32_t segment = 0; segment < kSegments; ++segment) {
    const bool isSecond = outcome.second.lane[segment] != 0;
    first[segment] = isSecond || outcome.serial[segment] ? 0 : 0xFF;
    second[segment] = isSecond ? 0xFF : 0;
  }
  const __m128i firstMask = LoadBytes(first);
  const __m128i secondMask = LoadBytes(second);
  const auto dropsAt = [&](std::uint32_t column) {
    const std::uint8_t* const guesses = page.segments.drops + column * kGuesses * kSegments;
    return _mm_or_si128(_mm_and_si128(LoadBytes(guesses), firstMask),
                        _mm_and_si128(LoadBytes(guesses + kSegments), secondMask));
  };
  for (std::uint32_t column = 0; column < segmentBytes; column += 16) {
    if (column + 16 > segmentBytes) column = segmentBytes - 16;
    __m128i v[2][8];
    for (std::uint32_t i = 0; i < 8; ++i) {
      const __m128i even = dropsAt(column + 2 * i);
      const __m128i odd = dropsAt(column + 2 * i + 1);
      v[0][i] = _mm_unpacklo_epi64(even, odd);
      v[1][i] = _mm_unpackhi_epi64(even, odd);
    }
    for (int step = 0; step < 4; ++step) {
      TransposeStep(v[0]);
      TransposeStep(v[1]);
    }
    for (std::uint32_t segment = 0; segment < kSegments; ++segment) {
      const __m128i bits = v[segment / 8][segment % 8];
      const std::size_t byte = std::size_t{segment} * segmentBytes + column;
      std::uint8_t* const to = page.segments.bits + (kStep > 0 ? byte : allBytes - byte - 16);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to), kStep > 0 ? bits : MirroredBits(bits));
    }
  }
  std::memset(page.segments.bits + allBytes, 0, 16);
}

// Adds a string of bits to the plane, from bit `start` on, and returns how many are set.
std::uint32_t DeliverBits(const std::uint8_t* bits, std::size_t bytes, std::uint8_t* plane,
                          std::size_t start) {
  std::uint8_t* const to = plane + start / 8;
  const int shift = static_cast<int>(start % 8);
  if (shift == 0) {
    for (std::size_t i = 0; i < bytes; ++i) to[i] = static_cast<std::uint8_t>(to[i] | bits[i]);
  } else {
    to[0] = static_cast<std::uint8_t>(to[0] | bits[0] >> shift);
    for (std::size_t i = 1; i < bytes; ++i) {
      to[i] = static_cast<std::uint8_t>(to[i] | bits[i] >> shift | bits[i - 1] << (8 - shift));
    }
    to[bytes] = static_cast<std::uint8_t>(to[bytes] | bits[bytes - 1] << (8 - shift));
  }
  __m128i count = _mm_setzero_si128();
  for (std::size_t i = 0; i < bytes; i += 16) {  // zeros follow
    count =
        _mm_add_epi64(count, CountBits(_mm_load_si128(reinterpret_cast<const __m128i*>(bits + i))));
  }
  return static_cast<std::uint32_t>(
      _mm_cvtsi128_si32(_mm_add_epi64(count, _mm_unpackhi_epi64(count, count))));
}

// The modulation of all segments, by the phase of the first, and its start again.
void MakeModulation(SegmentBuffers& segments, std::uint32_t segmentLength) {
  if (segments.modulationLength == segmentLength) return;
  segments.modulationLength = segmentLength;
  for (std::uint32_t segment = 0; segment < kSegments; ++segment) {
    std::uint16_t* to = segments.modulation + segment;
    for (std::uint32_t phase = 0; phase < kModulationLength + 8; ++phase, to += kSegments) {
      const std::uint64_t at = phase + std::uint64_t{segment} * segmentLength;
      *to = static_cast<std::uint16_t>(kModulation[at % kModulationLength]);
    }
  }
}

// ---------------------------------------------------------------------------------------------
// The chain

CORVANE_INLINE LookUp<Lanes16> LookUpSegments(const FastPage& page, __m128i levels) {
  const auto lookUpEight = [&](std::uint64_t bytes) {
    const auto rule = [&](int segment) {
      return static_cast<int>(
          page.rules[static_cast<int>(InkGroup::Black)][bytes >> (8 * segment) & 0xFF]);
    };
    return Unpack(_mm_setr_epi32(rule(0), rule(1), rule(2), rule(3)),
                  _mm_setr_epi32(rule(4), rule(5), rule(6), rule(7)));
  };
  const LookUp<Lanes8> lower = lookUpEight(LowHalf(levels));
  const LookUp<Lanes8> upper = lookUpEight(LowHalf(_mm_srli_si128(levels, 8)));
  return {Vector<Lanes16>::Join(lower.bias, upper.bias),
          Vector<Lanes16>::Join(lower.meta, upper.meta)};
}

// A binary pixel of all segments, where the error of level 0 is halved toward zero: with w = error,
// one more where it is below 0, the half is w - ceil(w / 2), and its shares are those of w with
// each shift one larger. So no case has to be told apart, and w is there no later than the error
// less a drop, which makes the shares behind the decision the shorter way.
CORVANE_INLINE void HalvingStep(const Pixel<Lanes16>& pixel, Lanes16 dropSize, Lanes16 threshold,
                                Lanes16 next, std::uint16_t* entryBehind, Chain<Lanes16>& chain) {
  using Vec = Vector<Lanes16>;
  const Lanes16 drop = Greater(chain.error, threshold);
  const Lanes16 towardZero =
      Sub(chain.error, And(Vec::ShiftRight<15>(chain.error), pixel.zeroLevel));
  const Lanes16 w = Sub(towardZero, And(drop, dropSize));
  const Lanes16 lessHalf = MultiplyHigh(towardZero, And(pixel.zeroLevel, Vec::Repeat(0x80008000u)));
  const Lanes16 below = pixel.shares.Below(w);
  const Lanes16 behind = pixel.shares.Behind(w);
  chain.error = Sub(Sub(Add(Add(w, next), lessHalf), below), behind);
  Vec::Store(entryBehind, Add(chain.below, behind));
  chain.below = below;
  chain.drops = Sub(Add(chain.drops, chain.drops), drop);
}

// The errors of both guesses.
struct Errors {
  Lanes16 guess[kGuesses];
};

// `count` contone pixels of all segments in step, a multiple of 8 binary pixels; levels and entries
// have one more. `shares` is where the first pixel's share below goes. Takes the carried errors
// and returns those behind the last pixel. The guesses are two chains side by side, so that each
// runs while the other waits.
template <int kNumPix, bool kHalves>
Errors DiffuseSegments(const FastPage& page, const std::uint8_t* levels,
                       const std::uint16_t* entries, std::uint32_t count, std::uint32_t phase,
                       const Errors& carried, std::uint16_t* shares, std::uint8_t* drops) {
  using Vec = Vector<Lanes16>;
  constexpr std::uint32_t kPixelsInByte = 8 / kNumPix;
  const std::uint16_t* const modulations = page.segments.modulation;
  const Lanes16 dropSize = Vec::Load(page.dropSize.lane);

  Pixel<Lanes16> pixel;
  const __m128i firstLevels = LoadBytes(levels);
  LookUp<Lanes16> lookUp = LookUpSegments(page, firstLevels);
  SetPixel<Lanes16, false, false>(
      page, firstLevels, InputOf<Lanes16, false>(page, Vec::Widen(firstLevels)), lookUp, pixel);

  Chain<Lanes16> chains[kGuesses];
  for (int guess = 0; guess < kGuesses; ++guess) {
    chains[guess].below = Vec::Repeat(0);
    chains[guess].error = Add(carried.guess[guess], Add(pixel.input, Vec::Load(entries)));
  }

  for (std::uint32_t byte = 0; byte < count / kPixelsInByte; ++byte) {
    for (Chain<Lanes16>& chain : chains) chain.drops = Vec::Repeat(0);
    for (std::uint32_t x = 0; x < kPixelsInByte; ++x) {
      // The next pixel's look-ups stand before this one's chain, so that they are done when it
      // ends.
      levels += kSegments;
      const bool changes = !Vec::SameBytes(levels, levels - kSegments);
      const __m128i nextLevels = LoadBytes(levels);
      Lanes16 nextInput = pixel.input;
      if (changes) {
        nextInput = InputOf<Lanes16, false>(page, Vec::Widen(nextLevels));
        lookUp = LookUpSegments(page, nextLevels);
      }

      // Level 0 without any error needs nothing, see the engine of all inks.
      bool decays = false;
      if constexpr (!kHalves) {
        Lanes16 waiting = Or(chains[0].error, chains[1].error);
        for (int k = 1; k < kNumPix; ++k) waiting = Or(waiting, Vec::Load(entries + k * kSegments));
        decays = Vec::Overlap(waiting, pixel.zeroLevel);
      }

      const auto step = [&]<bool kDecays>(int k) {
        const Lanes16 modulation = Vec::Load(modulations + (phase + k) * kSegments);
        const Lanes16 threshold = Add(pixel.bias, MultiplyLow(modulation, pixel.modulationFactor));
        entries += kSegments;
        const Lanes16 next = Add(k + 1 < kNumPix ? pixel.input : nextInput, Vec::Load(entries));
        for (std::uint32_t guess = 0; guess < kGuesses; ++guess) {
          std::uint16_t* const behind = shares + guess * kSegments - kGuesses * kSegments;
          if constexpr (kHalves) {
            HalvingStep(pixel, dropSize, threshold, next, behind, chains[guess]);
          } else {
            const Lanes16 bit = Vec::Load(kDropBits[static_cast<int>(x) * kNumPix + k].lane);
            Step<Lanes16, false, kDecays>(page, pixel, threshold, next, bit, behind, chains[guess]);
          }
        }
        shares += kGuesses * kSegments;
      };
      if (decays) {
        for (int k = 0; k < kNumPix; ++k) step.template operator()<true>(k);
      } else {
        for (int k = 0; k < kNumPix; ++k) step.template operator()<false>(k);
      }
      phase = (phase + kNumPix) % kModulationLength;
      if (changes) SetPixel<Lanes16, false, false>(page, nextLevels, nextInput, lookUp, pixel);
    }
    for (const Chain<Lanes16>& chain : chains) {
      Vec::StoreAsBytes(drops, chain.drops);
      drops += kSegments;
    }
  }
  Errors errors;
  const Lanes16 ahead = Add(pixel.input, Vec::Load(entries));
  for (std::uint32_t guess = 0; guess < kGuesses; ++guess) {
    Vec::Store(shares + guess * kSegments - kGuesses * kSegments, chains[guess].below);
    errors.guess[guess] = Sub(chains[guess].error, ahead);
  }
  return errors;
}

// ---------------------------------------------------------------------------------------------
// A pass

// Finds for each segment, in scan order, the guess that met the true error. Where none did, the
// segment is diffused again on the row itself.
template <int kStep>
void Resolve(const FastPage& page, const RowState& state, const Scan<kStep>& scan,
             std::uint32_t segmentPixels, std::uint32_t phase, Outcome& outcome) {
  const std::uint32_t segmentLength = segmentPixels * page.numPix;
  const std::uint16_t* const handed = page.segments.shares;  // what stands before the first entry
  std::uint16_t carried = outcome.end[0].lane[0];
  outcome.handed[0] = static_cast<std::int16_t>(handed[0]);
  for (std::uint32_t segment = 1; segment < kSegments; ++segment) {
    if (outcome.start[0].lane[segment] == carried) {
      carried = outcome.end[0].lane[segment];
      outcome.handed[segment] = static_cast<std::int16_t>(handed[segment]);
    } else if (outcome.start[1].lane[segment] == carried) {
      outcome.second.lane[segment] = 0xFFFF;
      carried = outcome.end[1].lane[segment];
      outcome.handed[segment] = static_cast<std::int16_t>(handed[segment + kSegments]);
    } else {
      // The entry before the segment is stored later, so its part of it is kept.
      std::int16_t& before = scan.EntryBefore(std::size_t{segment} * segmentLength);
      const std::int16_t held = before;
      const std::uint32_t offset = segment * segmentPixels;
      std::int16_t& error = state.CarriedError[static_cast<int>(page.kernel->inks[0].state)];
      error = static_cast<std::int16_t>(carried);
      DiffuseSpanPlain(page.kernel->inks[0], state, kStep > 0,
                       kStep > 0 ? state.first + offset : state.end - offset - segmentPixels,
                       segmentPixels, phase + segment * segmentLength);
      outcome.serial[segment] = true;
      outcome.handed[segment] = static_cast<std::int16_t>(before - held);
      before = held;
      carried = static_cast<std::uint16_t>(error);
    }
  }
  outcome.carried = static_cast<std::int16_t>(carried);
}

// The segments of a pass, `segmentPixels` contone pixels each.
template <int kNumPix, int kStep, bool kHalves>
void RunSegments(FastPage& page, const RowState& state, std::uint32_t segmentPixels,
                 std::uint32_t phase) {
  using Vec = Vector<Lanes16>;
  constexpr std::uint32_t kLeadPixels = kLeadLength / kNumPix;
  SegmentBuffers& segments = page.segments;
  const KernelInk& ink = page.kernel->inks[0];
  const Scan<kStep> scan(page, state);
  const std::uint32_t segmentLength = segmentPixels * kNumPix;
  MakeModulation(segments, segmentLength);

  // The levels and entries of the lead lie before those of the segments.
  std::uint8_t* const levels = segments.levels + kLeadPixels * kSegments;
  std::uint16_t* const entries = segments.entries + kLeadLength * kSegments;
  LoadLevels(scan, segmentPixels, -std::int64_t{kLeadPixels}, kLeadPixels, segments.levels);
  LoadLevels(scan, segmentPixels, 0, segmentPixels, levels);
  std::memcpy(levels + segmentPixels * kSegments, levels + (segmentPixels - 1) * kSegments,
              kSegments);
  LoadEntries(scan, segmentLength, -std::int64_t{kLeadLength}, kLeadLength, segments.entries);
  LoadEntries(scan, segmentLength, 0, segmentLength, entries);

  // Both guesses of each segment come in over the end of the one before; the first one begins with
  // the true error.
  std::uint16_t* const shares = segments.shares + kGuesses * kSegments;
  Errors errors = {{Vec::Repeat(0), Vec::Repeat(0x00010001u)}};
  errors = DiffuseSegments<kNumPix, kHalves>(
      page, segments.levels, segments.entries, kLeadPixels,
      (phase + kModulationLength - kLeadLength) % kModulationLength, errors, shares,
      segments.drops);
  Outcome outcome{};
  for (int guess = 0; guess < kGuesses; ++guess) {
    Vec::Store(outcome.start[guess].lane, errors.guess[guess]);
    outcome.start[guess].lane[0] =
        static_cast<std::uint16_t>(state.CarriedError[static_cast<int>(ink.state)]);
    errors.guess[guess] = Vec::Load(outcome.start[guess].lane);
  }
  errors = DiffuseSegments<kNumPix, kHalves>(page, levels, entries, segmentPixels, phase, errors,
                                             shares, segments.drops);
  for (int guess = 0; guess < kGuesses; ++guess) {
    Vec::Store(outcome.end[guess].lane, errors.guess[guess]);
  }

  Resolve(page, state, scan, segmentPixels, phase, outcome);
  StoreShares(scan, segmentLength, shares, outcome);
  GatherDrops<kStep>(page, segmentLength, outcome);
  const std::size_t firstBit = kStep > 0
                                   ? std::size_t{state.first} * kNumPix
                                   : std::size_t{state.end} * kNumPix - segmentLength * kSegments;
  state.DotCount[static_cast<int>(ink.ink)] += DeliverBits(
      segments.bits, std::size_t{segmentLength} * kSegments / 8, state.output, firstBit);
  state.CarriedError[static_cast<int>(ink.state)] = outcome.carried;
}

template <int kNumPix, int kStep>
void RunSegments(FastPage& page, const RowState& state, std::uint32_t segmentPixels,
                 std::uint32_t phase) {
  (page.halvesBeside ? RunSegments<kNumPix, kStep, true>
                     : RunSegments<kNumPix, kStep, false>)(page, state, segmentPixels, phase);
}

template <int kStep>
void RunSegments(FastPage& page, const RowState& state, std::uint32_t segmentPixels,
                 std::uint32_t phase) {
  switch (page.numPix) {
    case 1:
      return RunSegments<1, kStep>(page, state, segmentPixels, phase);
    case 2:
      return RunSegments<2, kStep>(page, state, segmentPixels, phase);
    case 4:
      return RunSegments<4, kStep>(page, state, segmentPixels, phase);
    default:
      return RunSegments<8, kStep>(page, state, segmentPixels, phase);
  }
}

template <int kStep>
void RunPass(FastPage& page, const RowState& state) {
  const KernelInk& ink = page.kernel->inks[0];
  std::int16_t* const line = state.ErrorRows[static_cast<int>(ink.state)];
  const std::size_t numPix = page.numPix;
  std::int16_t* const guard = line + (kStep > 0 ? state.first * numPix : state.end * numPix + 1);
  std::int16_t* const cleared = kStep > 0 ? line : guard;
  std::int16_t* const clearedEnd = kStep > 0 ? guard + 1 : line + page.width * numPix + 2;
  std::memset(cleared, 0, static_cast<std::size_t>(clearedEnd - cleared) * sizeof(*line));

  const std::uint32_t pixels = state.first < state.end ? state.end - state.first : 0;
  const std::uint32_t pixelsInByte = 8 / page.numPix;
  std::uint32_t segmentPixels = pixels / kSegments / pixelsInByte * pixelsInByte;
  if (segmentPixels * page.numPix < kShortestSegment) segmentPixels = 0;
  std::uint32_t phase = *state.RowPhase;
  if (segmentPixels != 0) RunSegments<kStep>(page, state, segmentPixels, phase);
  const std::uint32_t done = segmentPixels * kSegments;
  // What does not fill the segments.
  DiffuseSpanPlain(ink, state, kStep > 0, kStep > 0 ? state.first + done : state.end - pixels,
                   pixels - done, phase + done * page.numPix);

  guard[kStep] = static_cast<std::int16_t>(guard[kStep] + guard[0]);
  guard[0] = 0;
  *state.RowPhase = (phase + pixels * page.numPix) % kModulationLength;
}

template <typename T>
bool IsZero(const T* values, std::size_t count) {
  return values[0] == 0 && std::memcmp(values, values + 1, (count - 1) * sizeof(T)) == 0;
}

}  // namespace

void RunSegmentRow(FastPage& page, const RowState& state) {
  const KernelInk& ink = page.kernel->inks[0];
  const RowPasses passes = PassesOf(*page.kernel, state);
  const std::uint32_t pixels = state.first < state.end ? state.end - state.first : 0;
  const std::uint8_t* const levels =
      state.data + std::size_t{ink.contonePlane} * state.stride + state.first;
  const bool white = pixels == 0 || IsZero(levels, pixels);
  const std::int16_t& carried = state.CarriedError[static_cast<int>(ink.state)];
  if (white && page.linesEmpty && carried == 0) {
    const std::uint32_t passCount = (passes.forward ? 1u : 0u) + (passes.backward ? 1u : 0u);
    *state.RowPhase = (*state.RowPhase + pixels * page.numPix * passCount) % kModulationLength;
    return;
  }
  if (passes.forward) RunPass<+1>(page, state);
  if (passes.backward) RunPass<-1>(page, state);
  page.linesEmpty = white && IsZero(state.ErrorRows[static_cast<int>(ink.state)],
                                    std::size_t{page.width} * page.numPix + 2);
}

}  // namespace corvane::CORVANE_SIMD_NAMESPACE
