// SPDX-License-Identifier: MIT
//
// The group engine: rows cut into segments that run in step. A vector holds a group of inks of
// every segment: C to K in groups of 8 lanes, cd and md in groups of 2, and K alone in a lane.
//
// A segment cannot know the error with which it begins, but the error forgets: three guesses run
// over a lead, the last binary pixels of the segment before, and mostly meet there. Where they do
// not, what the shares conserve of the error may tell which of them is true. Where that is open
// too, the row begins with two chains side by side, and goes on with one when they have met.
// Behind the row every start is compared with the true end of the segment before; if one was wrong,
// the row is run again from the corrected starts until all errors are what they were, and so on
// until no start is wrong. So the result is always the plain engine's.
//
// Levels, look-ups and error lines stay in segment order from row to row: position i holds the i-th
// of every segment. What does not fill the segments, at the row's right end, is done by the plain
// engine on ErrorRows.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "halftone/engine.h"
#include "halftone/weight_maps.h"
#include "simd/choose.h"

namespace corvane {

inline constexpr int kMaxGroupLanes = 32;
inline constexpr int kMaxGroupWidth = 8;
inline constexpr int kMaxGroups = 2;
inline constexpr int kMaxGroupSets = 3;

// A 16-bit value for each lane of a vector.
struct alignas(64) GroupWords {
  std::uint16_t lane[kMaxGroupLanes];
};
// A byte for each lane of two contone pixels.
struct alignas(64) GroupBytes {
  std::uint8_t lane[2 * kMaxGroupLanes];
};

// The rules of a set by level, byte by byte. The meta byte is the class of shares, kMetaMark, and
// above it the factor of the modulation.
struct alignas(64) RuleBytes {
  std::uint8_t biasLow[kLevelCount];
  std::uint8_t biasHigh[kLevelCount];
  std::uint8_t meta[kLevelCount];
};
inline constexpr int kMetaMark = 0x10;  // a two-drop ink; in coupled groups a joint decision
inline constexpr int kMetaFactorShift = 5;
// A class of shares behind those of the weight maps: what level 0 takes of half the error.
inline constexpr int kHalvedClass = kWeightClassCount;

// How often repairs were needed, for tests and figures.
struct GroupRepairs {
  std::uint64_t rows;          // passes of a group that ran in segments
  std::uint64_t apart;         // starts whose guesses had not met
  std::uint64_t byParity;      // of these, chosen by the parity of the error
  std::uint64_t byThirds;      // or by its residue modulo 3
  std::uint64_t doubleRuns;    // runs that began with two chains
  std::uint64_t seconds;       // starts of which the second chain was true
  std::uint64_t repeats;       // runs from corrected starts
  std::uint64_t repeatsToEnd;  // of these, that changed the end of a segment
};

// Inks that share vectors, and their row in segment order.
struct LaneGroup {
  int width;  // lanes of a segment
  std::uint32_t segments;
  // In binary pixels. Shorter segments would spend too much of their time on the lead.
  std::uint32_t lead;
  std::uint32_t shortestSegment;
  std::array<std::int8_t, kMaxGroupWidth> inks;      // by lane the index in Kernel::inks; -1: none
  std::array<std::int8_t, kMaxGroupWidth> partners;  // by lane that of the other one of its pair
  bool coupled;
  bool twoDrop;
  bool alone;  // one ink, whose error is halved at level 0 by kHalvedClass

  // By lane.
  GroupWords inkMask;
  GroupWords inputMask;   // bits of a level that go into the error
  GroupWords inputScale;  // 1 << shift
  GroupWords dropSize;
  GroupWords decayShift;     // what an error loses at level 0: error >> shift
  GroupWords certainBit;     // bit of a level that means a certain drop
  GroupWords second;         // 1 in the second lane of a pair
  GroupWords segmentOf;      // the lane's segment
  GroupBytes segmentBytes;   // the same as a byte shuffle of 8 segments, see upperSegments
  GroupWords halves;         // all ones: the error is halved at level 0
  GroupBytes partnerWords;   // byte shuffle of words
  GroupBytes partnerLevels;  // byte shuffle of levels
  GroupBytes pairLevels;     // all ones: the level of a coupled ink

  // By class of shares and mark.
  std::array<GroupWords, 4> shifts;  // of the terms: two below, two behind; 0 is absent
  GroupWords dropBelow;              // what a drop takes from the share below,
  GroupWords dropBehind;             // from the share behind
  GroupWords dropAhead;              // and from what goes ahead
  // The high byte of what the error is multiplied with for each term; 0 is absent.
  struct alignas(16) {
    std::uint8_t byClass[16];
  } factors[4];
  std::uint32_t upperSegments;  // where the segments of the upper 8 lanes begin

  int setCount;
  std::array<RuleBytes, kMaxGroupSets> sets;
  std::uint32_t rules[kMaxGroupSets][kLevelCount];      // the same: bias, and the meta byte above
  std::array<std::uint64_t, kMaxGroupSets> lanesOfSet;  // a bit for each lane of two pixels
  std::uint64_t inkBytes;                               // all of these
  // Of 8 lanes, whatever the width.
  std::array<std::uint8_t, kMaxGroupWidth> setOfLane;
  std::array<const std::uint32_t*, kMaxGroupWidth> rulesOfLane;

  // The row that is in segment order; none while segmentPixels is 0.
  std::uint32_t segmentPixels;
  std::uint32_t first;
  std::uint32_t modulationPixels;  // segmentPixels that `modulation` was made for
  GroupWords keepsParity;  // all ones: every level of the segment's ink keeps the error's parity
  GroupWords keepsThirds;  // or its residue modulo 3

  // Position by position, of all lanes; levels, bias, meta and lines have more at either end.
  std::uint8_t* levels;
  std::uint16_t* bias;
  std::uint8_t* meta;
  std::uint16_t* line;  // the row above, left by the last pass
  // Of each chain: the line of the pass that runs, errors at the start of every 8 binary pixels,
  // and a byte of drops for them.
  std::array<std::uint16_t*, 2> newLine;
  std::array<std::uint16_t*, 2> checkpoints;
  std::array<std::uint8_t*, 2> drops;
  std::uint8_t* blockFlags;  // what the levels of every 8 binary pixels have in common
  std::uint8_t* certain;     // the same, of drops that are certain
  std::array<std::uint16_t*, 2> modulation;  // forward, backward: by phase, of every segment
};

struct GroupedPage {
  const Kernel* kernel;
  std::uint32_t numPix;
  std::uint32_t width;
  int lanes;  // of a vector
  int groupCount;
  std::array<LaneGroup, kMaxGroups> groups;
  void (*runRow)(GroupedPage& page, const RowState& state);

  std::uint8_t* planes;  // the row's contone planes as they came, `width` bytes each
  bool keepsLevels;      // the groups hold the levels of `planes`
  bool linesEmpty;       // all entries of all error lines are zero
  GroupRepairs repairs;

  struct Free {
    void operator()(std::byte* memory) const { std::free(memory); }
  };
  std::unique_ptr<std::byte, Free> block;
};

// Null when the level or the page has no group engine, or memory runs out.
std::unique_ptr<GroupedPage> NewGroupedPage(const Kernel& kernel, const RowState& state,
                                            CpuLevel level);

// Brings the row's pixels into segment order, where they are not yet; others go back to ErrorRows.
void ArrangeGroups(GroupedPage& page, const RowState& state);

// Writes all error lines back to ErrorRows.
void ReleaseGroups(GroupedPage& page, const RowState& state);

CORVANE_EACH_LEVEL(void RunGroupRow(GroupedPage& page, const RowState& state);)
namespace avx512vbmi {
void RunGroupRow(GroupedPage& page, const RowState& state);
}

}  // namespace corvane
