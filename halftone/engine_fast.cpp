// SPDX-License-Identifier: MIT
#include "halftone/engine_fast.h"

#include <cstring>
#include <new>
#include <utility>

#include "halftone/block_layout.h"
#include "halftone/engine.h"
#include "halftone/engine_choice.h"

namespace corvane {
namespace {

using RunRowFunction = void (*)(FastPage&, const RowState&);

int LaneCount(const FastPage& page) { return page.wide ? 16 : 8; }

void DescribeInk(FastPage& page, const KernelInk& ink, const RowState& state) {
  const int lane = LaneOf(ink.ink);
  page.wide |= lane >= 8;
  page.coupled |= ink.partner != kNoPartner;
  page.twoDrop |= ink.twoDrop;
  page.inputMask.lane[lane] = ink.twoDrop ? 0x7F : 0xFF;
  page.inputScale.lane[lane] = static_cast<std::uint16_t>(1u << ShiftOf(ink.group, state));
  page.dropSize.lane[lane] = ink.twoDrop ? kTwoDropUnit : kFullDrop;
  page.halfDecay.lane[lane] = ink.decay == ZeroLevelDecay::Half ? 0xFFFF : 0;
  page.decayBits.lane[lane] = ink.decay == ZeroLevelDecay::Half ? 0x8001 : 0x801F;
  page.certainBit.lane[lane] = ink.twoDrop ? 0x80 : 0;
  const LevelRule* const rules = LevelRulesOf(ink.set);
  for (int level = 0; level < kLevelCount; ++level) {
    page.rules[static_cast<int>(ink.group)][level] = PackRule(rules[level]);
  }
}

std::uint64_t LayOut(FastPage& page, std::byte* start) {
  constexpr std::uint64_t kPadding = 16;  // pixels: rows are worked on 16 at a time
  const std::uint64_t lanes = LaneCount(page);
  const std::uint64_t binaryWidth = std::uint64_t{page.numPix} * page.width;
  BlockLayout layout(start);
  layout.Place(page.line, (binaryWidth + 2) * lanes * 2);
  layout.Place(page.planes, std::uint64_t{page.width} * kInkCount);
  layout.Place(page.levels, (page.width + 2 + kPadding) * lanes);
  layout.Place(page.lookUps, (std::uint64_t{page.width} + 2) * lanes * 4);
  layout.Place(page.drops, (binaryWidth / 8 + 1 + kPadding) * lanes);
  layout.Place(page.certain, page.twoDrop ? (binaryWidth / 8 + 1 + kPadding) * lanes : 0);
  return layout.size();
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

FastPage* NewLanesPage(const Kernel& kernel, const RowState& state, CpuLevel level) {
  const RunRowFunction runRow = CORVANE_OF_LEVEL(level, nullptr, RunRow);
  if (runRow == nullptr) return nullptr;
  std::unique_ptr<FastPage> page(new (std::nothrow) FastPage());
  if (page == nullptr) return nullptr;
  page->kernel = &kernel;
  page->numPix = state.NumPix;
  page->width = state.width;
  page->runRow = runRow;
  for (int i = 0; i < kernel.inkCount; ++i) DescribeInk(*page, kernel.inks[i], state);
  for (int i = 0; i < kModulationLength + 8; ++i) {
    page->modulation[i] = static_cast<std::uint32_t>(kModulation[i % kModulationLength]) * 0x10001u;
  }
  page->block.reset(AllocateBlock([&](std::byte* start) { return LayOut(*page, start); }));
  if (page->block == nullptr) return nullptr;
  return page.release();
}

FastPage* NewFastPage(const Kernel& kernel, const RowState& state, CpuLevel level) {
  std::unique_ptr<GroupedPage> grouped;
  if (EngineFor(level, FamilyOf(kernel)) == EngineKind::Groups) {
    grouped = NewGroupedPage(kernel, state, level);
  }
  // Narrow rows, and the binary pixels of a contone pixel that do not fill bytes, have no segments.
  if (grouped == nullptr) return NewLanesPage(kernel, state, level);
  auto* const page = new (std::nothrow) FastPage();
  if (page != nullptr) page->grouped = std::move(grouped);
  return page;
}

void DeleteFastPage(FastPage* page) { delete page; }

void SyncErrorRows(const RowState& state) {
  FastPage* const page = state.fastPage;
  if (page == nullptr) return;
  if (page->grouped != nullptr) return ReleaseGroups(*page->grouped, state);
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
  if (page->grouped != nullptr) {
    const std::uint32_t rowBytes = ClearOutput(kernel, state);
    page->grouped->runRow(*page->grouped, state);
    return rowBytes;
  }
  if (!page->holdsLines) TakeLines(*page, state);
  const std::uint32_t rowBytes = ClearOutput(kernel, state);
  page->runRow(*page, state);
  return rowBytes;
}

}  // namespace corvane
