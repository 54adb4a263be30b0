// SPDX-License-Identifier: MIT
#include "halftone/engine_fast.h"

#include <cstring>
#include <new>

#include "halftone/engine.h"
#include "halftone/engine_segments.h"

namespace corvane {
namespace {

using RunRowFunction = void (*)(FastPage&, const RowState&);

RunRowFunction RunRowOf(CpuLevel level, bool inSegments) {
#ifdef CORVANE_HAS_SIMD
  switch (level) {
    case CpuLevel::Sse4:
      return inSegments ? sse4::RunSegmentRow : sse4::RunRow;
    case CpuLevel::Avx2:
      return inSegments ? avx2::RunSegmentRow : avx2::RunRow;
    case CpuLevel::Avx512:
      return inSegments ? avx512::RunSegmentRow : avx512::RunRow;
    case CpuLevel::Plain:
      break;
  }
#endif
  static_cast<void>(level);
  static_cast<void>(inSegments);
  return nullptr;
}

int LaneCount(const FastPage& page) { return page.wide ? 16 : 8; }

void DescribeLane(FastPage& page, int lane, const KernelInk& ink, const RowState& state) {
  page.inputMask.lane[lane] = ink.twoDrop ? 0x7F : 0xFF;
  page.inputScale.lane[lane] = static_cast<std::uint16_t>(1u << ShiftOf(ink.group, state));
  page.dropSize.lane[lane] = ink.twoDrop ? kTwoDropUnit : kFullDrop;
  page.halfDecay.lane[lane] = ink.decay == ZeroLevelDecay::Half ? 0xFFFF : 0;
  page.decayBits.lane[lane] = ink.decay == ZeroLevelDecay::Half ? 0x8001 : 0x801F;
  page.certainBit.lane[lane] = ink.twoDrop ? 0x80 : 0;
}

void DescribeInk(FastPage& page, const KernelInk& ink, const RowState& state) {
  const int lane = LaneOf(ink.ink);
  page.wide |= lane >= 8;
  page.coupled |= ink.partner != kNoPartner;
  page.twoDrop |= ink.twoDrop;
  DescribeLane(page, lane, ink, state);
  const LevelRule* const rules = LevelRulesOf(ink.set);
  for (int level = 0; level < kLevelCount; ++level) {
    page.rules[static_cast<int>(ink.group)][level] = PackRule(rules[level]);
  }
}

// All lanes are of one ink.
void DescribeSegments(FastPage& page, const KernelInk& ink, const RowState& state) {
  for (int lane = 0; lane < kMaxLanes; ++lane) DescribeLane(page, lane, ink, state);
  const LevelRule& zero = LevelRulesOf(ink.set)[0];
  page.halvesBeside = ink.decay == ZeroLevelDecay::Half &&
                      zero.weights == static_cast<std::uint8_t>(kHalvedWeights);
  if (page.halvesBeside) {
    constexpr std::uint32_t kMeta = kHalvedClass << 8 | kHalvedClass;  // without any modulation
    page.rules[static_cast<int>(ink.group)][0] = kMeta << 16 | 0x7FFF;
  }
}

// Hands out consecutive parts of a block; first run without one, to learn its size.
class BlockLayout {
 public:
  explicit BlockLayout(std::byte* start) : start_(start) {}

  template <typename T>
  void Place(T*& array, std::uint64_t bytes) {
    if (start_ != nullptr) array = reinterpret_cast<T*>(start_ + size_);
    size_ += (bytes + kAlignment - 1) / kAlignment * kAlignment;
  }

  std::uint64_t size() const { return size_; }
  static constexpr std::uint64_t kAlignment = 64;

 private:
  std::byte* start_;
  std::uint64_t size_ = 0;
};

void PlaceSegments(FastPage& page, BlockLayout& layout) {
  const std::uint64_t pixels = kLeadLength / page.numPix + page.width / kSegments + 1;
  const std::uint64_t length = std::uint64_t{page.width} * page.numPix / kSegments + 1;
  SegmentBuffers& segments = page.segments;
  layout.Place(segments.levels, pixels * kSegments);
  layout.Place(segments.entries, (kLeadLength + length) * kSegments * 2);
  layout.Place(segments.shares, (1 + length) * kGuesses * kSegments * 2);
  layout.Place(segments.drops, length / 8 * kGuesses * kSegments);
  layout.Place(segments.bits, length / 8 * kSegments + 16);
  layout.Place(segments.modulation, std::uint64_t{kModulationLength + 8} * kSegments * 2);
}

std::uint64_t LayOut(FastPage& page, std::byte* start) {
  constexpr std::uint64_t kPadding = 16;  // pixels: rows are worked on 16 at a time
  const std::uint64_t lanes = LaneCount(page);
  const std::uint64_t binaryWidth = std::uint64_t{page.numPix} * page.width;
  BlockLayout layout(start);
  if (page.inSegments) {
    PlaceSegments(page, layout);
    return layout.size();
  }
  layout.Place(page.line, (binaryWidth + 2) * lanes * 2);
  layout.Place(page.planes, std::uint64_t{page.width} * kInkCount);
  layout.Place(page.levels, (page.width + 2 + kPadding) * lanes);
  layout.Place(page.lookUps, (std::uint64_t{page.width} + 2) * lanes * 4);
  layout.Place(page.drops, (binaryWidth / 8 + 1 + kPadding) * lanes);
  layout.Place(page.certain, page.twoDrop ? (binaryWidth / 8 + 1 + kPadding) * lanes : 0);
  return layout.size();
}

bool AllocateBlock(FastPage& page) {
  const std::uint64_t bytes = LayOut(page, nullptr) + BlockLayout::kAlignment;
  if (bytes > SIZE_MAX) return false;
  // Zero, and no memory of the machine's before rows come.
  page.block.reset(static_cast<std::byte*>(std::calloc(static_cast<std::size_t>(bytes), 1)));
  if (page.block == nullptr) return false;
  void* start = page.block.get();
  std::size_t space = static_cast<std::size_t>(bytes);
  std::align(BlockLayout::kAlignment, 1, start, space);
  LayOut(page, static_cast<std::byte*>(start));
  return true;
}

std::size_t LineEntries(const FastPage& page) { return std::size_t{page.numPix} * page.width + 2; }

// Brings the error lines into the page.
void TakeLines(FastPage& page, const RowState& state) {
  const std::size_t lanes = LaneCount(page);
  const std::size_t entries = LineEntries(page);
  std::uint16_t anything = 0;
  for (int i = 0; i < page.kernel->inkCount; ++i) {
    const KernelInk& ink = page.kernel->inks[i];
    const std::int16_t* const from = state.ErrorRows[static_cast<int>(ink.state)];
    std::uint16_t* const to = page.line + LaneOf(ink.ink);
    for (std::size_t entry = 0; entry < entries; ++entry) {
      to[entry * lanes] = static_cast<std::uint16_t>(from[entry]);
      anything |= to[entry * lanes];
    }
  }
  page.holdsLines = true;
  page.linesEmpty = anything == 0;
}

}  // namespace

FastPage* NewFastPage(const Kernel& kernel, const RowState& state, CpuLevel level) {
  const bool inSegments = SegmentsFit(kernel, state);
  const RunRowFunction runRow = RunRowOf(level, inSegments);
  if (runRow == nullptr) return nullptr;
  std::unique_ptr<FastPage> page(new (std::nothrow) FastPage());
  if (page == nullptr) return nullptr;
  page->kernel = &kernel;
  page->numPix = state.NumPix;
  page->width = state.width;
  page->runRow = runRow;
  page->inSegments = inSegments;
  for (int i = 0; i < kernel.inkCount; ++i) DescribeInk(*page, kernel.inks[i], state);
  if (inSegments) DescribeSegments(*page, kernel.inks[0], state);
  for (int i = 0; i < kModulationLength + 8; ++i) {
    page->modulation[i] = static_cast<std::uint32_t>(kModulation[i % kModulationLength]) * 0x10001u;
  }
  if (!AllocateBlock(*page)) return nullptr;
  return page.release();
}

void DeleteFastPage(FastPage* page) { delete page; }

void SyncErrorRows(const RowState& state) {
  FastPage* const page = state.fastPage;
  if (page == nullptr) return;
  page->linesEmpty = false;  // as far as is known when they come back
  if (!page->holdsLines) return;
  const std::size_t lanes = LaneCount(*page);
  const std::size_t entries = LineEntries(*page);
  for (int i = 0; i < page->kernel->inkCount; ++i) {
    const KernelInk& ink = page->kernel->inks[i];
    const std::uint16_t* const from = page->line + LaneOf(ink.ink);
    std::int16_t* const to = state.ErrorRows[static_cast<int>(ink.state)];
    for (std::size_t entry = 0; entry < entries; ++entry) {
      to[entry] = static_cast<std::int16_t>(from[entry * lanes]);
    }
  }
  page->holdsLines = false;
}

std::uint32_t RunKernel(const Kernel& kernel, const RowState& state) {
  FastPage* const page = state.fastPage;
  if (page == nullptr) return RunKernelPlain(kernel, state);
  if (!page->holdsLines && !page->inSegments) TakeLines(*page, state);
  const std::uint32_t rowBytes = ClearOutput(kernel, state);
  page->runRow(*page, state);
  return rowBytes;
}

}  // namespace corvane
