// SPDX-License-Identifier: MIT
//
// The fast converters, compiled once per instruction level. They write what conversion_scalar.cpp
// writes, eight pixels at a time:
//
// - The six tetrahedra need no case distinction: the way through the cell goes along the axis of
//   the largest fraction first and along that of the smallest last. Where fractions are equal, the
//   node between them has weight 0, so either order gives the same sum.
// - Node weights add up to 256 and nodes are bytes: every sum fits 16 bits without a sign.
// - Places and weights of the next block are computed before this block is mixed, so that the loads
//   of one and the arithmetic of the other overlap.
// - A block that repeats the colour of the pixel before it is filled, not converted.
//
// Per-level code must not share inline functions with other levels: no standard templates here.

#include <cstddef>
#include <cstdint>

#include "color/conversion.h"
#include "simd/vectors.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

constexpr std::uint32_t kBlock = 8;  // pixels
constexpr int kStepRed = InterleavedTable::kAxisSteps[0];
constexpr int kStepGreen = InterleavedTable::kAxisSteps[1];
constexpr int kStepBlue = InterleavedTable::kAxisSteps[2];
constexpr int kStepAll = kStepRed + kStepGreen + kStepBlue;
constexpr std::size_t kLanes = InterleavedTable::kLanes;

inline Vector256 Both(__m128i a) { return Join(a, a); }

// ---------------------------------------------------------------------------------------------
// Layouts: eight pixels are read with two 16-byte loads, the channels picked by byte shuffles.

struct ChannelShuffles {
  // For R, G, B: words of eight pixels from the first and from the second load; 128 gives 0.
  alignas(16) std::uint8_t first[3][16];
  alignas(16) std::uint8_t second[3][16];
  // Which bytes of the loads decide whether two blocks are the same colour.
  alignas(16) std::uint8_t compared[16];
};

constexpr ChannelShuffles MakeShuffles(int bytesPerPixel, int redByte, int secondLoad,
                                       bool compareFourth) {
  ChannelShuffles result = {};
  for (int channel = 0; channel < 3; ++channel) {
    for (int i = 0; i < 8; ++i) {
      const int byte = i * bytesPerPixel + redByte + channel;
      const bool inFirst = byte < 16;
      result.first[channel][2 * i] = static_cast<std::uint8_t>(inFirst ? byte : 128);
      result.first[channel][2 * i + 1] = 128;
      result.second[channel][2 * i] = static_cast<std::uint8_t>(inFirst ? 128 : byte - secondLoad);
      result.second[channel][2 * i + 1] = 128;
    }
  }
  for (int i = 0; i < 16; ++i) {
    const bool unread = bytesPerPixel == 4 && !compareFourth && i % 4 == 0;
    result.compared[i] = unread ? 0 : 255;
  }
  return result;
}

struct Rgb {
  static constexpr PixelLayout kLayout = PixelLayout::Rgb;
  static constexpr std::size_t kBytesPerPixel = 3;
  static constexpr std::size_t kSecondLoad = 8;
  static constexpr bool kTagged = false;
  static constexpr ChannelShuffles kShuffles = MakeShuffles(3, 0, 8, true);
  static constexpr int kLuminanceWeights = 0x00010403;  // a byte each, the first one lowest
};

struct Xrgb {
  static constexpr PixelLayout kLayout = PixelLayout::Xrgb;
  static constexpr std::size_t kBytesPerPixel = 4;
  static constexpr std::size_t kSecondLoad = 16;
  static constexpr bool kTagged = false;
  static constexpr ChannelShuffles kShuffles = MakeShuffles(4, 1, 16, false);
  static constexpr int kLuminanceWeights = 0x01040300;
};

struct RgbTag {
  static constexpr PixelLayout kLayout = PixelLayout::RgbTag;
  static constexpr std::size_t kBytesPerPixel = 4;
  static constexpr std::size_t kSecondLoad = 16;
  static constexpr bool kTagged = true;
  static constexpr ChannelShuffles kShuffles = MakeShuffles(4, 0, 16, true);
  static constexpr int kLuminanceWeights = 0x00010403;
};

template <class Layout>
inline __m128i ReadChannel(__m128i first, __m128i second, int channel) {
  return _mm_or_si128(_mm_shuffle_epi8(first, Load128(Layout::kShuffles.first[channel])),
                      _mm_shuffle_epi8(second, Load128(Layout::kShuffles.second[channel])));
}

// True when the eight pixels at `pixels` have the colour (and the tag) of the pixel before them.
template <class Layout>
inline bool RepeatsPreviousPixel(const unsigned char* pixels) {
  const unsigned char* const before = pixels - Layout::kBytesPerPixel;
  const __m128i first = _mm_xor_si128(Load128(pixels), Load128(before));
  const __m128i second =
      _mm_xor_si128(Load128(pixels + Layout::kSecondLoad), Load128(before + Layout::kSecondLoad));
  return _mm_testz_si128(_mm_or_si128(first, second), Load128(Layout::kShuffles.compared)) != 0;
}

// ---------------------------------------------------------------------------------------------
// Seven and nine inks.

// What a block needs before its nodes are mixed. Pixels 0, 1, 4, 5 lie in one twin and 2, 3, 6, 7
// in another, four words each: T000, the node after the first axis, that after the second, T111.
struct BlockPlan {
  Vector256 weights01;
  Vector256 weights23;
  Vector256 corners01;  // byte shuffles that pick the four nodes from a cell's eight corners
  Vector256 corners23;
  alignas(16) std::uint16_t base[kBlock];  // twice the node's number
  alignas(16) std::uint16_t first[kBlock];
  alignas(16) std::uint16_t second[kBlock];
  const unsigned char* pixels;
};

struct VectorPair {
  Vector256 lanes01;
  Vector256 lanes23;
};

// Four words of eight pixels each, brought together per pixel.
inline VectorPair GatherByPixel(__m128i w0, __m128i w1, __m128i w2, __m128i w3) {
  const Vector256 low = Join(_mm_unpacklo_epi16(w0, w1), _mm_unpackhi_epi16(w0, w1));
  const Vector256 high = Join(_mm_unpacklo_epi16(w2, w3), _mm_unpackhi_epi16(w2, w3));
  return {UnpackLow32(low, high), UnpackHigh32(low, high)};
}

// Position in the cell, 0 to 256, of inverted bytes: floor(v * 4096 / 255) - 256 * (v >> 4), which
// is v with its nibbles exchanged, and one more at the end of the axis.
inline __m128i FractionOf(__m128i inverted, __m128i cell) {
  const __m128i low = _mm_and_si128(_mm_slli_epi16(inverted, 4), _mm_set1_epi16(0xF0));
  const __m128i atEnd = _mm_cmpeq_epi16(inverted, _mm_set1_epi16(255));
  return _mm_sub_epi16(_mm_add_epi16(low, cell), atEnd);
}

// Picks a step by the axis that is told first, second, or neither.
inline __m128i ChooseStep(__m128i isFirst, int first, __m128i isSecond, int second, int otherwise) {
  const __m128i rest = _mm_blendv_epi8(_mm_set1_epi16(static_cast<short>(otherwise)),
                                       _mm_set1_epi16(static_cast<short>(second)), isSecond);
  return _mm_blendv_epi8(rest, _mm_set1_epi16(static_cast<short>(first)), isFirst);
}

template <class Layout, int kPlanes>
[[gnu::always_inline]] inline void PlanBlock(const unsigned char* pixels, BlockPlan* plan) {
  const __m128i loaded1 = Load128(pixels);
  const __m128i loaded2 = Load128(pixels + Layout::kSecondLoad);
  const __m128i all = _mm_set1_epi16(255);
  const __m128i c = _mm_xor_si128(ReadChannel<Layout>(loaded1, loaded2, 0), all);
  const __m128i m = _mm_xor_si128(ReadChannel<Layout>(loaded1, loaded2, 1), all);
  const __m128i y = _mm_xor_si128(ReadChannel<Layout>(loaded1, loaded2, 2), all);
  const __m128i ic = _mm_srli_epi16(c, 4);
  const __m128i im = _mm_srli_epi16(m, 4);
  const __m128i iy = _mm_srli_epi16(y, 4);
  const __m128i fc = FractionOf(c, ic);
  const __m128i fm = FractionOf(m, im);
  const __m128i fy = FractionOf(y, iy);

  const __m128i f1 = _mm_max_epi16(fc, _mm_max_epi16(fm, fy));
  const __m128i f3 = _mm_min_epi16(fc, _mm_min_epi16(fm, fy));
  const __m128i sum = _mm_add_epi16(fc, _mm_add_epi16(fm, fy));
  const __m128i f2 = _mm_sub_epi16(sum, _mm_add_epi16(f1, f3));
  const VectorPair weights = GatherByPixel(_mm_sub_epi16(_mm_set1_epi16(256), f1),
                                           _mm_sub_epi16(f1, f2), _mm_sub_epi16(f2, f3), f3);
  plan->weights01 = weights.lanes01;
  plan->weights23 = weights.lanes23;

  // Among equal fractions the first axis is c, m, y in that order and the last one y, m, c, so they
  // are never the same axis.
  const __m128i firstIsC = _mm_cmpeq_epi16(fc, f1);
  const __m128i firstIsM = _mm_cmpeq_epi16(fm, f1);
  const __m128i lastIsY = _mm_cmpeq_epi16(fy, f3);
  const __m128i lastIsM = _mm_cmpeq_epi16(fm, f3);

  // A node has 16 bytes, addresses scale by 8 at most: numbers are kept twice as large.
  const __m128i base =
      _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(ic, _mm_set1_epi16(2 * kStepRed)),
                                  _mm_mullo_epi16(im, _mm_set1_epi16(2 * kStepGreen))),
                    _mm_add_epi16(iy, iy));
  const __m128i firstStep =
      ChooseStep(firstIsC, 2 * kStepRed, firstIsM, 2 * kStepGreen, 2 * kStepBlue);
  const __m128i lastStep =
      ChooseStep(lastIsY, 2 * kStepBlue, lastIsM, 2 * kStepGreen, 2 * kStepRed);
  const __m128i opposite = _mm_add_epi16(base, _mm_set1_epi16(2 * kStepAll));
  _mm_store_si128(reinterpret_cast<__m128i*>(plan->base), base);
  _mm_store_si128(reinterpret_cast<__m128i*>(plan->first), _mm_add_epi16(base, firstStep));
  _mm_store_si128(reinterpret_cast<__m128i*>(plan->second), _mm_sub_epi16(opposite, lastStep));
  plan->pixels = pixels;

  if constexpr (kPlanes > static_cast<int>(kLanes)) {
    // Corner numbers have R in bit 2, G in bit 1, B in bit 0. Each becomes a word of which the
    // high byte shuffles in a zero; pixels 1, 3, 5, 7 read the second cell of their 16 bytes.
    const __m128i zeroHigh = _mm_set1_epi16(static_cast<short>(0x8000));
    const __m128i firstCorner = ChooseStep(firstIsC, 4, firstIsM, 2, 1);
    const __m128i lastCorner = ChooseStep(lastIsY, 6, lastIsM, 5, 3);
    const VectorPair corners = GatherByPixel(zeroHigh, _mm_or_si128(firstCorner, zeroHigh),
                                             _mm_or_si128(lastCorner, zeroHigh),
                                             _mm_or_si128(_mm_set1_epi16(7), zeroHigh));
    const Vector256 secondCell = Both(_mm_set_epi16(8, 8, 8, 8, 0, 0, 0, 0));
    plan->corners01 = Add(corners.lanes01, secondCell);
    plan->corners23 = Add(corners.lanes23, secondCell);
  }
}

// The tables of a row: the one for all pixels, or those by tag.
struct RowTables {
  const InterleavedTable* only;
  const InterleavedTable* const* byTag;
};

template <class Layout>
inline const InterleavedTable* TableOf(const RowTables& tables, const unsigned char* pixels,
                                       int pixel) {
  if constexpr (!Layout::kTagged) return tables.only;
  return tables.byTag[pixels[pixel * 4 + 3]];
}

inline const unsigned char* NodeAt(const InterleavedTable* table, std::uint16_t twiceNumber) {
  return reinterpret_cast<const unsigned char*>(table->nodes) + std::size_t{twiceNumber} * kLanes;
}

// Spreads word `node` of the upper or the lower four words over all lanes, in both halves.
inline Vector256 SpreadWeight(const Vector256& weights, int pixelInLane, int node) {
  const int word = 4 * pixelInLane + node;
  return ShuffleBytes(weights, Both(_mm_set1_epi16(static_cast<short>(0x0100 + 0x0202 * word))));
}

// The first eight channels of pixel i and pixel i + 4, as words.
template <class Layout>
inline Vector256 MixPixels(const RowTables& tables, const BlockPlan& plan, const Vector256& weights,
                           int i) {
  const InterleavedTable* const a = TableOf<Layout>(tables, plan.pixels, i);
  const InterleavedTable* const b = TableOf<Layout>(tables, plan.pixels, i + 4);
  const unsigned char* const baseA = NodeAt(a, plan.base[i]);
  const unsigned char* const baseB = NodeAt(b, plan.base[i + 4]);
  constexpr std::size_t kOpposite = kStepAll * sizeof(InterleavedTable::nodes[0]);

  const Vector256 n0 = Join(Load128(baseA), Load128(baseB));
  const Vector256 n1 =
      Join(Load128(NodeAt(a, plan.first[i])), Load128(NodeAt(b, plan.first[i + 4])));
  const Vector256 n2 =
      Join(Load128(NodeAt(a, plan.second[i])), Load128(NodeAt(b, plan.second[i + 4])));
  const Vector256 n3 = Join(Load128(baseA + kOpposite), Load128(baseB + kOpposite));

  const int lane = i % 2;
  const Vector256 sum01 = Add(MultiplyLow(n0, SpreadWeight(weights, lane, 0)),
                              MultiplyLow(n1, SpreadWeight(weights, lane, 1)));
  const Vector256 sum23 = Add(MultiplyLow(n2, SpreadWeight(weights, lane, 2)),
                              MultiplyLow(n3, SpreadWeight(weights, lane, 3)));
  return ShiftRight16(Add(sum01, sum23), 8);
}

// From the bytes of pixels 0 to 3 in the low half and 4 to 7 in the high one, four channels each,
// to eight bytes of one channel after the other.
struct FourPlanes {
  __m128i first;   // channels 0 and 1
  __m128i second;  // channels 2 and 3
};

inline FourPlanes MergeHalves(const Vector256& channels) {
  return {_mm_unpacklo_epi32(Low(channels), High(channels)),
          _mm_unpackhi_epi32(Low(channels), High(channels))};
}

inline void StoreLow(unsigned char* target, __m128i bytes) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(target), bytes);
}

inline void StoreHigh(unsigned char* target, __m128i bytes) {
  using Unaligned [[gnu::aligned(1), gnu::may_alias]] = double;
  *reinterpret_cast<Unaligned*>(target) = _mm_castsi128_pd(bytes)[1];
}

// Channel 8 of the eight pixels, in the low eight bytes.
template <class Layout>
inline __m128i MixChannel8(const RowTables& tables, const BlockPlan& plan) {
  const auto cell = [&](int i) {
    const InterleavedTable* const table = TableOf<Layout>(tables, plan.pixels, i);
    return Load64(reinterpret_cast<const unsigned char*>(table->cells) +
                  std::size_t{plan.base[i]} * (kLanes / 2));
  };
  const auto cells = [&](int i) { return _mm_unpacklo_epi64(cell(i), cell(i + 1)); };
  const Vector256 nodes01 = ShuffleBytes(Join(cells(0), cells(4)), plan.corners01);
  const Vector256 nodes23 = ShuffleBytes(Join(cells(2), cells(6)), plan.corners23);
  const Vector256 sums = AddPairs32(MultiplyAddPairs(nodes01, plan.weights01),
                                    MultiplyAddPairs(nodes23, plan.weights23));
  const Vector256 words = ShiftRight32(sums, 8);
  const Vector256 packed = Pack32(words, words);
  return MergeHalves(Pack16(packed, packed)).first;
}

template <class Layout, int kPlanes>
[[gnu::always_inline]] inline void MixBlock(const RowTables& tables, const BlockPlan& plan,
                                            unsigned char* target, std::size_t stride) {
  const Vector256 pixels0 = MixPixels<Layout>(tables, plan, plan.weights01, 0);
  const Vector256 pixels1 = MixPixels<Layout>(tables, plan, plan.weights01, 1);
  const Vector256 pixels2 = MixPixels<Layout>(tables, plan, plan.weights23, 2);
  const Vector256 pixels3 = MixPixels<Layout>(tables, plan, plan.weights23, 3);

  const Vector256 packed01 = Pack16(pixels0, pixels1);
  const Vector256 packed23 = Pack16(pixels2, pixels3);
  const Vector256 even = UnpackLow8(packed01, packed23);  // pixels 0, 2 and 4, 6
  const Vector256 odd = UnpackHigh8(packed01, packed23);  // pixels 1, 3 and 5, 7
  const FourPlanes low = MergeHalves(UnpackLow8(even, odd));
  const FourPlanes high = MergeHalves(UnpackHigh8(even, odd));

  StoreLow(target, low.first);
  StoreHigh(target + stride, low.first);
  StoreLow(target + 2 * stride, low.second);
  StoreHigh(target + 3 * stride, low.second);
  StoreLow(target + 4 * stride, high.first);
  StoreHigh(target + 5 * stride, high.first);
  StoreLow(target + 6 * stride, high.second);
  if constexpr (kPlanes > static_cast<int>(kLanes)) {
    StoreHigh(target + 7 * stride, high.second);
    StoreLow(target + 8 * stride, MixChannel8<Layout>(tables, plan));
  }
}

// Repeats the colour of the pixel before `target` in all planes; `count` is a multiple of a block.
template <int kPlanes>
inline void FillBlocks(unsigned char* target, std::size_t stride, std::size_t count) {
  constexpr std::size_t kLongRun = 128;  // from here on a call a plane is cheaper than the loop
  for (int k = 0; k < kPlanes; ++k, target += stride) {
    if (count >= kLongRun) {
      __builtin_memset(target, target[-1], count);
      continue;
    }
    const __m128i value = _mm_set1_epi8(static_cast<char>(target[-1]));
    for (std::size_t i = 0; i < count; i += kBlock) StoreLow(target + i, value);
  }
}

// At least one block from `first` to `end`. The last block may overlap the one before it.
template <class Layout, int kPlanes>
void ConvertBlocks(const ConversionRow& row) {
  constexpr std::size_t kBytes = Layout::kBytesPerPixel;
  // Kept apart from `row`, which the stores to the planes might change for all the compiler knows.
  const RowTables tables = {row.interleavedTables[0], row.interleavedTables};
  const unsigned char* const pixels = row.pixels;
  unsigned char* const planes = row.planes;
  const std::size_t stride = row.planeStride;
  const std::uint32_t end = row.end;
  const std::uint32_t last = end - kBlock;

  BlockPlan plans[2];
  int current = 0;
  std::uint32_t x = row.first;
  PlanBlock<Layout, kPlanes>(pixels + x * kBytes, &plans[current]);
  for (;;) {
    const std::uint32_t runStart = x + kBlock;
    std::uint32_t next = runStart;
    while (next <= last && RepeatsPreviousPixel<Layout>(pixels + next * kBytes)) next += kBlock;
    // Behind the last block this one is planned once more, which saves a branch.
    const std::uint32_t planned = next <= last ? next : last;
    PlanBlock<Layout, kPlanes>(pixels + planned * kBytes, &plans[1 - current]);

    MixBlock<Layout, kPlanes>(tables, plans[current], planes + x, stride);
    if (next > runStart) FillBlocks<kPlanes>(planes + runStart, stride, next - runStart);
    if (next >= end) return;
    x = planned;
    current = 1 - current;
  }
}

// Fewer pixels than a block: converted in a block of their own, of which only they are kept.
template <class Layout, int kPlanes>
void ConvertFew(const ConversionRow& row, std::uint32_t count) {
  constexpr std::size_t kBytes = Layout::kBytesPerPixel;
  unsigned char pixels[kBlock * kBytes] = {};
  unsigned char planes[kBlock * kPlanes] = {};
  for (std::size_t i = 0; i < count * kBytes; ++i) pixels[i] = row.pixels[row.first * kBytes + i];

  BlockPlan plan;
  PlanBlock<Layout, kPlanes>(pixels, &plan);
  MixBlock<Layout, kPlanes>({row.interleavedTables[0], row.interleavedTables}, plan, planes,
                            kBlock);
  for (std::size_t k = 0; k < kPlanes; ++k) {
    unsigned char* const target = row.planes + k * row.planeStride + row.first;
    for (std::uint32_t i = 0; i < count; ++i) target[i] = planes[k * kBlock + i];
  }
}

template <class Layout, int kPlanes>
void ConvertInks(const ConversionRow& row) {
  if (row.first >= row.end) return;
  const std::uint32_t count = row.end - row.first;
  if (count < kBlock) {
    ConvertFew<Layout, kPlanes>(row, count);
  } else {
    ConvertBlocks<Layout, kPlanes>(row);
  }
}

// ---------------------------------------------------------------------------------------------
// Black: 32 pixels at a time.

constexpr std::uint32_t kBlackBlock = 32;

// 255 - luminance of eight pixels, as words.
template <class Layout>
inline __m128i DarknessOf(const unsigned char* pixels) {
  __m128i first = Load128(pixels);
  __m128i second = Load128(pixels + Layout::kSecondLoad);
  if constexpr (Layout::kBytesPerPixel == 3) {
    // To four bytes a pixel; the second load begins four bytes before pixel 4.
    const __m128i spread = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    first = _mm_shuffle_epi8(first, spread);
    second = _mm_shuffle_epi8(_mm_srli_si128(second, 4), spread);
  }
  const __m128i weights = _mm_set1_epi32(Layout::kLuminanceWeights);
  const __m128i sums =
      _mm_hadd_epi16(_mm_maddubs_epi16(first, weights), _mm_maddubs_epi16(second, weights));
  return _mm_xor_si128(_mm_srli_epi16(sums, 3), _mm_set1_epi16(255));
}

template <class Layout>
inline __m128i DarknessOf16(const unsigned char* pixels) {
  return _mm_packus_epi16(DarknessOf<Layout>(pixels),
                          DarknessOf<Layout>(pixels + 8 * Layout::kBytesPerPixel));
}

// Looks 32 indices up in a part of a curve, 16 << kBits bytes of it, by the low 4 + kBits bits of
// an index: a shuffle for every 16 bytes, then one choice a bit. `lowBits` are the indices without
// their upper bits, `bits[j]` has bit 4 + j of every index on top of its byte.
template <int kBits>
inline Vector256 LookUp(const unsigned char* curve, const Vector256& lowBits,
                        const Vector256* bits) {
  if constexpr (kBits == 0) {
    return ShuffleBytes(Both(Load128(curve)), lowBits);
  } else {
    const Vector256 lower = LookUp<kBits - 1>(curve, lowBits, bits);
    const Vector256 upper = LookUp<kBits - 1>(curve + (8 << kBits), lowBits, bits);
    return Choose(lower, upper, bits[kBits - 1]);
  }
}

inline Vector256 LookUpCurve(const unsigned char* curve, const Vector256& indices) {
  const Vector256 bits[4] = {ShiftLeft16(indices, 3), ShiftLeft16(indices, 2),
                             ShiftLeft16(indices, 1), indices};
  return LookUp<4>(curve, And(indices, Both(_mm_set1_epi8(15))), bits);
}

// True when all pixels of a block have the tag of the first.
template <class Layout>
inline bool HasOneTag(const unsigned char* pixels) {
  if constexpr (!Layout::kTagged) return true;
  std::int32_t firstPixel;
  __builtin_memcpy(&firstPixel, pixels, sizeof firstPixel);
  const __m128i expected = _mm_set1_epi32(firstPixel);
  __m128i differences = _mm_setzero_si128();
  for (std::uint32_t i = 0; i < kBlackBlock; i += 4) {
    differences = _mm_or_si128(differences, _mm_xor_si128(Load128(pixels + 4 * i), expected));
  }
  return _mm_testz_si128(differences, _mm_set1_epi32(static_cast<int>(0xFF000000u))) != 0;
}

template <class Layout>
void ConvertBlackPlain(const ConversionRow& row, std::uint32_t first, std::uint32_t end) {
  ConversionRow part = row;
  part.first = first;
  part.end = end;
  kPlainConverters.black[static_cast<int>(Layout::kLayout)](part);
}

template <class Layout>
void ConvertBlack(const ConversionRow& row) {
  constexpr std::size_t kBytes = Layout::kBytesPerPixel;
  std::uint32_t x = row.first;
  for (; x < row.end && row.end - x >= kBlackBlock; x += kBlackBlock) {
    const unsigned char* const pixels = row.pixels + x * kBytes;
    if (!HasOneTag<Layout>(pixels)) {
      ConvertBlackPlain<Layout>(row, x, x + kBlackBlock);
      continue;
    }
    const unsigned char* const curve = row.tables[Layout::kTagged ? pixels[3] : 0];
    const Vector256 black = LookUpCurve(
        curve, Join(DarknessOf16<Layout>(pixels), DarknessOf16<Layout>(pixels + 16 * kBytes)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row.planes + x), Low(black));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row.planes + x + 16), High(black));
  }
  ConvertBlackPlain<Layout>(row, x, row.end);
}

}  // namespace

constinit const Converters kConverters = {
    {ConvertBlack<Rgb>, ConvertBlack<Xrgb>, ConvertBlack<RgbTag>},
    {ConvertInks<Rgb, 7>, ConvertInks<Xrgb, 7>, ConvertInks<RgbTag, 7>},
    {ConvertInks<Rgb, 9>, ConvertInks<Xrgb, 9>, ConvertInks<RgbTag, 9>},
    true,
};

}  // namespace corvane::CORVANE_SIMD_NAMESPACE
