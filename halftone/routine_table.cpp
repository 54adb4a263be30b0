// SPDX-License-Identifier: MIT
#include "halftone/routine_table.h"

#include <cmath>

namespace corvane {
namespace {

constexpr std::int32_t kAny = -1;
constexpr std::int32_t kOther = -1;  // to be the last row of its descriptor
constexpr std::int8_t kKeep = -1;

using enum KernelName;

constexpr Ink kBlack[] = {Ink::K};
constexpr Ink kFolded[] = {Ink::C, Ink::M, Ink::Y, Ink::K};
constexpr Ink kFoldedNine[] = {Ink::C, Ink::M, Ink::Y, Ink::c, Ink::m, Ink::K};
constexpr Ink kSeven[] = {Ink::C, Ink::M, Ink::Y, Ink::c, Ink::m, Ink::y, Ink::K};
constexpr Ink kNine[] = {Ink::C, Ink::c, Ink::M, Ink::m, Ink::Y, Ink::y, Ink::K, Ink::cd, Ink::md};

// clang-format off
constexpr HalftoneRoutine kRoutines[] = {
    // descriptor, alternate mode, kernel, both directions, shifts of C-M-Y, c-m-y and K-cd-md,
    //   planes of the output row buffer, error lines, scale of the colour lines, print modes in the log
    {K_300x600_1Pass,                 kAny,   K2QDSD_100,                           false, kKeep, kKeep, 4,  1, kBlack,      1, {"K_300x600_1Pass"}},
    {CMY_300x600_1Pass,               kAny,   CMY22QDSD_100,                        false,     4,     4, 4,  4, kFolded,     1, {"CMY_300x600_1Pass"}},
    {CMYK_300x600_1Pass,              kAny,   CMYK22QDSD_100_100,                   false,     4,     4, 4,  4, kFolded,     1, {"CMYK_300x600_1Pass"}},
    {K_600x600_1Pass,                 kAny,   K2QDSD_100,                           false, kKeep, kKeep, 4,  1, kBlack,      1, {"K_600x600_1Pass", "K_600x600_2Pass"}},
    {K_600x600_2Pass,                 kAny,   K2QDSD_100,                           false, kKeep, kKeep, 4,  1, kBlack,      1, {"K_600x600_1Pass", "K_600x600_2Pass"}},
    {CcMmYyK_600x600_2Pass,           kAny,   CcMmYyK22QDSD_50_50_100,              false,     3,     3, 4,  7, kSeven,      1, {"CcMmYyK_600x600_2Pass"}},
    {CcMmYyK_600x600_2Pass_Alternate, kAny,   CcMmYyK22QDSD_50_50_100,              false,     3,     3, 4,  7, kSeven,      1, {"CcMmYyK_600x600_2Pass"}},
    {CCccMMmmYYyy_600x600_4Pass,      kAny,   CcMmYy32QDSD_100_100,                 false,     4,     4, 4, 13, kSeven,      2, {"CCccMMmmYYyy_600x600_4Pass"}},
    {CCccMMmmYYyyK_600x600_4Pass,     kAny,   CcMmYyK32QDSD_100_100_100,            false,     4,     4, 4, 13, kSeven,      2, {"CCccMMmmYYyyK_600x600_4Pass"}},
    {K_1200x600_4Pass,                kAny,   K2QDSD_25,                            true,  kKeep, kKeep, 2,  1, kBlack,      1, {"K_1200x600_4Pass"}},
    {K_1200x1200_4Pass,               kAny,   K2QDSD_25,                            false, kKeep, kKeep, 2,  1, kBlack,      1, {"K_1200x1200_4Pass"}},
    {CcMmYy_1200x1200_8Pass,          2,      CcMmYy32QDSD_100_100,                 false,     4,     4, 4, 13, kSeven,      1, {"CcMmYyK_1200x1200_8Pass"}},
    {CcMmYy_1200x1200_8Pass,          1,      CcMmYy22QDSD_50_50_1x2,               false,     3,     3, 3,  7, kSeven,      1, {"CcMmYyK_1200x1200_8Pass"}},
    {CcMmYy_1200x1200_8Pass,          kOther, CcMmYy22QDSD_25_25,                   false,     2,     2, 2,  7, kSeven,      1, {"CcMmYyK_1200x1200_8Pass"}},
    {CcMmYyK_1200x1200_4Pass,         kAny,   CcMmYyK22QDSD_25_25_50,               false,     2,     2, 3,  7, kSeven,      1, {"CcMmYyK_1200x1200_4Pass"}},
    {CcMmYyK_1200x1200_8Pass,         2,      CcMmYyK32QDSD_100_100_100,            false,     4,     4, 4, 13, kSeven,      1, {"CcMmYyK_1200x1200_8Pass"}},
    {CcMmYyK_1200x1200_8Pass,         1,      CcMmYyK22QDSD_50_50_50_1x2,           false,     3,     3, 3,  7, kSeven,      1, {"CcMmYyK_1200x1200_8Pass"}},
    {CcMmYyK_1200x1200_8Pass,         kOther, CcMmYyK22QDSD_25_25_25,               false,     2,     2, 2,  7, kSeven,      1, {"CcMmYyK_1200x1200_8Pass"}},
    {K_4800x1200_16Pass,              kAny,   K2QDSD_6_25,                          true,  kKeep, kKeep, 0,  1, kBlack,      1, {"K_4800x1200_16Pass"}},
    {CcMmYy_4800x1200_16Pass,         1,      CcMmYy22QDSD_12_5_25_Coupled,         false,     1,     2, 1,  7, kSeven,      1, {"CcMmYyK_4800x1200_16Pass"}},
    {CcMmYy_4800x1200_16Pass,         kOther, CcMmYy22QDSD_25_50_Coupled,           false,     2,     3, 2,  7, kSeven,      1, {"CcMmYyK_4800x1200_16Pass"}},
    {CcMmYyK_4800x1200_16Pass,        1,      CcMmYyK22QDSD_12_5_25_12_5_Coupled,   false,     1,     2, 1,  7, kSeven,      1, {"CcMmYyK_4800x1200_16Pass"}},
    {CcMmYyK_4800x1200_16Pass,        kOther, CcMmYyK22QDSD_25_50_25_Coupled,       false,     2,     3, 2,  7, kSeven,      1, {"CcMmYyK_4800x1200_16Pass"}},
    {CMYcmK_300x600_1Pass,            kAny,   CMYKcm22QDSD_100_100,                 false,     4,     4, 4,  6, kFoldedNine, 1, {"CMYcmK_300x600_1Pass"}},
    {CCccMMmmYYyycmK_600x600_4Pass,   kAny,   CCccMMmmYYyyKKccmm33QDSD_100_100_200, false,     4,     4, 5, 18, kNine,       1, {"CCccMMmmYYyycmK_600x600_4Pass"}},
    {CcMmYycmK_1200x1200_8Pass,       2,      CCccMMmmYYyyKKccmm33QDSD_100_100_200, false,     4,     4, 5, 18, kNine,       1, {"CcMmYycmK_1200x1200_8Pass"}},
    {CcMmYycmK_1200x1200_8Pass,       1,      CcMmYyKcm22QDSD_50_50_100_1x2,        false,     3,     3, 4,  9, kNine,       1, {"CcMmYycmK_1200x1200_8Pass"}},
    {CcMmYycmK_1200x1200_8Pass,       kOther, CcMmYyKcm22QDSD_25_25_50,             false,     2,     2, 3,  9, kNine,       1, {"CcMmYycmK_1200x1200_8Pass"}},
    {CcMmYycmK_4800x1200_16Pass,      1,      CcMmYyKcm22QDSD_25_50_100_Coupled,    false,     2,     3, 4,  9, kNine,       1, {"CcMmYycmK_4800x1200_16Pass"}},
    {CcMmYycmK_4800x1200_16Pass,      kOther, CcMmYyKcm22QDSD_6_25_12_5_25_Coupled, true,      0,     1, 2,  9, kNine,       1, {"CcMmYycmK_4800x1200_16Pass"}},
    {CcMmYyccmmKK_600x600_2Pass,      kAny,   CcMmYyKKccmm23QDSD_50_50_200,         false,     3,     3, 5, 12, kNine,       1, {"CcMmYyccmmKK_600x600_2Pass"}},
};
// clang-format on

// The weight of an ink in what is halftoned: (3 * dark + light) / 4 where the light one is folded
// in.
double ShareOf(const KernelInk& ink) { return ink.foldedPlane == kNoPlane ? 1.0 : 0.75; }

int ShiftOf(const HalftoneRoutine& routine, InkGroup group) {
  switch (group) {
    case InkGroup::CMY:
      return routine.ShiftCMY;
    case InkGroup::cmy:
      return routine.Shiftcmy;
    default:
      return routine.ShiftK;
  }
}

}  // namespace

const HalftoneRoutine* FindHalftoneRoutine(std::int32_t descriptor, std::int32_t alternateMode) {
  for (const HalftoneRoutine& row : kRoutines) {
    const bool fits = row.alternateMode == kAny || row.alternateMode == alternateMode;
    if (row.descriptor == descriptor && fits) return &row;
  }
  return nullptr;
}

double CoverageOf(const HalftoneRoutine& routine, Ink ink) {
  constexpr int kFullShift = 4;
  const Kernel& kernel = KernelOf(routine.kernel);
  const int passes = routine.BothDirections && !kernel.fixedSerpentine ? 2 : 1;
  for (int i = 0; i < kernel.inkCount; ++i) {
    const KernelInk& made = kernel.inks[static_cast<std::size_t>(i)];
    if (made.ink != ink || made.outputPlane >= kernel.planeCount) continue;
    return passes * ShareOf(made) * std::ldexp(1.0, ShiftOf(routine, made.group) - kFullShift);
  }
  return 0.0;
}

}  // namespace corvane
