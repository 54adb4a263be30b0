// SPDX-License-Identifier: MIT
//
// One body for every instruction level. Only the running parity of a word differs between them.
#include "dotmanagement/dot_kernels.h"
#include "simd/vectors.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {

namespace {

using Word = std::uint64_t;

// ---- Words of 64 pixels ------------------------------------------------------------------------

constexpr std::uint32_t kWordBytes = 8;

// Of the `count` bytes that are left, the first eight; absent ones are 0.
CORVANE_INLINE Word LoadWord(const std::uint8_t* bytes, std::int64_t count) {
  Word word = 0;
  if (count >= kWordBytes) {
    __builtin_memcpy(&word, bytes, kWordBytes);
  } else if (count > 0) {
    __builtin_memcpy(&word, bytes, static_cast<std::size_t>(count));
  }
  return __builtin_bswap64(word);
}

// A word of one plane between its neighbours.
struct Line {
  Word before = 0;
  Word word = 0;
  Word after = 0;

  CORVANE_INLINE void Start(const std::uint8_t* bytes, std::int64_t count) {
    after = LoadWord(bytes, count);
  }
  // Moves on to the next word; `bytes` and `count` say what lies behind that.
  CORVANE_INLINE void Step(const std::uint8_t* bytes, std::int64_t count) {
    before = word;
    word = after;
    after = LoadWord(bytes, count);
  }
  // Pixels with a set pixel `kDistance` columns to the left or right.
  template <int kDistance>
  CORVANE_INLINE Word Neighbours() const {
    return (word >> kDistance | before << (64 - kDistance)) |
           (word << kDistance | after >> (64 - kDistance));
  }
};

// Calls place(lines, offset, count) for every word of the planes; count is the number of bytes from
// the word's first one to the end.
template <std::size_t kPlanes, class Place>
CORVANE_INLINE void ForEachWord(const std::uint8_t* const (&in)[kPlanes], std::uint32_t byteCount,
                                Place place) {
  Line lines[kPlanes];
  for (std::size_t plane = 0; plane < kPlanes; ++plane) lines[plane].Start(in[plane], byteCount);
  for (std::int64_t offset = 0; offset < byteCount; offset += kWordBytes) {
    const std::int64_t next = offset + kWordBytes;
    for (std::size_t plane = 0; plane < kPlanes; ++plane) {
      lines[plane].Step(in[plane] + next, byteCount - next);
    }
    place(lines, offset, byteCount - offset);
  }
}

// For each pixel the parity of the bits `kStride`, 2 `kStride`, ... columns before it.
template <int kStride>
CORVANE_INLINE Word ParityBefore(Word bits) {
#if CORVANE_SIMD_LEVEL >= 2
  // The high half of a carry-less product sums what lies above each bit.
  constexpr long long kAddends = kStride == 1 ? -1 : 0x5555555555555555;
  const __m128i product = _mm_clmulepi64_si128(_mm_cvtsi64_si128(static_cast<long long>(bits)),
                                               _mm_set1_epi64x(kAddends), 0x00);
  return static_cast<Word>(_mm_extract_epi64(product, 1));
#else
  bits >>= kStride;
  for (int distance = kStride; distance < 64; distance *= 2) bits ^= bits >> distance;
  return bits;
#endif
}

// The 128 sub-dots of 64 pixels, in the order of the output's bytes: four pixels of a half, the
// first in bit 3, look up their byte.
CORVANE_INLINE __m128i Spread(Word left, Word right) {
  const __m128i rightOf = _mm_setr_epi8(0x00, 0x01, 0x04, 0x05, 0x10, 0x11, 0x14, 0x15, 0x40, 0x41,
                                        0x44, 0x45, 0x50, 0x51, 0x54, 0x55);
  const __m128i leftOf = _mm_add_epi8(rightOf, rightOf);
  const __m128i low = _mm_set1_epi8(0x0F);
  const __m128i halves = _mm_set_epi64x(static_cast<long long>(__builtin_bswap64(right)),
                                        static_cast<long long>(__builtin_bswap64(left)));
  const __m128i first = _mm_and_si128(_mm_srli_epi16(halves, 4), low);
  const __m128i second = _mm_and_si128(halves, low);
  return _mm_or_si128(_mm_shuffle_epi8(leftOf, _mm_unpacklo_epi8(first, second)),
                      _mm_shuffle_epi8(rightOf, _mm_unpackhi_epi8(first, second)));
}

// Writes the sub-dots of the word's pixels, as far as there are pixels.
CORVANE_INLINE void StoreWord(std::uint8_t* out, std::int64_t count, Word left, Word right) {
  const __m128i subDots = Spread(left, right);
  if (count >= kWordBytes) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), subDots);
  } else {
    alignas(16) std::uint8_t bytes[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(bytes), subDots);
    __builtin_memcpy(out, bytes, static_cast<std::size_t>(2 * count));
  }
}

// ---- Pattern states ----------------------------------------------------------------------------

// The state of the isolated dots, which every one of them flips: one state for all pixels
// (`kStride` 1) or one for the even and one for the odd pixels (2).
template <int kStride>
class RunningState {
 public:
  CORVANE_INLINE explicit RunningState(bool set) : carried_(set ? ~Word{0} : 0) {}

  // The state that each pixel meets.
  CORVANE_INLINE Word Pass(Word isolated) {
    const Word before = ParityBefore<kStride>(isolated);
    const Word met = before ^ carried_;
    constexpr Word kLastPixels = kStride == 1 ? 1 : 3;
    constexpr Word kEveryPixel = kStride == 1 ? ~Word{0} : 0x5555555555555555;
    carried_ ^= ((before ^ isolated) & kLastPixels) * kEveryPixel;
    return met;
  }

  CORVANE_INLINE std::uint8_t Even() const { return carried_ >> 63 ? 0x80 : 0; }
  CORVANE_INLINE std::uint8_t Odd() const { return carried_ >> 62 & 1 ? 0x80 : 0; }

 private:
  Word carried_;
};

// ---- Three inks, one dot each ------------------------------------------------------------------

// What keeps another ink's dot from being isolated: the ink's whole neighbourhood, or only its dot.
enum class Disturbs { Neighbourhood, Dot };

template <int kDistance, Disturbs kDisturbs, int kStride>
CORVANE_INLINE RunningState<kStride> PlaceThreeInks(const SidePass<3>& pass) {
  const std::uint8_t* const in[3] = {pass.in[0], pass.in[1], pass.in[2]};
  std::uint8_t* const out[3] = {pass.out[0], pass.out[1], pass.out[2]};
  const Word leftC = pass.left[0], leftM = pass.left[1], leftY = pass.left[2];
  // Yellow shares its side with cyan or with magenta, which are never on the same one.
  const Word sharesC = ~(leftC ^ leftY);
  RunningState<kStride> state(false);
  ForEachWord(
      in, pass.byteCount, [&](const Line(&lines)[3], std::int64_t offset, std::int64_t count) {
        const Word c = lines[0].word, m = lines[1].word, y = lines[2].word;
        const Word besideC = lines[0].template Neighbours<kDistance>();
        const Word besideM = lines[1].template Neighbours<kDistance>();
        const Word besideY = lines[2].template Neighbours<kDistance>();
        const Word loneC = c & ~besideC, loneM = m & ~besideM, loneY = y & ~besideY;

        constexpr bool kWhole = kDisturbs == Disturbs::Neighbourhood;
        const Word disturbC = kWhole ? c | besideC : c;
        const Word disturbM = kWhole ? m | besideM : m;
        const Word disturbY = kWhole ? y | besideY : y;
        const Word isolated = (loneC & ~(disturbM | disturbY)) | (loneM & ~(disturbC | disturbY)) |
                              (loneY & ~(disturbC | disturbM));
        const Word turn = isolated & state.Pass(isolated);

        const Word pairC = sharesC & y & c & ~m;
        const Word pairM = ~sharesC & y & m & ~c;
        const Word moveY = (pairC | pairM) & loneY;
        const Word moveC = pairC & loneC & ~loneY;
        const Word moveM = pairM & loneM & ~loneY;

        const Word c1 = c & (leftC ^ turn ^ moveC);
        const Word m1 = m & (leftM ^ turn ^ moveM);
        const Word y1 = y & (leftY ^ turn ^ moveY);
        StoreWord(out[0] + 2 * offset, count, c1, c ^ c1);
        StoreWord(out[1] + 2 * offset, count, m1, m ^ m1);
        StoreWord(out[2] + 2 * offset, count, y1, y ^ y1);
      });
  return state;
}

ParityStates PlaceBestGlossy(const SidePass<3>& pass) {
  const auto state = PlaceThreeInks<2, Disturbs::Neighbourhood, 2>(pass);
  return {state.Even(), state.Odd()};
}

std::uint8_t PlaceBetterGlossy(const SidePass<3>& pass) {
  return PlaceThreeInks<1, Disturbs::Dot, 1>(pass).Even();
}

// ---- Second expansion --------------------------------------------------------------------------

std::uint8_t PlaceSecondExpansion(const SidePass<2>& pass, std::uint8_t firstState) {
  const std::uint8_t* const in[2] = {pass.in[0], pass.in[1]};
  std::uint8_t* const out[2] = {pass.out[0], pass.out[1]};
  const Word leftA = pass.left[0], leftB = pass.left[1];
  RunningState<1> state(firstState != 0);
  ForEachWord(
      in, pass.byteCount, [&](const Line(&lines)[2], std::int64_t offset, std::int64_t count) {
        const Word a = lines[0].word, b = lines[1].word;
        const Word besideA = lines[0].template Neighbours<4>();
        const Word besideB = lines[1].template Neighbours<4>();
        const Word isolated = (a & ~besideA & ~(b | besideB)) | (b & ~besideB & ~(a | besideA));
        const Word turn = isolated & state.Pass(isolated);
        const Word a1 = a & (leftA ^ turn);
        const Word b1 = b & (leftB ^ turn);
        StoreWord(out[0] + 2 * offset, count, a1, a ^ a1);
        StoreWord(out[1] + 2 * offset, count, b1, b ^ b1);
      });
  return state.Even();
}

// ---- One plane by itself -----------------------------------------------------------------------

void PlaceFixed(const FixedPass& pass) {
  const FixedPass fixed = pass;
  for (std::int64_t offset = 0; offset < fixed.byteCount; offset += kWordBytes) {
    const std::int64_t count = fixed.byteCount - offset;
    const Word dots = LoadWord(fixed.in + offset, count);
    StoreWord(fixed.out + 2 * offset, count, dots & fixed.left, dots & fixed.right);
  }
}

// ---- Cells of two by two sub-dots --------------------------------------------------------------

// How many dots the inks of a pixel have: one mask for each count.
struct DotCounts {
  Word with[3];
};

CORVANE_INLINE DotCounts CountDots(Word firstPlane, Word secondPlane) {
  return {{~(firstPlane | secondPlane), firstPlane & ~secondPlane, secondPlane}};
}

void PlaceCells(const CellPass& pass) {
  const CellPass cells = pass;
  ForEachWord(
      cells.in, cells.byteCount,
      [&](const Line(&lines)[6], std::int64_t offset, std::int64_t count) {
        DotCounts dots[3];
        Word subDots[3][4];
        for (int ink = 0; ink < 3; ++ink) {
          dots[ink] = CountDots(lines[ink].word, lines[ink + 3].word);
          for (int i = 0; i < 4; ++i) {
            subDots[ink][i] = (dots[ink].with[1] & cells.oneDot[ink].subDot[i]) |
                              (dots[ink].with[2] & cells.twoDots[ink].subDot[i]);
          }
        }
        const Word loneYellow = ~(lines[2].Neighbours<1>() | lines[5].Neighbours<1>());
        for (int e = 0; e < kYellowExceptionCount; ++e) {
          const CellDots& at = kYellowExceptions[e];
          const Word exception = dots[0].with[at.cyan] & dots[1].with[at.magenta] &
                                 dots[2].with[at.yellow] & loneYellow;
          for (int i = 0; i < 4; ++i) subDots[2][i] ^= exception & cells.yellowChange[e].subDot[i];
        }
        for (int ink = 0; ink < 3; ++ink) {
          StoreWord(cells.firstRow[ink] + 2 * offset, count, subDots[ink][0], subDots[ink][1]);
          StoreWord(cells.secondRow[ink] + 2 * offset, count, subDots[ink][2], subDots[ink][3]);
        }
      });
}

}  // namespace

const DotKernels kDotKernels = {PlaceBestGlossy, PlaceBetterGlossy, PlaceSecondExpansion,
                                PlaceFixed, PlaceCells};

}  // namespace corvane::CORVANE_SIMD_NAMESPACE
