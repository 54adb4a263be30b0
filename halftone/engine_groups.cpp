// SPDX-License-Identifier: MIT
#include "halftone/engine_groups.h"

#include <cstring>
#include <new>

#include "halftone/block_layout.h"
#include "halftone/threshold_tables.h"
#include "halftone/weight_maps.h"

namespace corvane {
namespace {

// ---- What the inks need

bool IsInPair(Ink ink) { return ink == Ink::cd || ink == Ink::md; }

// C to K have lanes of their own index, cd and md the two of their group, and an ink alone has one.
int LaneInGroup(const LaneGroup& group, Ink ink) {
  if (group.width == 1) return 0;
  return IsInPair(ink) ? static_cast<int>(ink) - static_cast<int>(Ink::cd) : static_cast<int>(ink);
}

// The shifts of a class's terms: two below, two behind; 0 is absent.
std::array<std::uint8_t, 4> ShiftsOf(int weights) {
  const ErrorWeights& of = kErrorWeights[weights];
  return {of.below.firstShift, of.below.secondShift, of.behind.firstShift, of.behind.secondShift};
}

void FillClass(LaneGroup& group, int weights, const std::array<std::uint8_t, 4>& shifts) {
  for (const int i : {weights, weights + kMetaMark}) {
    int sixteenths[4];
    for (int term = 0; term < 4; ++term) {
      group.shifts[term].lane[i] = shifts[term];
      sixteenths[term] = shifts[term] == 0 ? 0 : 16 >> shifts[term];
      group.factors[term].byClass[weights] =
          static_cast<std::uint8_t>(shifts[term] == 0 ? 0 : 0x100 >> shifts[term]);
    }
    const int drop = i >= kMetaMark && group.twoDrop ? kTwoDropUnit : kFullDrop;
    const int below = drop / 16 * (sixteenths[0] + sixteenths[1]);
    const int behind = drop / 16 * (sixteenths[2] + sixteenths[3]);
    group.dropBelow.lane[i] = static_cast<std::uint16_t>(below);
    group.dropBehind.lane[i] = static_cast<std::uint16_t>(behind);
    group.dropAhead.lane[i] = static_cast<std::uint16_t>(drop - below - behind);
  }
}

void FillTables(LaneGroup& group, const Kernel& kernel) {
  for (int weights = 0; weights < kWeightClassCount; ++weights) {
    FillClass(group, weights, ShiftsOf(weights));
  }
  if (!group.alone) return;
  // Nothing drops at level 0, so that what a drop would take does not matter.
  std::array<std::uint8_t, 4> shifts = ShiftsOf(LevelRulesOf(kernel.inks[0].set)[0].weights);
  for (std::uint8_t& shift : shifts) shift = static_cast<std::uint8_t>(shift == 0 ? 0 : shift + 1);
  FillClass(group, kHalvedClass, shifts);
}

void FillSet(LaneGroup& group, int set, const KernelInk& ink) {
  RuleBytes& bytes = group.sets[set];
  const LevelRule* const rules = LevelRulesOf(ink.set);
  for (int level = 0; level < kLevelCount; ++level) {
    const LevelRule& rule = rules[level];
    // No error exceeds the largest number: level 0 has no drop.
    const int bias = level == 0 ? 0x7FFF : rule.bias;
    const int factor = level == 0 ? 0 : 1 << rule.modulationShift;
    const int weights = level == 0 && group.alone ? kHalvedClass : rule.weights;
    bytes.biasLow[level] = static_cast<std::uint8_t>(bias);
    bytes.biasHigh[level] = static_cast<std::uint8_t>(bias >> 8);
    bytes.meta[level] = static_cast<std::uint8_t>(factor << kMetaFactorShift | weights |
                                                  (ink.twoDrop ? kMetaMark : 0));
    group.rules[set][level] = static_cast<std::uint32_t>(bytes.meta[level] << 16 | bias);
  }
}

int SetFor(LaneGroup& group, const KernelInk& ink, const Kernel& kernel) {
  for (int i = 0; i < group.width; ++i) {
    if (group.inks[i] < 0) continue;
    const KernelInk& other = kernel.inks[group.inks[i]];
    if (other.set == ink.set && other.twoDrop == ink.twoDrop) return group.setOfLane[i];
  }
  FillSet(group, group.setCount, ink);
  return group.setCount++;
}

void DescribeInk(LaneGroup& group, const Kernel& kernel, int index, const RowState& state,
                 int lanes) {
  const KernelInk& ink = kernel.inks[index];
  const int own = LaneInGroup(group, ink.ink);
  const int set = SetFor(group, ink, kernel);
  group.inks[own] = static_cast<std::int8_t>(index);
  for (int lane = own; lane < kMaxGroupWidth; lane += group.width) {
    group.setOfLane[lane] = static_cast<std::uint8_t>(set);
    group.rulesOfLane[lane] = group.rules[set];
  }
  group.coupled |= ink.partner != kNoPartner;
  group.twoDrop |= ink.twoDrop;
  const bool isSecond = ink.partner != kNoPartner && ink.partner < index;
  const int partner =
      ink.partner == kNoPartner ? 0 : LaneInGroup(group, kernel.inks[ink.partner].ink) - own;
  group.partners[own] = static_cast<std::int8_t>(own + partner);
  for (int lane = own; lane < lanes; lane += group.width) {
    group.inkMask.lane[lane] = 0xFFFF;
    group.inputMask.lane[lane] = ink.twoDrop ? 0x7F : 0xFF;
    group.inputScale.lane[lane] = static_cast<std::uint16_t>(1u << ShiftOf(ink.group, state));
    group.dropSize.lane[lane] = ink.twoDrop ? kTwoDropUnit : kFullDrop;
    group.halves.lane[lane] = ink.decay == ZeroLevelDecay::Half ? 0xFFFF : 0;
    group.decayShift.lane[lane] = ink.decay == ZeroLevelDecay::Half ? 1 : 5;
    group.certainBit.lane[lane] = ink.twoDrop ? 0x80 : 0;
    group.second.lane[lane] = isSecond ? 1 : 0;
    const std::uint64_t bytes = std::uint64_t{1} << lane | std::uint64_t{1} << (lane + lanes);
    group.lanesOfSet[set] |= bytes;
    group.inkBytes |= bytes;
    if (ink.partner == kNoPartner) continue;
    const int word = (lane + partner) % 8 * 2;
    group.partnerWords.lane[2 * lane] = static_cast<std::uint8_t>(word);
    group.partnerWords.lane[2 * lane + 1] = static_cast<std::uint8_t>(word + 1);
    for (const int at : {lane, lane + lanes}) {
      group.partnerLevels.lane[at] = static_cast<std::uint8_t>((at + partner) % 16);
      group.pairLevels.lane[at] = 0xFF;
    }
  }
}

void StartGroup(LaneGroup& group, int width, int lanes) {
  group.width = width;
  group.segments = static_cast<std::uint32_t>(lanes / width);
  group.lead = width == 1 ? 64 : 128;
  group.shortestSegment = width == 1 ? 64 : 256;
  group.upperSegments = width == 1 ? 8 : 0;
  group.inks.fill(-1);
  group.partners.fill(-1);
  group.rulesOfLane.fill(group.rules[0]);
  std::memset(group.partnerWords.lane, 0x80, sizeof(group.partnerWords.lane));
  std::memset(group.partnerLevels.lane, 0x80, sizeof(group.partnerLevels.lane));
  for (int lane = 0; lane < lanes; ++lane) {
    group.segmentOf.lane[lane] = static_cast<std::uint16_t>(lane / width);
    const int segment = lane / width % 8;
    group.segmentBytes.lane[2 * lane] = static_cast<std::uint8_t>(2 * segment);
    group.segmentBytes.lane[2 * lane + 1] = static_cast<std::uint8_t>(2 * segment + 1);
  }
}

void DescribeGroups(GroupedPage& page, const RowState& state) {
  const Kernel& kernel = *page.kernel;
  StartGroup(page.groups[0], kernel.inkCount == 1 ? 1 : 8, page.lanes);
  page.groupCount = 1;
  page.groups[0].alone = kernel.inkCount == 1 && kernel.inks[0].decay == ZeroLevelDecay::Half;
  for (int i = 0; i < kernel.inkCount; ++i) {
    if (IsInPair(kernel.inks[i].ink) && page.groupCount == 1) {
      StartGroup(page.groups[page.groupCount++], 2, page.lanes);
    }
    DescribeInk(page.groups[IsInPair(kernel.inks[i].ink) ? 1 : 0], kernel, i, state, page.lanes);
  }
  for (int i = 0; i < page.groupCount; ++i) FillTables(page.groups[i], kernel);
}

// ---- Memory

// Contone pixels of a segment. 0 where it would be too short.
std::uint32_t SegmentPixels(const GroupedPage& page, const LaneGroup& group, std::uint32_t pixels) {
  const std::uint32_t segment = pixels / group.segments;
  return segment * page.numPix >= group.shortestSegment ? segment : 0;
}

std::uint64_t LayOut(GroupedPage& page, std::byte* start) {
  BlockLayout layout(start);
  const auto lanes = static_cast<std::uint64_t>(page.lanes);
  layout.Place(page.planes, std::uint64_t{page.width} * kInkCount);
  for (int i = 0; i < page.groupCount; ++i) {
    LaneGroup& group = page.groups[i];
    // 16 pixels are interleaved and 16 bytes delivered at a time.
    const std::uint64_t pixels = page.width / group.segments + 4 + 16;
    const std::uint64_t length = std::uint64_t{page.width} * page.numPix / group.segments + 2;
    const std::uint64_t bytes = length / 8 + 1 + 16;
    layout.Place(group.levels, pixels * lanes);
    layout.Place(group.bias, pixels * lanes * 2);
    layout.Place(group.meta, pixels * lanes);
    layout.Place(group.line, length * lanes * 2);
    for (int chain = 0; chain < 2; ++chain) {
      layout.Place(group.newLine[chain], length * lanes * 2);
      layout.Place(group.checkpoints[chain], bytes * lanes * 2);
      layout.Place(group.drops[chain], bytes * lanes);
    }
    layout.Place(group.blockFlags, bytes + 1);
    layout.Place(group.certain, group.twoDrop ? bytes * lanes : 0);
    for (std::uint16_t*& modulation : group.modulation) {
      // Whole vectors are loaded.
      layout.Place(modulation, (kModulationLength + 8) * std::uint64_t{group.segments} * 2 + 64);
    }
    if (start == nullptr) continue;
    group.levels += 2 * lanes;
    group.bias += 2 * lanes;
    group.meta += 2 * lanes;
    group.line += lanes;
    for (std::uint16_t*& line : group.newLine) line += lanes;
  }
  return layout.size();
}

// ---- From ErrorRows to segment order and back

void MakeModulation(GroupedPage& page, LaneGroup& group) {
  const std::uint32_t length = group.segmentPixels * page.numPix;
  for (std::uint32_t segment = 0; segment < group.segments; ++segment) {
    const std::uint32_t before[2] = {segment, group.segments - 1 - segment};
    for (int direction = 0; direction < 2; ++direction) {
      std::uint16_t* to = group.modulation[direction] + segment;
      for (std::uint32_t phase = 0; phase < kModulationLength + 8; ++phase, to += group.segments) {
        const std::uint64_t at = phase + std::uint64_t{before[direction]} * length;
        *to = static_cast<std::uint16_t>(kModulation[at % kModulationLength]);
      }
    }
  }
}

// Calls move(entry of ErrorRows, entry of the line) for every entry in segment order.
template <typename Move>
void MoveEntries(const GroupedPage& page, const LaneGroup& group, const RowState& state,
                 Move move) {
  const std::uint32_t length = group.segmentPixels * page.numPix;
  const auto lanes = static_cast<std::size_t>(page.lanes);
  for (int lane = 0; lane < group.width; ++lane) {
    if (group.inks[lane] < 0) continue;
    const KernelInk& ink = page.kernel->inks[group.inks[lane]];
    std::int16_t* row =
        state.ErrorRows[static_cast<int>(ink.state)] + std::size_t{group.first} * page.numPix + 1;
    for (std::uint32_t segment = 0; segment < group.segments; ++segment, row += length) {
      std::uint16_t* const line = group.line + lane + std::size_t{segment} * group.width;
      for (std::uint32_t i = 0; i < length; ++i) move(row[i], line[i * lanes]);
    }
  }
}

void Release(const GroupedPage& page, LaneGroup& group, const RowState& state) {
  MoveEntries(page, group, state, [](std::int16_t& row, const std::uint16_t& line) {
    row = static_cast<std::int16_t>(line);
  });
  group.segmentPixels = 0;
}

void Arrange(GroupedPage& page, LaneGroup& group, const RowState& state) {
  const std::uint32_t segmentPixels =
      SegmentPixels(page, group, state.first < state.end ? state.end - state.first : 0);
  if (group.segmentPixels == segmentPixels && group.first == state.first) return;
  Release(page, group, state);
  page.keepsLevels = false;
  group.segmentPixels = segmentPixels;
  group.first = state.first;
  if (segmentPixels == 0) return;
  if (group.modulationPixels != segmentPixels) MakeModulation(page, group);
  group.modulationPixels = segmentPixels;
  MoveEntries(page, group, state, [](const std::int16_t& row, std::uint16_t& line) {
    line = static_cast<std::uint16_t>(row);
  });
}

// ---- Which pages

using RunRowFunction = void (*)(GroupedPage&, const RowState&);

RunRowFunction RunRowOf(CpuLevel level) {
#if defined(CORVANE_HAS_SIMD)
  if (level == CpuLevel::Avx512Vbmi) return avx512vbmi::RunGroupRow;
#endif
  return CORVANE_OF_LEVEL(level, nullptr, RunGroupRow);
}

// The lanes of a level's vectors.
int LanesOf(CpuLevel level) { return level >= CpuLevel::Avx512 ? kMaxGroupLanes : 16; }

bool GroupsFit(const GroupedPage& page) {
  const bool pixelsFillBytes = page.numPix == 1 || page.numPix == 2 || page.numPix == 4 ||
                               (page.numPix == 8 && page.kernel->inkCount == 1);
  return pixelsFillBytes && SegmentPixels(page, page.groups[0], page.width) != 0;
}

}  // namespace

std::unique_ptr<GroupedPage> NewGroupedPage(const Kernel& kernel, const RowState& state,
                                            CpuLevel level) {
  const RunRowFunction runRow = RunRowOf(level);
  if (runRow == nullptr) return nullptr;
  std::unique_ptr<GroupedPage> page(new (std::nothrow) GroupedPage());
  if (page == nullptr) return nullptr;
  page->kernel = &kernel;
  page->numPix = state.NumPix;
  page->width = state.width;
  page->lanes = LanesOf(level);
  page->runRow = runRow;
  DescribeGroups(*page, state);
  if (!GroupsFit(*page)) return nullptr;
  page->block.reset(AllocateBlock([&](std::byte* start) { return LayOut(*page, start); }));
  return page->block == nullptr ? nullptr : std::move(page);
}

void ArrangeGroups(GroupedPage& page, const RowState& state) {
  for (int i = 0; i < page.groupCount; ++i) Arrange(page, page.groups[i], state);
}

void ReleaseGroups(GroupedPage& page, const RowState& state) {
  page.linesEmpty = false;  // as far as is known when they come back
  page.keepsLevels = false;
  for (int i = 0; i < page.groupCount; ++i) Release(page, page.groups[i], state);
}

}  // namespace corvane
