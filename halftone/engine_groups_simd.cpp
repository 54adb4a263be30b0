// SPDX-License-Identifier: MIT
//
// The body of the group engine, compiled once per instruction level. A row goes through it in four
// steps: levels are brought into segment order and looked up, unless they are those of the row
// before; a pass runs over a lead and then over the row, again where a start was wrong; the drops
// are taken apart into planes and counted.
#if defined(__GNUC__) && !defined(__clang__)
// The compiler's own header hands undefined registers to instructions that do not look at them.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "halftone/engine_choice.h"
#include "halftone/engine_groups.h"
#include "halftone/group_vectors.h"
#include "halftone/plane_bytes.h"
#include "halftone/threshold_tables.h"
#include "halftone/weight_maps.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

CORVANE_INLINE Words Load(const GroupWords& words) { return Load(words.lane); }
CORVANE_INLINE Words Load(const GroupBytes& bytes) { return Load(bytes.lane); }

// ---------------------------------------------------------------------------------------------
// Levels in segment order, and what they decide

// 16 pixels of 8 lanes at a time, whichever inks and segments these are.
void Interleave(const GroupedPage& page, LaneGroup& group, const RowState& state) {
  PlaneSource planes[kMaxGroupWidth] = {};
  for (int lane = 0; lane < group.width; ++lane) {
    if (group.inks[lane] >= 0) {
      planes[lane] = SourceOf(page.kernel->inks[group.inks[lane]], state);
    }
  }
  for (int unit = 0; unit < kLanes; unit += 8) {
    PlaneSource sources[8];
    std::uint32_t starts[8];
    for (int i = 0; i < 8; ++i) {
      sources[i] = planes[(unit + i) % group.width];
      starts[i] =
          state.first + static_cast<std::uint32_t>((unit + i) / group.width) * group.segmentPixels;
    }
    for (std::uint32_t x = 0; x < group.segmentPixels; x += 16) {
      __m128i v[8];
      // What stands behind a segment does not matter, as long as it may be read.
      for (int i = 0; i < 8; ++i) v[i] = sources[i].Load(starts[i] + x, state.end - starts[i] - x);
      for (int step = 0; step < 3; ++step) TransposeStep(v);
      std::uint8_t* to = group.levels + std::size_t{x} * kLanes + unit;
      for (int i = 0; i < 8; ++i, to += 2 * kLanes) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(to), v[i]);
        _mm_storeh_pd(reinterpret_cast<double*>(to + kLanes), _mm_castsi128_pd(v[i]));
      }
    }
  }
}

// Of 8 binary pixels: some ink has level 0; some level is not that of the pixel before.
constexpr std::uint8_t kHasZeroLevel = 1;
constexpr std::uint8_t kVaries = 2;

// By class of shares: 1 where the shares keep the error's parity, 2 where its residue modulo 3.
struct alignas(16) ClassFlags {
  std::uint8_t byClass[16];
};
constexpr ClassFlags kKeeps = [] {
  ClassFlags flags{};
  for (int i = 0; i < kWeightClassCount; ++i) {
    const ErrorShare& below = kErrorWeights[i].below;
    const ErrorShare& behind = kErrorWeights[i].behind;
    const bool same =
        below.firstShift == behind.firstShift && below.secondShift == behind.secondShift;
    flags.byClass[i] = same ? 1 : i == static_cast<int>(WeightClass::E4_2E4) ? 2 : 0;
  }
  return flags;
}();

// The rules of two pixels; the meta bytes are in the order of the levels.
struct TwoRules {
  Words bias[2];
  Words meta;
};

#if CORVANE_SIMD_LEVEL >= 4
CORVANE_INLINE Words FromTable(const std::uint8_t (&table)[kLevelCount], Words levels) {
  const Words low = _mm512_permutex2var_epi8(Load(table), levels, Load(table + 64));
  const Words high = _mm512_permutex2var_epi8(Load(table + 128), levels, Load(table + 192));
  return _mm512_mask_blend_epi8(_mm512_movepi8_mask(levels), low, high);
}

CORVANE_INLINE void LookUp(const LaneGroup& group, Words levels, TwoRules& rules) {
  Words low{}, high{};
  for (int i = 0; i < group.setCount; ++i) {
    const RuleBytes& set = group.sets[i];
    const __mmask64 lanes = group.lanesOfSet[i];
    low = _mm512_mask_mov_epi8(low, lanes, FromTable(set.biasLow, levels));
    high = _mm512_mask_mov_epi8(high, lanes, FromTable(set.biasHigh, levels));
    rules.meta = _mm512_mask_mov_epi8(rules.meta, lanes, FromTable(set.meta, levels));
  }
  // Bytes of both pixels in turn, so that unpacking puts each word into its lane.
  const Words inTurn = _mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7);
  low = _mm512_permutexvar_epi64(inTurn, low);
  high = _mm512_permutexvar_epi64(inTurn, high);
  rules.bias[0] = _mm512_unpacklo_epi8(low, high);
  rules.bias[1] = _mm512_unpackhi_epi8(low, high);
}
#else
CORVANE_INLINE std::uint64_t LowHalf(__m128i v) {
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(v));
}

// One load a lane, of 16 lanes. Bytes are shifted out of a general register; by way of memory they
// would stall.
struct Rules16 {
  __m128i bias[2];
  __m128i meta;
};
CORVANE_INLINE Rules16 LookUpLanes(const LaneGroup& group, __m128i levels) {
  const auto rule = [&group](std::uint64_t bytes, int lane) __attribute__((always_inline)) {
    return static_cast<int>(group.rulesOfLane[lane][bytes >> (8 * lane) & 0xFF]);
  };
  const __m128i inTurn = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
  Rules16 rules;
  __m128i meta[2];
  for (int half = 0; half < 2; ++half) {
    const std::uint64_t bytes = LowHalf(half == 0 ? levels : _mm_srli_si128(levels, 8));
    const __m128i first = _mm_shuffle_epi8(
        _mm_setr_epi32(rule(bytes, 0), rule(bytes, 1), rule(bytes, 2), rule(bytes, 3)), inTurn);
    const __m128i second = _mm_shuffle_epi8(
        _mm_setr_epi32(rule(bytes, 4), rule(bytes, 5), rule(bytes, 6), rule(bytes, 7)), inTurn);
    rules.bias[half] = _mm_unpacklo_epi64(first, second);
    meta[half] = _mm_unpackhi_epi64(first, second);
  }
  rules.meta = _mm_packus_epi16(meta[0], meta[1]);
  return rules;
}

CORVANE_INLINE void LookUp(const LaneGroup& group, const Words& levels, TwoRules& rules) {
#if CORVANE_SIMD_LEVEL >= 3
  const auto pixel = [&group, &rules ](__m256i bytes, int i) __attribute__((always_inline)) {
    const Rules16 low = LookUpLanes(group, _mm256_castsi256_si128(bytes));
    const Rules16 high = LookUpLanes(group, _mm256_extracti128_si256(bytes, 1));
    rules.bias[i] = _mm512_inserti64x4(_mm512_castsi256_si512(Join(low.bias[0], low.bias[1])),
                                       Join(high.bias[0], high.bias[1]), 1);
    return Join(low.meta, high.meta);
  };
  const __m256i first = pixel(_mm512_castsi512_si256(levels), 0);
  const __m256i second = pixel(_mm512_extracti64x4_epi64(levels, 1), 1);
  rules.meta = _mm512_inserti64x4(_mm512_castsi256_si512(first), second, 1);
#else
  const Rules16 first = LookUpLanes(group, Low(levels));
  const Rules16 second = LookUpLanes(group, High(levels));
  rules.bias[0] = Join(first.bias[0], first.bias[1]);
  rules.bias[1] = Join(second.bias[0], second.bias[1]);
  rules.meta = Join(first.meta, second.meta);
#endif
}
#endif

// Looks up the whole row, two pixels at a time.
template <bool kCoupled>
void LookUpRow(const GroupedPage& page, LaneGroup& group) {
  constexpr std::uint64_t kFirst = (std::uint64_t{1} << kLanes) - 1;
  constexpr std::uint64_t kBoth = kFirst << kLanes | kFirst;
  const std::uint32_t blocks = (group.segmentPixels * page.numPix + 7) / 8;
  std::memset(group.blockFlags, 0, blocks + 1);
  const Words keeps = RepeatTable(kKeeps.byClass);
  const Words classBits = Repeat((kMetaMark - 1) * 0x101);
  Words kept = Repeat(0x303);
  Words before = Zero();
  TwoRules rules{};
  for (std::uint32_t x = 0; x < group.segmentPixels; x += 2) {
    const bool hasBoth = x + 1 < group.segmentPixels;
    Words levels = Load(group.levels + std::size_t{x} * kLanes);
    if (!hasBoth) levels = RepeatFirstPixel(levels);
    const std::uint64_t zero = EqualBytes(levels, Zero()) & group.inkBytes;
    std::uint8_t& flags = group.blockFlags[x * page.numPix / 8];
    std::uint8_t& nextFlags = group.blockFlags[(x + 1) * page.numPix / 8];
    if ((zero & kFirst) != 0) flags |= kHasZeroLevel;
    if (zero >> kLanes != 0 && hasBoth) nextFlags |= kHasZeroLevel;
    // Equal pairs say nothing of the two pixels in them.
    if (EqualBytes(levels, SwapPixels(levels)) != kBoth) flags |= kVaries;
    if (EqualBytes(levels, before) != kBoth || x == 0) {
      before = levels;
      flags |= kVaries;
      nextFlags |= kVaries;
      if constexpr (kCoupled) {
        const Words partner = ShuffleBytes(levels, Load(group.partnerLevels));
        const Words joint = And(BytesUpTo(kJointLevelLimit - 1, LargerBytes(levels, partner)),
                                Load(group.pairLevels));
        // The sums stay below 256.
        LookUp(group, Add(levels, And(partner, joint)), rules);
        rules.meta = Or(rules.meta, And(joint, Repeat(kMetaMark * 0x101)));
      } else {
        LookUp(group, levels, rules);
      }
      kept = And(kept, ClearWhereZero(levels, ShuffleBytes(keeps, And(rules.meta, classBits))));
    }
    std::uint16_t* const bias = group.bias + std::size_t{x} * kLanes;
    Store(bias, rules.bias[0]);
    if (hasBoth) Store(bias + kLanes, rules.bias[1]);
    Store(group.meta + std::size_t{x} * kLanes, rules.meta);
  }
  GroupBytes flags;
  Store(flags.lane, And(kept, SwapPixels(kept)));
  Store(group.keepsParity.lane, WordsOf(Overlaps(Widen(flags.lane), Repeat(1))));
  Store(group.keepsThirds.lane, WordsOf(Overlaps(Widen(flags.lane), Repeat(2))));
}

// ---------------------------------------------------------------------------------------------
// The chain

// All that the binary pixels of a contone pixel need.
struct Pixel {
  Words input, bias, factor;
  Shares shares;
  Mask zero;      // level 0
  Words partner;  // byte shuffle: the partner's error in the lanes of joint pairs, 0 elsewhere
  Mask forced;    // the second of a pair whose first has no ink
};

template <bool kTwoDrop>
CORVANE_INLINE Words InputOf(const LaneGroup& group, const std::uint8_t* levels) {
  Words words = Widen(levels);
  if constexpr (kTwoDrop) words = And(words, Load(group.inputMask));
  return MultiplyLow(words, Load(group.inputScale));
}

template <bool kCoupled>
CORVANE_INLINE void SetPixel(const LaneGroup& group, const std::uint8_t* levels,
                             const std::uint16_t* bias, const std::uint8_t* metas, Pixel& pixel) {
  const Words words = Widen(levels);
  const Words meta = Widen(metas);
  pixel.bias = Load(bias);
  pixel.factor = ShiftRightUnsigned<kMetaFactorShift>(meta);
  pixel.shares.Set(group, meta);
  pixel.zero = IsZero(words);
  if constexpr (kCoupled) {
    const Mask apart = IsZero(And(meta, Repeat(kMetaMark)));
    pixel.partner = Or(Load(group.partnerWords), WordsOf(apart));
    const Words partner = ShuffleBytes(words, Load(group.partnerWords));
    const Words second = Load(group.second);
    pixel.forced = Both(Overlaps(second, second), IsZero(partner));
  }
}

// How the lanes of a group decide.
enum class Rules { Independent, Coupled, TwoDrop, Alone };

// What is done about errors at level 0: nothing where they are all zero.
enum class ZeroLevel { Nothing, Decays, HalvesBeside };

// What runs along the row.
struct Chain {
  Words error;  // of the current binary pixel, its input and its entry included
  Words below;  // share of the pixel before it, which has still to get this one's share behind
  Words drops;  // of the current 8 binary pixels, a bit each
};

// One binary pixel of all lanes. `next` is the next pixel's input and entry. The order of the sums
// puts what is known last at their end.
template <Rules kRules, ZeroLevel kZeroLevel, bool kWrites>
CORVANE_INLINE void Step(const LaneGroup& group, const Pixel& pixel, const Words& threshold,
                         const Words& next, const Words& bit, std::uint16_t* entryBehind,
                         Chain& chain) {
  constexpr bool kCoupled = kRules == Rules::Coupled;
  constexpr bool kDecays = kZeroLevel == ZeroLevel::Decays;
  Words error = chain.error;
  Mask drop;
  if constexpr (kCoupled) {
    // A joint decision compares the sum of the errors, and the larger gets the drop. The sum must
    // not wrap; where the other comparison does, the sum is too low for any drop.
    const Words partner = ShuffleBytes(error, pixel.partner);
    Mask wins = Greater(error, Sub(partner, Load(group.second)));
    if constexpr (kDecays) wins = Without(Either(wins, pixel.forced), pixel.zero);
    drop = GreaterWhere(wins, AddSaturated(error, partner), threshold);
  } else {
    drop = Greater(error, threshold);
  }
  // A drop that is forced may wrap: there the shares are those of what it leaves. Where a vector is
  // two registers, fewer operations count for more than a short chain.
  constexpr bool kDropsFirst =
      (kCoupled && kDecays) || (kRules == Rules::Alone && CORVANE_SIMD_LEVEL < 2);
  if constexpr (kDropsFirst) error = SubWhere(drop, error, Load(group.dropSize));
  if constexpr (kDecays) error = Decay(group, error, pixel.zero);
  Words ahead = error;
  if constexpr (kZeroLevel == ZeroLevel::HalvesBeside) {
    // Of w, one more than an error below zero, half the error is w >> 1, and the shares of that are
    // those of w with each shift one larger.
    error = SubWhere(pixel.zero, error, ShiftRight<15>(error));
    ahead = Choose(error, ShiftRight<1>(error), pixel.zero);
  }
  Words below = pixel.shares.Below(error);
  Words behind = pixel.shares.Behind(error);
  ahead = Add(ahead, next);
  const Words shared = Add(below, behind);
  if constexpr (kDropsFirst) {
    chain.error = Sub(ahead, shared);
  } else if constexpr (kDropIsLast || kCoupled) {
    chain.error = SubWhere(drop, Sub(ahead, shared), pixel.shares.dropAhead);
  } else {
    chain.error = Sub(SubWhere(drop, ahead, pixel.shares.dropAhead), shared);
  }
  if constexpr (kWrites) {
    if constexpr (!kDropsFirst) {
      behind = SubWhere(drop, behind, pixel.shares.dropBehind);
      below = SubWhere(drop, below, pixel.shares.dropBelow);
    }
    Store(entryBehind, Add(chain.below, behind));
    chain.below = below;
    chain.drops = AddWhere(drop, chain.drops, bit);
  }
}

// A bit of the plane's bytes in every lane.
constexpr std::array<GroupWords, 8> kDropBits = [] {
  std::array<GroupWords, 8> bits{};
  for (int bit = 0; bit < 8; ++bit) {
    for (std::uint16_t& lane : bits[bit].lane) lane = static_cast<std::uint16_t>(1 << bit);
  }
  return bits;
}();

constexpr int kGuesses = 3;

// What comes in and goes out at the ends of a stretch.
template <int kChains>
struct Errors {
  GroupWords chain[kChains];
  GroupWords below;  // of the pixel before; of all chains
};

// A stretch of a segment in scan order, in blocks of 8 binary pixels; the block at the right end
// may have fewer.
struct Stretch {
  std::uint32_t firstBlock;
  std::uint32_t endBlock;
  std::uint32_t phase;  // of the first segment's first binary pixel
  bool repeats;         // ends one block behind the place where all errors are what they were
};

std::uint32_t BlocksOf(const LaneGroup& group, std::uint32_t numPix) {
  return (group.segmentPixels * numPix + 7) / 8;
}

// The contone pixels before a block in scan order.
template <int kNumPix, int kStep>
std::uint32_t ScannedBefore(const LaneGroup& group, std::uint32_t block) {
  constexpr std::uint32_t kPixelsInByte = 8 / kNumPix;
  if (kStep > 0 || block == 0) return block * kPixelsInByte;
  return group.segmentPixels - (BlocksOf(group, kNumPix) - block) * kPixelsInByte;
}

// Runs a stretch of all segments from the given errors, and puts there what they end with; returns
// the block behind the last one. Ends early where two chains have met. A repeated run ends where
// all errors are what they were, leaves the given ones alone, and returns the first block. Lines,
// drops and checkpoints are written where kWrites says so.
template <int kNumPix, int kStep, Rules kRules, int kChains, bool kWrites>
std::uint32_t Diffuse(LaneGroup& group, const Stretch& stretch, Errors<kChains>& errors) {
  constexpr bool kTwoDrop = kRules == Rules::TwoDrop;
  constexpr ZeroLevel kDecays =
      kRules == Rules::Alone ? ZeroLevel::HalvesBeside : ZeroLevel::Decays;
  constexpr std::uint32_t kPixelsInByte = 8 / kNumPix;
  const std::uint32_t blocks = BlocksOf(group, kNumPix);
  const std::uint16_t* const modulations = group.modulation[kStep > 0 ? 0 : 1];
  const std::uint32_t scanned = ScannedBefore<kNumPix, kStep>(group, stretch.firstBlock);
  const std::ptrdiff_t firstPixel = kStep > 0 ? scanned : group.segmentPixels - 1 - scanned;
  const std::ptrdiff_t firstPosition = firstPixel * kNumPix + (kStep > 0 ? 0 : kNumPix - 1);
  const std::uint8_t* levels = group.levels + firstPixel * kLanes;
  const std::uint16_t* bias = group.bias + firstPixel * kLanes;
  const std::uint8_t* meta = group.meta + firstPixel * kLanes;
  const std::uint16_t* entry = group.line + firstPosition * kLanes;
  std::uint16_t* entryBehind = group.newLine[0] + (firstPosition - kStep) * kLanes;
  const std::ptrdiff_t otherLine = group.newLine[1] - group.newLine[0];
  std::uint32_t phase = (stretch.phase + scanned * kNumPix) % kModulationLength;
  std::size_t modulationAt = std::size_t{phase} * group.segments;

  Chain chains[kChains];
  Words nextInput = InputOf<kTwoDrop>(group, levels);
  for (int i = 0; i < kChains; ++i) {
    chains[i].below = Load(errors.below);
    chains[i].drops = Zero();
    chains[i].error = Add(Load(errors.chain[i]), Add(nextInput, Load(entry)));
  }
  Pixel pixel{};
  bool agrees = false;
  bool isFirst = true;
  std::uint32_t b = stretch.firstBlock;
  for (; b < stretch.endBlock && !agrees; ++b) {
    const std::uint32_t block = kStep > 0 ? b : blocks - 1 - b;
    if constexpr (kWrites) {
      if (kChains == 2 && !isFirst &&
          (UnequalLanes(chains[0].error, chains[kChains - 1].error) |
           UnequalLanes(chains[0].below, chains[kChains - 1].below)) == 0) {
        break;
      }
      for (int i = 0; i < kChains; ++i) {
        std::uint16_t* const checkpoint = group.checkpoints[i] + std::size_t{block} * kLanes;
        if (stretch.repeats && !isFirst) {
          agrees = UnequalLanes(chains[i].error, Load(checkpoint)) == 0;
        }
        Store(checkpoint, chains[i].error);
        chains[i].drops = Zero();
      }
    }
    const bool hasZero = (group.blockFlags[block] & kHasZeroLevel) != 0;
    const bool varies = (group.blockFlags[block] & kVaries) != 0 || isFirst;
    isFirst = false;
    const std::uint32_t pixelsLeft = group.segmentPixels - block * kPixelsInByte;
    const std::uint32_t count = pixelsLeft < kPixelsInByte ? pixelsLeft : kPixelsInByte;
    Words certain = Zero();
    for (std::uint32_t x = 0; x < count; ++x) {
      if (x == 0 || varies) SetPixel<kRules == Rules::Coupled>(group, levels, bias, meta, pixel);
      pixel.input = nextInput;
      // The place of the pixel's first bit in the byte.
      const std::uint32_t place = (kStep > 0 ? x : count - 1 - x) * kNumPix;
      if constexpr (kTwoDrop && kWrites) {
        const int bits = (0xFF00 >> kNumPix & 0xFF) >> place;
        const Mask is = Overlaps(Widen(levels), Load(group.certainBit));
        certain = AddWhere(is, certain, Repeat(bits));
      }
      levels += kStep * kLanes;
      bias += kStep * kLanes;
      meta += kStep * kLanes;
      nextInput = InputOf<kTwoDrop>(group, levels);

      // A lane of level 0 in which there is no error at all needs nothing: it gets no drop, as
      // thresholds are positive, and hands on zeros.
      bool decays = hasZero;
      if (kRules != Rules::Alone && hasZero) {
        Words waiting = chains[0].error;
        for (int i = 1; i < kChains; ++i) waiting = Or(waiting, chains[i].error);
        for (int k = 1; k < kNumPix; ++k) waiting = Or(waiting, Load(entry + k * kStep * kLanes));
        decays = AnyWhere(pixel.zero, waiting);
      }
      const auto step = [&]<ZeroLevel kZeroLevel>(int k) __attribute__((always_inline)) {
        const Words modulation = SpreadModulation(group, modulations + modulationAt);
        modulationAt += group.segments;
        const Words threshold = Add(pixel.bias, MultiplyLow(modulation, pixel.factor));
        entry += kStep * kLanes;
        const Words next = Add(k + 1 < kNumPix ? pixel.input : nextInput, Load(entry));
        const std::uint32_t at =
            place + static_cast<std::uint32_t>(kStep > 0 ? k : kNumPix - 1 - k);
        const Words bit = Load(kDropBits[7 - at]);
        for (int i = 0; i < kChains; ++i) {
          Step<kRules, kZeroLevel, kWrites>(group, pixel, threshold, next, bit,
                                            entryBehind + i * otherLine, chains[i]);
        }
        entryBehind += kStep * kLanes;
      };
      if (decays) {
        for (int k = 0; k < kNumPix; ++k) step.template operator()<kDecays>(k);
      } else {
        for (int k = 0; k < kNumPix; ++k) step.template operator()<ZeroLevel::Nothing>(k);
      }
      phase += kNumPix;
      if (phase >= kModulationLength) {
        phase -= kModulationLength;
        modulationAt -= std::size_t{kModulationLength} * group.segments;
      }
    }
    if constexpr (kWrites) {
      for (int i = 0; i < kChains; ++i) {
        StoreAsBytes(group.drops[i] + std::size_t{block} * kLanes, chains[i].drops);
      }
      if constexpr (kTwoDrop) {
        StoreAsBytes(group.certain + std::size_t{block} * kLanes, certain);
      }
    }
  }
  if (agrees) return stretch.firstBlock;
  // The chain is one input and one entry ahead.
  const Words ahead = Add(nextInput, Load(entry));
  for (int i = 0; i < kChains; ++i) {
    Store(errors.chain[i].lane, Sub(chains[i].error, ahead));
    if constexpr (kWrites) Store(entryBehind + i * otherLine, chains[i].below);
  }
  Store(errors.below.lane, chains[0].below);
  return b;
}

// ---------------------------------------------------------------------------------------------
// Starts

// The lane of the segment that is scanned `rank`-th.
template <int kStep>
std::uint32_t LaneOf(const LaneGroup& group, std::uint32_t rank, int ink) {
  const std::uint32_t segment = kStep > 0 ? rank : group.segments - 1 - rank;
  return segment * group.width + static_cast<std::uint32_t>(ink);
}

// What comes into each segment when `ends` leaves the one before, and `carried` comes into the row.
template <int kStep>
GroupWords Follow(const LaneGroup& group, const GroupWords& ends, const GroupWords& carried) {
  GroupWords starts = carried;
  const auto shifted = static_cast<std::size_t>(kLanes - group.width);
  std::memcpy(starts.lane + (kStep > 0 ? group.width : 0),
              ends.lane + (kStep > 0 ? 0 : group.width), shifted * sizeof(starts.lane[0]));
  return starts;
}

// Calls visit(lane) for the lanes of a bit set in scan order.
template <int kStep, typename Visit>
CORVANE_INLINE void ForLanes(std::uint32_t lanes, Visit visit) {
  while (lanes != 0) {
    const int lane = kStep > 0 ? std::countr_zero(lanes) : 31 - std::countl_zero(lanes);
    lanes &= ~(1u << lane);
    visit(lane);
  }
}

// The sums of inputs and entries over whole segments, modulo 2 and 3.
struct Residues {
  GroupWords two, three;
};

void SumModulo2(const GroupedPage& page, const LaneGroup& group, Residues& residues) {
  const std::uint16_t* entry = group.line;
  const std::uint32_t length = group.segmentPixels * page.numPix;
  Words even = Zero();
  Words odd = Zero();
  for (std::uint32_t i = 0; i + 1 < length; i += 2, entry += 2 * kLanes) {
    even = Xor(even, Load(entry));
    odd = Xor(odd, Load(entry + kLanes));
  }
  if (length % 2 != 0) even = Xor(even, Load(entry));
  Words sum = Xor(even, odd);
  // An even number of equal inputs has an even sum.
  for (std::uint32_t x = 0; x < group.segmentPixels && page.numPix == 1; ++x) {
    sum = Xor(sum, InputOf<true>(group, group.levels + std::size_t{x} * kLanes));
  }
  Store(residues.two.lane, sum);
}

void SumModulo3(const GroupedPage& page, const LaneGroup& group, Residues& residues) {
  const Words lowByte = Repeat(0xFF);
  // 256 is 1 modulo 3, so a word is as much as the sum of its bytes, the upper one signed.
  const auto sumOfBytes = [lowByte](const Words& v) __attribute__((always_inline)) {
    return Add(And(v, lowByte), ShiftRight<8>(v));
  };
  Words three = Zero();
  const std::uint16_t* entry = group.line;
  for (std::uint32_t x = 0; x < group.segmentPixels; ++x) {
    const Words input = InputOf<true>(group, group.levels + std::size_t{x} * kLanes);
    for (std::uint32_t k = 0; k < page.numPix; ++k, entry += kLanes) {
      three = Add(three, sumOfBytes(Add(input, Load(entry))));
    }
    three = sumOfBytes(three);
  }
  Store(residues.three.lane, three);
}

int Modulo3(int value) { return (value % 3 + 3) % 3; }

// The starts of both chains.
struct Starts {
  GroupWords chain[2];
  std::uint32_t open;  // lanes of which they are not the same
};

// Chooses the starts of the segments among what the guesses came to.
template <int kStep>
Starts ChooseStarts(GroupedPage& page, const LaneGroup& group, const Errors<kGuesses>& ends,
                    const GroupWords& carried) {
  GroupWords guesses[kGuesses];
  for (int i = 0; i < kGuesses; ++i) guesses[i] = Follow<kStep>(group, ends.chain[i], carried);
  Starts starts{{guesses[0], guesses[0]}, 0};
  const std::uint32_t apart = UnequalLanes(Load(guesses[0]), Load(guesses[1])) |
                              UnequalLanes(Load(guesses[0]), Load(guesses[2]));
  if (apart == 0) return starts;
  page.repairs.apart += static_cast<unsigned>(std::popcount(apart));

  const GroupWords parity = Follow<kStep>(group, group.keepsParity, {});
  const GroupWords thirds = Follow<kStep>(group, group.keepsThirds, {});
  const std::uint32_t byParity = apart & UnequalLanes(Load(parity), Zero());
  const std::uint32_t byThirds = apart & UnequalLanes(Load(thirds), Zero());
  Residues sums;
  if (byParity != 0) SumModulo2(page, group, sums);
  if (byThirds != 0) SumModulo3(page, group, sums);
  ForLanes<kStep>(apart, [&](int lane) {
    const int before = lane - kStep * group.width;
    const bool isOfParity = (byParity >> lane & 1) != 0;
    const auto holds = [&](std::uint16_t from, std::uint16_t guess) {
      if (isOfParity) return ((guess ^ from ^ sums.two.lane[before]) & 1) == 0;
      return Modulo3(static_cast<std::int16_t>(guess) - static_cast<std::int16_t>(from) -
                     static_cast<std::int16_t>(sums.three.lane[before])) == 0;
    };
    // Each chain goes on from its own start of the segment before.
    int reckoned = 0;
    for (GroupWords& chain : starts.chain) {
      for (int i = 0; i < kGuesses && ((byParity | byThirds) >> lane & 1) != 0; ++i) {
        if (!holds(chain.lane[before], guesses[i].lane[lane])) continue;
        chain.lane[lane] = guesses[i].lane[lane];
        ++reckoned;
        break;
      }
    }
    if (reckoned == 2) {
      ++(isOfParity ? page.repairs.byParity : page.repairs.byThirds);
    } else {
      const bool secondDiffers = guesses[1].lane[lane] != guesses[0].lane[lane];
      starts.chain[0].lane[lane] = guesses[0].lane[lane];
      starts.chain[1].lane[lane] = guesses[secondDiffers ? 1 : 2].lane[lane];
    }
    if (starts.chain[0].lane[lane] != starts.chain[1].lane[lane]) starts.open |= 1u << lane;
  });
  return starts;
}

// ---------------------------------------------------------------------------------------------
// A pass

// The lanes of a bit set with their partners.
std::uint32_t WithPartners(const LaneGroup& group, std::uint32_t lanes) {
  std::uint32_t all = lanes;
  ForLanes<+1>(lanes, [&](int lane) {
    const int own = lane % group.width;
    if (group.partners[own] >= 0) all |= 1u << (lane - own + group.partners[own]);
  });
  return all;
}

// Takes of two chains, for each lane, the one that began with the true error: into the first
// chain's errors and starts, and into its lines up to the block where they met.
template <int kNumPix, int kStep>
void TakeTrueChain(GroupedPage& page, LaneGroup& group, std::uint32_t endBlock,
                   const GroupWords& carried, Starts& starts, Errors<2>& ends) {
  GroupWords seconds{};
  std::uint32_t taken = 0;
  const auto trueStart = [&](int lane) {
    const int before = lane - kStep * group.width;
    if (before < 0 || before >= kLanes) return carried.lane[lane];
    return ends.chain[taken >> before & 1].lane[before];
  };
  const auto fits = [&](int chain, int lane) {
    return starts.chain[chain].lane[lane] == trueStart(lane);
  };
  ForLanes<kStep>(group.coupled ? WithPartners(group, starts.open) : starts.open, [&](int lane) {
    const int own = lane % group.width;
    const int other = group.partners[own] >= 0 ? lane - own + group.partners[own] : lane;
    if ((fits(0, lane) && fits(0, other)) || !fits(1, lane) || !fits(1, other)) return;
    taken |= 1u << lane;
    seconds.lane[lane] = 0xFFFF;
    ++page.repairs.seconds;
  });
  if (taken == 0) return;
  const Mask second = MaskOf(Load(seconds));
  const auto take = [&second](auto* first, const auto* other) __attribute__((always_inline)) {
    StoreWhere(second, first, Load(other));
  };
  take(starts.chain[0].lane, starts.chain[1].lane);
  take(ends.chain[0].lane, ends.chain[1].lane);
  const std::uint32_t length = group.segmentPixels * kNumPix;
  const std::uint32_t scanned = ScannedBefore<kNumPix, kStep>(group, endBlock) * kNumPix;
  const bool isWhole = endBlock == BlocksOf(group, kNumPix);
  const std::uint32_t count = isWhole ? length + 1 : scanned;  // with the entry before the first
  std::ptrdiff_t at = (kStep > 0 ? -1 : static_cast<std::ptrdiff_t>(length)) * kLanes;
  for (std::uint32_t i = 0; i < count; ++i, at += kStep * kLanes) {
    take(group.newLine[0] + at, group.newLine[1] + at);
  }
  GroupBytes bytes{};
  for (int lane = 0; lane < kLanes; ++lane) {
    bytes.lane[lane] = static_cast<std::uint8_t>(seconds.lane[lane]);
  }
  const std::uint32_t blocks = BlocksOf(group, kNumPix);
  for (std::uint32_t b = 0; b < endBlock; ++b) {
    const std::size_t block = std::size_t{kStep > 0 ? b : blocks - 1 - b} * kLanes;
    take(group.checkpoints[0] + block, group.checkpoints[1] + block);
    for (int i = 0; i < kLanes; i += 16) {
      __m128i* const drops = reinterpret_cast<__m128i*>(group.drops[0] + block + i);
      const __m128i* const others = reinterpret_cast<const __m128i*>(group.drops[1] + block + i);
      _mm_store_si128(drops, _mm_blendv_epi8(_mm_load_si128(drops), _mm_load_si128(others),
                                             Load128(bytes.lane + i)));
    }
  }
}

// All segments, from the carried errors on; puts there what leaves the last one.
template <int kNumPix, int kStep, Rules kRules>
void RunSegments(GroupedPage& page, LaneGroup& group, std::uint32_t phase, GroupWords& carried) {
  const std::uint32_t blocks = BlocksOf(group, kNumPix);
  const std::uint32_t lead = group.lead / 8 < blocks ? group.lead / 8 : blocks;
  Errors<kGuesses> guesses{};
  const Words inks = Load(group.inkMask);
  Store(guesses.chain[1].lane, And(inks, Repeat(1)));
  Store(guesses.chain[2].lane, And(inks, Repeat(2)));
  Diffuse<kNumPix, kStep, kRules, kGuesses, false>(group, {blocks - lead, blocks, phase, false},
                                                   guesses);
  Starts starts = ChooseStarts<kStep>(page, group, guesses, carried);

  ++page.repairs.rows;
  Errors<1> ends{{starts.chain[0]}, {}};
  if (starts.open == 0) {
    Diffuse<kNumPix, kStep, kRules, 1, true>(group, {0, blocks, phase, false}, ends);
  } else {
    ++page.repairs.doubleRuns;
    Errors<2> both{{starts.chain[0], starts.chain[1]}, {}};
    const std::uint32_t met =
        Diffuse<kNumPix, kStep, kRules, 2, true>(group, {0, blocks, phase, false}, both);
    if (met != blocks) {
      ends = {{both.chain[0]}, both.below};
      Diffuse<kNumPix, kStep, kRules, 1, true>(group, {met, blocks, phase, false}, ends);
      both.chain[0] = both.chain[1] = ends.chain[0];
    }
    TakeTrueChain<kNumPix, kStep>(page, group, met, carried, starts, both);
    ends.chain[0] = both.chain[0];
  }
  for (;;) {
    const GroupWords trueStarts = Follow<kStep>(group, ends.chain[0], carried);
    if (UnequalLanes(Load(trueStarts), Load(starts.chain[0])) == 0) break;
    starts.chain[0] = trueStarts;
    Errors<1> errors{{trueStarts}, {}};
    ++page.repairs.repeats;
    if (Diffuse<kNumPix, kStep, kRules, 1, true>(group, {0, blocks, phase, true}, errors) ==
        blocks) {
      ends = errors;
      ++page.repairs.repeatsToEnd;
    }
  }
  for (int ink = 0; ink < group.width; ++ink) {
    carried.lane[LaneOf<kStep>(group, 0, ink)] =
        ends.chain[0].lane[LaneOf<kStep>(group, group.segments - 1, ink)];
  }
}

// Whether this level has groups of a family; a coupled pair is a coupled pair with cd and md too.
constexpr bool Serves(KernelFamily family) {
  return EngineFor(static_cast<CpuLevel>(CORVANE_SIMD_LEVEL), family) == EngineKind::Groups;
}
static_assert(Serves(KernelFamily::Coupled) || !Serves(KernelFamily::NineCoupled));

template <int kNumPix, int kStep>
void RunSegments(GroupedPage& page, LaneGroup& group, std::uint32_t phase, GroupWords& carried) {
  using enum Rules;
  if (group.alone) return RunSegments<kNumPix, kStep, Alone>(page, group, phase, carried);
  if constexpr (kNumPix <= 4 && Serves(KernelFamily::Coupled)) {
    if (group.coupled) return RunSegments<kNumPix, kStep, Coupled>(page, group, phase, carried);
  }
  if constexpr (kNumPix <= 4 && Serves(KernelFamily::TwoDrop)) {
    if (group.twoDrop) return RunSegments<kNumPix, kStep, TwoDrop>(page, group, phase, carried);
  }
  RunSegments<kNumPix, kStep, Independent>(page, group, phase, carried);
}

template <int kStep>
void RunSegments(GroupedPage& page, LaneGroup& group, std::uint32_t phase, GroupWords& carried) {
  switch (page.numPix) {
    case 1:
      return RunSegments<1, kStep>(page, group, phase, carried);
    case 2:
      return RunSegments<2, kStep>(page, group, phase, carried);
    case 4:
      return RunSegments<4, kStep>(page, group, phase, carried);
    default:
      return RunSegments<8, kStep>(page, group, phase, carried);
  }
}

// Adds 16 bytes to a plane, beginning at any bit; those behind the first `count` are zero. Planes
// end at `end`.
CORVANE_INLINE void OrBits(std::uint8_t* plane, const std::uint8_t* end, std::size_t firstBit,
                           __m128i bytes, std::size_t count) {
  std::uint8_t* const to = plane + firstBit / 8;
  const auto room = static_cast<std::size_t>(end - to);
  if (room > 16) count = 16;
  const int shift = static_cast<int>(firstBit % 8);
  if (shift == 0) return OrInto(to, bytes, count);
  const __m128i upper = _mm_and_si128(_mm_srl_epi16(bytes, _mm_cvtsi32_si128(shift)),
                                      _mm_set1_epi8(static_cast<char>(0xFF >> shift)));
  const __m128i lower = _mm_and_si128(_mm_sll_epi16(bytes, _mm_cvtsi32_si128(8 - shift)),
                                      _mm_set1_epi8(static_cast<char>(0xFF << (8 - shift))));
  OrInto(to, upper, count);
  OrInto(to + 1, lower, count < room ? count : room - 1);
}

// The bytes of lanes unit * 8..unit * 8 + 7 in 16 blocks, by lane; the first `count` exist.
CORVANE_INLINE void LoadBlocks(const std::uint8_t* from, std::size_t count, __m128i (&v)[8]) {
  for (std::size_t i = 0; i < 8; ++i) {
    const __m128i even = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from + 2 * i * kLanes));
    const __m128i odd =
        _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from + (2 * i + 1) * kLanes));
    v[i] = _mm_unpacklo_epi64(even, odd);
  }
  for (int step = 0; step < 4; ++step) TransposeStep(v);
  if (count >= 16) return;
  alignas(16) std::uint8_t exists[16] = {};
  std::memset(exists, 0xFF, count);
  const __m128i mask = _mm_load_si128(reinterpret_cast<const __m128i*>(exists));
  for (__m128i& bytes : v) bytes = _mm_and_si128(bytes, mask);
}

// All planes that the kernel writes, sent or not.
std::size_t PlanesOf(const Kernel& kernel) {
  std::size_t planes = 0;
  for (int i = 0; i < kernel.inkCount; ++i) {
    const KernelInk& ink = kernel.inks[i];
    const std::size_t end = ink.outputPlane + (ink.twoDrop ? 2u : 1u);
    if (end > planes) planes = end;
  }
  return planes;
}

// Adds the pass's drops to the planes and counts them. Both directions may place the same drop: one
// bit, but two counts.
template <bool kTwoDrop>
void Deliver(const GroupedPage& page, const LaneGroup& group, const RowState& state) {
  const Kernel& kernel = *page.kernel;
  const std::size_t planeBytes = (state.outputWidth - 1) / 8 + 1;
  const std::size_t length = std::size_t{group.segmentPixels} * page.numPix;
  const std::uint8_t* const end = state.output + PlanesOf(kernel) * planeBytes;
  __m128i counts[kMaxGroupWidth] = {};
  const std::size_t blocks = (length + 7) / 8;
  for (std::size_t block = 0; block < blocks; block += 16) {
    const std::size_t count = blocks - block < 16 ? blocks - block : 16;
    for (int unit = 0; unit < kLanes; unit += 8) {
      __m128i drops[8], certain[8];
      LoadBlocks(group.drops[0] + block * kLanes + unit, count, drops);
      if (kTwoDrop) LoadBlocks(group.certain + block * kLanes + unit, count, certain);
      for (int i = 0; i < 8; ++i) {
        const int lane = (unit + i) % group.width;
        const int segment = (unit + i) / group.width;
        if (group.inks[lane] < 0) continue;
        const KernelInk& ink = kernel.inks[group.inks[lane]];
        std::uint8_t* const plane = state.output + ink.outputPlane * planeBytes;
        const std::size_t bit = std::size_t{group.first} * page.numPix +
                                static_cast<std::size_t>(segment) * length + block * 8;
        __m128i first = drops[i];
        counts[lane] = _mm_add_epi64(counts[lane], CountBits(drops[i]));
        if (kTwoDrop && ink.twoDrop) {
          counts[lane] = _mm_add_epi64(counts[lane], CountBits(certain[i]));
          first = _mm_xor_si128(drops[i], certain[i]);
          OrBits(plane + planeBytes, end, bit, _mm_and_si128(drops[i], certain[i]), count);
        }
        OrBits(plane, end, bit, first, count);
      }
    }
  }
  for (int lane = 0; lane < group.width; ++lane) {
    if (group.inks[lane] < 0) continue;
    const __m128i count = counts[lane];
    state.DotCount[static_cast<int>(kernel.inks[group.inks[lane]].ink)] +=
        static_cast<std::uint32_t>(
            _mm_cvtsi128_si32(_mm_add_epi64(count, _mm_unpackhi_epi64(count, count))));
  }
}

// What the first scanned pixel of each segment hands back goes to the last entry of the segment
// before it. Of the first segment it goes to `outside`, by ink.
template <int kStep>
void HandBack(const GroupedPage& page, const LaneGroup& group, GroupWords& outside) {
  const std::size_t length = std::size_t{group.segmentPixels} * page.numPix;
  std::uint16_t* const line = group.newLine[0];
  const std::uint16_t* const handed = kStep > 0 ? line - kLanes : line + length * kLanes;
  std::uint16_t* const last = kStep > 0 ? line + (length - 1) * kLanes : line;
  for (int ink = 0; ink < group.width; ++ink) {
    outside.lane[ink] = handed[LaneOf<kStep>(group, 0, ink)];
    for (std::uint32_t rank = 1; rank < group.segments; ++rank) {
      std::uint16_t& entry = last[LaneOf<kStep>(group, rank - 1, ink)];
      entry = static_cast<std::uint16_t>(entry + handed[LaneOf<kStep>(group, rank, ink)]);
    }
  }
}

// Pixels that do not fill the segments.
template <int kStep>
void RunRemainder(const GroupedPage& page, const LaneGroup& group, const RowState& state,
                  std::uint32_t phase) {
  const std::uint32_t first = state.first + group.segmentPixels * group.segments;
  if (first >= state.end) return;
  for (int lane = 0; lane < group.width; ++lane) {
    if (group.inks[lane] < 0) continue;
    DiffuseSpanPlain(*page.kernel, group.inks[lane], state, kStep > 0, first, state.end - first,
                     phase);
  }
}

std::int16_t& Plus(std::int16_t& entry, std::uint16_t value) {
  entry = static_cast<std::int16_t>(entry + value);
  return entry;
}

template <int kStep>
void RunPass(GroupedPage& page, LaneGroup& group, const RowState& state) {
  const std::size_t numPix = page.numPix;
  const std::uint32_t segmented = group.segmentPixels * group.segments;
  const std::uint32_t pixels = state.first < state.end ? state.end - state.first : 0;
  const auto remainder = static_cast<std::uint32_t>((pixels - segmented) * numPix);
  const std::size_t lineEnd = std::size_t{page.width} * numPix + 2;
  const std::size_t start = std::size_t{state.first} * numPix + 1;  // entry of the first pixel
  const std::size_t end = std::size_t{state.end} * numPix + 1;      // behind that of the last
  const std::size_t border = start + std::size_t{segmented} * numPix;
  const std::size_t lanes = kLanes;
  const auto lineOf = [&](int lane) {
    return state.ErrorRows[static_cast<int>(page.kernel->inks[group.inks[lane]].state)];
  };
  // Clears the side where the pass begins, up to the guard of its first pixel. The entry at the
  // border belongs to the segments; on the row it takes what the remainder hands it.
  GroupWords carried{};
  for (int lane = 0; lane < group.width; ++lane) {
    if (group.inks[lane] < 0) continue;
    std::int16_t* const line = lineOf(lane);
    const std::size_t from = kStep > 0 ? 0 : end;
    const std::size_t to = kStep > 0 ? start : lineEnd;
    std::memset(line + from, 0, (to - from) * sizeof(*line));
    if (segmented != 0) line[border - 1] = 0;
    carried.lane[LaneOf<kStep>(group, 0, lane)] = static_cast<std::uint16_t>(
        state.CarriedError[static_cast<int>(page.kernel->inks[group.inks[lane]].state)]);
  }
  if (kStep < 0 || segmented == 0) {
    RunRemainder<kStep>(page, group, state, *state.RowPhase);
    for (int lane = 0; lane < group.width; ++lane) {
      if (group.inks[lane] < 0) continue;
      carried.lane[LaneOf<kStep>(group, 0, lane)] = static_cast<std::uint16_t>(
          state.CarriedError[static_cast<int>(page.kernel->inks[group.inks[lane]].state)]);
    }
  }
  GroupWords outside{};
  if (segmented != 0) {
    RunSegments<kStep>(page, group, *state.RowPhase + (kStep < 0 ? remainder : 0), carried);
    HandBack<kStep>(page, group, outside);
    (group.twoDrop ? Deliver<true> : Deliver<false>)(page, group, state);
    for (int lane = 0; lane < group.width; ++lane) {
      if (group.inks[lane] < 0) continue;
      state.CarriedError[static_cast<int>(page.kernel->inks[group.inks[lane]].state)] =
          static_cast<std::int16_t>(carried.lane[LaneOf<kStep>(group, 0, lane)]);
    }
    if (kStep > 0) {
      RunRemainder<kStep>(page, group, state,
                          *state.RowPhase + segmented * static_cast<std::uint32_t>(numPix));
    }
  }
  // What the pass's first pixel handed to the guard goes to its own entry.
  for (int lane = 0; lane < group.width; ++lane) {
    if (group.inks[lane] < 0) continue;
    std::int16_t* const line = lineOf(lane);
    const std::size_t firstSegment = lane;
    const std::size_t lastSegment = (group.segments - 1) * group.width + lane;
    const std::size_t length = std::size_t{group.segmentPixels} * numPix;
    std::int16_t* const guard = line + (kStep > 0 ? start - 1 : end);
    if (segmented == 0) {
      Plus(guard[kStep], static_cast<std::uint16_t>(guard[0]));
    } else if (kStep > 0) {
      std::uint16_t& own = group.newLine[0][firstSegment];
      own = static_cast<std::uint16_t>(own + outside.lane[lane]);
      std::uint16_t& last = group.newLine[0][(length - 1) * lanes + lastSegment];
      last = static_cast<std::uint16_t>(last + line[border - 1]);
    } else if (remainder != 0) {
      Plus(line[border], outside.lane[lane]);
      Plus(guard[kStep], static_cast<std::uint16_t>(guard[0]));
    } else {
      std::uint16_t& own = group.newLine[0][(length - 1) * lanes + lastSegment];
      own = static_cast<std::uint16_t>(own + outside.lane[lane]);
    }
    guard[0] = 0;
  }
  if (segmented != 0) std::swap(group.line, group.newLine[0]);
}

template <int kStep>
void RunPass(GroupedPage& page, const RowState& state) {
  for (int i = 0; i < page.groupCount; ++i) RunPass<kStep>(page, page.groups[i], state);
  const std::uint64_t pixels = state.first < state.end ? state.end - state.first : 0;
  *state.RowPhase =
      static_cast<std::uint32_t>((*state.RowPhase + pixels * page.numPix) % kModulationLength);
}

// ---------------------------------------------------------------------------------------------
// A row

bool LinesAreEmpty(const GroupedPage& page, const RowState& state) {
  const std::size_t entries = std::size_t{page.width} * page.numPix + 2;
  for (int i = 0; i < page.groupCount; ++i) {
    const LaneGroup& group = page.groups[i];
    const std::size_t length = std::size_t{group.segmentPixels} * page.numPix;
    if (length != 0 && !IsZero(group.line, length * kLanes)) return false;
    const std::size_t start = std::size_t{group.first} * page.numPix + 1;
    const std::size_t end = start + length * group.segments;
    for (int lane = 0; lane < group.width; ++lane) {
      if (group.inks[lane] < 0) continue;
      const std::int16_t* const line =
          state.ErrorRows[static_cast<int>(page.kernel->inks[group.inks[lane]].state)];
      if (length == 0) {
        if (!IsZero(line, entries)) return false;
      } else if (!IsZero(line, start) || !IsZero(line + end, entries - end)) {
        return false;
      }
    }
  }
  return true;
}

bool NothingIsCarried(const GroupedPage& page, const RowState& state) {
  for (int i = 0; i < page.kernel->inkCount; ++i) {
    if (state.CarriedError[static_cast<int>(page.kernel->inks[i].state)] != 0) return false;
  }
  return true;
}

}  // namespace

void RunGroupRow(GroupedPage& page, const RowState& state) {
  const RowPasses passes = PassesOf(*page.kernel, state);
  const bool white = IsWhite(page, state);
  if (white && !page.linesEmpty) page.linesEmpty = LinesAreEmpty(page, state);
  if (white && page.linesEmpty && NothingIsCarried(page, state)) {
    const std::uint64_t pixels =
        state.first < state.end ? std::uint64_t{state.end - state.first} * page.numPix : 0;
    const int passCount = passes.forward + passes.backward;
    *state.RowPhase =
        static_cast<std::uint32_t>((*state.RowPhase + pixels * passCount) % kModulationLength);
    return;
  }
  ArrangeGroups(page, state);
  if (state.first < state.end && !(page.keepsLevels && IsKept(page, state))) {
    for (int i = 0; i < page.groupCount; ++i) {
      LaneGroup& group = page.groups[i];
      if (group.segmentPixels == 0) continue;
      Interleave(page, group, state);
      (group.coupled ? LookUpRow<true> : LookUpRow<false>)(page, group);
    }
    KeepPlanes(page, state);
    page.keepsLevels = true;
  }
  if (passes.forward) RunPass<+1>(page, state);
  if (passes.backward) RunPass<-1>(page, state);
  page.linesEmpty = false;  // as far as is known
}

}  // namespace corvane::CORVANE_SIMD_NAMESPACE
