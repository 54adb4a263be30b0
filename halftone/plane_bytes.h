// SPDX-License-Identifier: MIT
//
// The planes of a row on their way into the fast engines and out of them: contone bytes and binary
// bits, 16 bytes at a time. Included by files that are compiled once per instruction level;
// everything has internal linkage, so that no level gets another's code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "halftone/engine.h"
#include "simd/vectors.h"

namespace corvane::CORVANE_SIMD_NAMESPACE {
namespace {

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

// Where the levels of an ink come from.
inline PlaneSource SourceOf(const KernelInk& ink, const RowState& state) {
  PlaneSource source{};
  source.dark = state.data + std::size_t{ink.contonePlane} * state.stride;
  if (ink.foldedPlane != kNoPlane) {
    source.light = state.data + std::size_t{ink.foldedPlane} * state.stride;
  }
  return source;
}

// Calls visit(plane's bytes from the first pixel on, where the page keeps them) for the contone
// planes that the kernel reads, until it returns false.
template <class Page, typename Visit>
CORVANE_INLINE bool AllPlanes(const Page& page, const RowState& state, Visit visit) {
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

// Whether the planes are those that the page keeps, in the pixels of the row.
template <class Page>
bool IsKept(const Page& page, const RowState& state) {
  const std::size_t count = state.end - state.first;
  return AllPlanes(page, state, [count](const std::uint8_t* levels, const std::uint8_t* kept) {
    return std::memcmp(levels, kept, count) == 0;
  });
}

// Keeps the planes as they came, to know the row again.
template <class Page>
void KeepPlanes(const Page& page, const RowState& state) {
  const std::size_t count = state.end - state.first;
  AllPlanes(page, state, [count](const std::uint8_t* levels, std::uint8_t* kept) {
    std::memcpy(kept, levels, count);
    return true;
  });
}

// No ink at all in the pixels of the row.
template <class Page>
bool IsWhite(const Page& page, const RowState& state) {
  if (state.first >= state.end) return true;
  const std::size_t count = state.end - state.first;
  return AllPlanes(page, state, [count](const std::uint8_t* levels, const std::uint8_t*) {
    return levels[0] == 0 && std::memcmp(levels, levels + 1, count - 1) == 0;
  });
}

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

template <typename T>
bool IsZero(const T* values, std::size_t count) {
  return values[0] == 0 && std::memcmp(values, values + 1, (count - 1) * sizeof(T)) == 0;
}

}  // namespace
}  // namespace corvane::CORVANE_SIMD_NAMESPACE
