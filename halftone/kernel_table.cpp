// SPDX-License-Identifier: MIT
#include "halftone/kernel_table.h"

#include <optional>
#include <string_view>

namespace corvane {
namespace {

// Planes are parsed into the ink at each position; -1 for a plane that stays empty.
struct PlaneList {
  std::array<int, kMostBinaryPlanes> ink{};
  int count = 0;

  constexpr int FirstPlaneOf(int wanted) const {
    for (int plane = 0; plane < count; ++plane) {
      if (ink[plane] == wanted) return plane;
    }
    return kNoPlane;
  }
};

constexpr PlaneList ParsePlanes(std::string_view text) {
  PlaneList planes;
  while (!text.empty()) {
    const std::size_t length = text.find(' ') < text.size() ? text.find(' ') : text.size();
    const std::optional<Ink> ink = FindInk(text.substr(0, length));
    planes.ink[planes.count++] = ink ? static_cast<int>(*ink) : -1;
    text.remove_prefix(length < text.size() ? length + 1 : length);
  }
  return planes;
}

// A kernel's row of the table.
enum class TableSet { Set6_25, Set12_5, Set25, Set50, Set100, Set200, Set1x2, Set1x2K, None };
struct KernelRow {
  const char* name;
  const char* planes;
  std::array<TableSet, 3> sets;  // by InkGroup
  ZeroLevelDecay decay;
  Passes passes;
  int rules;
};

constexpr InkGroup GroupOf(Ink ink) {
  switch (ink) {
    case Ink::C:
    case Ink::M:
    case Ink::Y:
      return InkGroup::CMY;
    case Ink::c:
    case Ink::m:
    case Ink::y:
      return InkGroup::cmy;
    default:
      return InkGroup::Black;
  }
}

constexpr Ink PartnerOf(Ink ink) {
  switch (ink) {
    case Ink::c:
      return Ink::m;
    case Ink::m:
      return Ink::c;
    case Ink::cd:
      return Ink::md;
    case Ink::md:
      return Ink::cd;
    default:
      return ink;
  }
}

constexpr Ink LenderOf(Ink ink) {
  if (ink == Ink::cd) return Ink::c;
  if (ink == Ink::md) return Ink::m;
  return ink;
}

constexpr KernelInk MakeInk(const KernelRow& row, const PlaneList& planes, Ink ink, int plane) {
  const int index = static_cast<int>(ink);
  const InkGroup group = GroupOf(ink);
  const bool coupled = (row.rules & kCoupled) != 0 && PartnerOf(ink) != ink;
  const bool blackOnly = planes.count == 1;
  const bool folded = (row.rules & kFolded) != 0 && group == InkGroup::CMY;
  KernelInk made{};
  made.ink = ink;
  made.state = (row.rules & kBorrowedLines) != 0 ? LenderOf(ink) : ink;
  made.group = group;
  made.set = static_cast<CoverageSet>(row.sets[static_cast<int>(group)]);
  made.decay = row.decay;
  if (row.decay == ZeroLevelDecay::HalfForCoupled) {
    made.decay = coupled ? ZeroLevelDecay::Half : ZeroLevelDecay::Keep31Of32;
  }
  made.contonePlane = static_cast<std::uint8_t>(blackOnly ? 0 : index);
  made.foldedPlane = static_cast<std::uint8_t>(folded ? index + 1 : kNoPlane);
  made.outputPlane = static_cast<std::uint8_t>(plane);
  made.partner = kNoPartner;
  made.twoDrop = plane + 1 < planes.count && planes.ink[plane + 1] == index;
  return made;
}

constexpr void LinkPartners(Kernel& kernel) {
  for (int i = 0; i < kernel.inkCount; ++i) {
    for (int j = 0; j < kernel.inkCount; ++j) {
      if (i != j && kernel.inks[j].ink == PartnerOf(kernel.inks[i].ink)) {
        kernel.inks[i].partner = static_cast<std::uint8_t>(j);
      }
    }
  }
}

constexpr Kernel MakeKernel(const KernelRow& row) {
  const PlaneList planes = ParsePlanes(row.planes);
  Kernel kernel{};
  kernel.name = row.name;
  kernel.planeCount = static_cast<std::uint8_t>(planes.count);
  kernel.fixedSerpentine = row.passes == Passes::FixedSerpentine;
  for (int index = 0; index < kInkCount; ++index) {
    const Ink ink = static_cast<Ink>(index);
    int plane = planes.FirstPlaneOf(index);
    if (ink == Ink::K && (row.rules & kUnsentBlack) != 0) plane = planes.count;
    if (plane == kNoPlane) continue;
    kernel.inks[kernel.inkCount++] = MakeInk(row, planes, ink, plane);
  }
  if ((row.rules & kCoupled) != 0) LinkPartners(kernel);
  return kernel;
}

constexpr std::array<KernelRow, kKernelCount> kRows = {{
#define CORVANE_KERNEL_ROW(name, planes, cmySet, lightSet, blackSet, decay, passes, rules) \
  {#name,                                                                                  \
   planes,                                                                                 \
   {TableSet::cmySet, TableSet::lightSet, TableSet::blackSet},                             \
   ZeroLevelDecay::decay,                                                                  \
   Passes::passes,                                                                         \
   rules},
    CORVANE_HALFTONE_KERNELS(CORVANE_KERNEL_ROW)
#undef CORVANE_KERNEL_ROW
}};

constexpr std::array<Kernel, kKernelCount> MakeKernels() {
  std::array<Kernel, kKernelCount> kernels{};
  for (int i = 0; i < kKernelCount; ++i) kernels[i] = MakeKernel(kRows[i]);
  return kernels;
}

constexpr bool EveryInkHasASet(const std::array<Kernel, kKernelCount>& kernels) {
  for (const Kernel& kernel : kernels) {
    for (int i = 0; i < kernel.inkCount; ++i) {
      if (static_cast<int>(kernel.inks[i].set) >= kCoverageSetCount) return false;
    }
  }
  return true;
}
static_assert(EveryInkHasASet(MakeKernels()));
static_assert(static_cast<int>(TableSet::None) == kCoverageSetCount);

}  // namespace

constinit const std::array<Kernel, kKernelCount> kKernels = MakeKernels();

}  // namespace corvane
