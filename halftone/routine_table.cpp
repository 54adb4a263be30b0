// SPDX-License-Identifier: MIT
#include "halftone/routine_table.h"

namespace corvane {
namespace {

constexpr std::int32_t kAny = -1;
constexpr std::int32_t kOther = -1;  // to be the last row of its descriptor
constexpr std::int8_t kKeep = -1;

using enum KernelName;

// clang-format off
constexpr HalftoneRoutine kRoutines[] = {
    // descriptor, alternate mode, kernel, base resolution, both directions,
    //   shifts of C-M-Y, c-m-y and K-cd-md, layout code, print modes in the log
    {K_300x600_1Pass,                 kAny,   K2QDSD_100,                            300, false, kKeep, kKeep, 4, 10, {"K_300x600_1Pass"}},
    {CMY_300x600_1Pass,               kAny,   CMY22QDSD_100,                         300, false,     4,     4, 4, 11, {"CMY_300x600_1Pass"}},
    {CMYK_300x600_1Pass,              kAny,   CMYK22QDSD_100_100,                    300, false,     4,     4, 4, 12, {"CMYK_300x600_1Pass"}},
    {K_600x600_1Pass,                 kAny,   K2QDSD_100,                            600, false, kKeep, kKeep, 4, 10, {"K_600x600_1Pass", "K_600x600_2Pass"}},
    {K_600x600_2Pass,                 kAny,   K2QDSD_100,                            600, false, kKeep, kKeep, 4, 10, {"K_600x600_1Pass", "K_600x600_2Pass"}},
    {CcMmYyK_600x600_2Pass,           kAny,   CcMmYyK22QDSD_50_50_100,               600, false,     3,     3, 4, 17, {"CcMmYyK_600x600_2Pass"}},
    {CcMmYyK_600x600_2Pass_Alternate, kAny,   CcMmYyK22QDSD_50_50_100,               600, false,     3,     3, 4, 17, {"CcMmYyK_600x600_2Pass"}},
    {CCccMMmmYYyy_600x600_4Pass,      kAny,   CcMmYy32QDSD_100_100,                  600, false,     4,     4, 4, 18, {"CCccMMmmYYyy_600x600_4Pass"}},
    {CCccMMmmYYyyK_600x600_4Pass,     kAny,   CcMmYyK32QDSD_100_100_100,             600, false,     4,     4, 4, 19, {"CCccMMmmYYyyK_600x600_4Pass"}},
    {K_1200x600_4Pass,                kAny,   K2QDSD_25,                            1200, true,  kKeep, kKeep, 2, 10, {"K_1200x600_4Pass"}},
    {K_1200x1200_4Pass,               kAny,   K2QDSD_25,                            1200, false, kKeep, kKeep, 2, 10, {"K_1200x1200_4Pass"}},
    {CcMmYy_1200x1200_8Pass,          2,      CcMmYy32QDSD_100_100,                  600, false,     4,     4, 4, 18, {"CcMmYyK_1200x1200_8Pass"}},
    {CcMmYy_1200x1200_8Pass,          1,      CcMmYy22QDSD_50_50_1x2,                600, false,     3,     3, 3, 16, {"CcMmYyK_1200x1200_8Pass"}},
    {CcMmYy_1200x1200_8Pass,          kOther, CcMmYy22QDSD_25_25,                   1200, false,     2,     2, 2, 16, {"CcMmYyK_1200x1200_8Pass"}},
    {CcMmYyK_1200x1200_4Pass,         kAny,   CcMmYyK22QDSD_25_25_50,               1200, false,     2,     2, 3, 17, {"CcMmYyK_1200x1200_4Pass"}},
    {CcMmYyK_1200x1200_8Pass,         2,      CcMmYyK32QDSD_100_100_100,             600, false,     4,     4, 4, 19, {"CcMmYyK_1200x1200_8Pass"}},
    {CcMmYyK_1200x1200_8Pass,         1,      CcMmYyK22QDSD_50_50_50_1x2,            600, false,     3,     3, 3, 17, {"CcMmYyK_1200x1200_8Pass"}},
    {CcMmYyK_1200x1200_8Pass,         kOther, CcMmYyK22QDSD_25_25_25,               1200, false,     2,     2, 2, 17, {"CcMmYyK_1200x1200_8Pass"}},
    {K_4800x1200_16Pass,              kAny,   K2QDSD_6_25,                          2400, true,  kKeep, kKeep, 0, 10, {"K_4800x1200_16Pass"}},
    {CcMmYy_4800x1200_16Pass,         1,      CcMmYy22QDSD_12_5_25_Coupled,         2400, false,     1,     2, 1, 16, {"CcMmYyK_4800x1200_16Pass"}},
    {CcMmYy_4800x1200_16Pass,         kOther, CcMmYy22QDSD_25_50_Coupled,           1200, false,     2,     3, 2, 16, {"CcMmYyK_4800x1200_16Pass"}},
    {CcMmYyK_4800x1200_16Pass,        1,      CcMmYyK22QDSD_12_5_25_12_5_Coupled,   2400, false,     1,     2, 1, 17, {"CcMmYyK_4800x1200_16Pass"}},
    {CcMmYyK_4800x1200_16Pass,        kOther, CcMmYyK22QDSD_25_50_25_Coupled,       1200, false,     2,     3, 2, 17, {"CcMmYyK_4800x1200_16Pass"}},
    {CMYcmK_300x600_1Pass,            kAny,   CMYKcm22QDSD_100_100,                  300, false,     4,     4, 4, 15, {"CMYcmK_300x600_1Pass"}},
    {CCccMMmmYYyycmK_600x600_4Pass,   kAny,   CCccMMmmYYyyKKccmm33QDSD_100_100_200,  600, false,     4,     4, 5, 22, {"CCccMMmmYYyycmK_600x600_4Pass"}},
    {CcMmYycmK_1200x1200_8Pass,       2,      CCccMMmmYYyyKKccmm33QDSD_100_100_200,  600, false,     4,     4, 5, 25, {"CcMmYycmK_1200x1200_8Pass"}},
    {CcMmYycmK_1200x1200_8Pass,       1,      CcMmYyKcm22QDSD_50_50_100_1x2,         600, false,     3,     3, 4, 23, {"CcMmYycmK_1200x1200_8Pass"}},
    {CcMmYycmK_1200x1200_8Pass,       kOther, CcMmYyKcm22QDSD_25_25_50,             1200, false,     2,     2, 3, 23, {"CcMmYycmK_1200x1200_8Pass"}},
    {CcMmYycmK_4800x1200_16Pass,      1,      CcMmYyKcm22QDSD_25_50_100_Coupled,    1200, false,     2,     3, 4, 23, {"CcMmYycmK_4800x1200_16Pass"}},
    {CcMmYycmK_4800x1200_16Pass,      kOther, CcMmYyKcm22QDSD_6_25_12_5_25_Coupled, 2400, true,      0,     1, 2, 23, {"CcMmYycmK_4800x1200_16Pass"}},
    {CcMmYyccmmKK_600x600_2Pass,      kAny,   CcMmYyKKccmm23QDSD_50_50_200,          600, false,     3,     3, 5, 24, {"CcMmYyccmmKK_600x600_2Pass"}},
};

constexpr Ink kBlack[] = {Ink::K};
constexpr Ink kFolded[] = {Ink::C, Ink::M, Ink::Y, Ink::K};
constexpr Ink kFoldedNine[] = {Ink::C, Ink::M, Ink::Y, Ink::c, Ink::m, Ink::K};
constexpr Ink kSeven[] = {Ink::C, Ink::M, Ink::Y, Ink::c, Ink::m, Ink::y, Ink::K};
constexpr Ink kNine[] = {Ink::C, Ink::c, Ink::M, Ink::m, Ink::Y, Ink::y, Ink::K, Ink::cd, Ink::md};

constexpr HalftoneBuffers kBuffers[] = {
    // descriptor, alternate mode, planes of the output row, error lines, scale of the colour lines
    {K_300x600_1Pass,                 kAny,    1, kBlack,      1},
    {CMY_300x600_1Pass,               kAny,    4, kFolded,     1},
    {CMYK_300x600_1Pass,              kAny,    4, kFolded,     1},
    {K_600x600_1Pass,                 kAny,    1, kBlack,      1},
    {CcMmYyK_600x600_2Pass,           kAny,    7, kSeven,      1},
    {K_600x600_2Pass,                 kAny,    1, kBlack,      1},
    {CcMmYyK_600x600_2Pass_Alternate, kAny,    7, kSeven,      1},
    {CCccMMmmYYyy_600x600_4Pass,      kAny,   13, kSeven,      2},
    {CCccMMmmYYyyK_600x600_4Pass,     kAny,   13, kSeven,      2},
    {K_1200x600_4Pass,                kAny,    1, kBlack,      1},
    {K_1200x1200_4Pass,               kAny,    1, kBlack,      1},
    {CcMmYy_1200x1200_8Pass,          2,      13, kSeven,      1},
    {CcMmYy_1200x1200_8Pass,          kOther,  7, kSeven,      1},
    {CcMmYyK_1200x1200_4Pass,         kAny,    7, kSeven,      1},
    {CcMmYyK_1200x1200_8Pass,         2,      13, kSeven,      1},
    {CcMmYyK_1200x1200_8Pass,         kOther,  7, kSeven,      1},
    {K_4800x1200_16Pass,              kAny,    1, kBlack,      1},
    {CcMmYy_4800x1200_16Pass,         kAny,    7, kSeven,      1},
    {CcMmYyK_4800x1200_16Pass,        kAny,    7, kSeven,      1},
    {CMYcmK_300x600_1Pass,            kAny,    6, kFoldedNine, 1},
    {CCccMMmmYYyycmK_600x600_4Pass,   kAny,   18, kNine,       1},
    {CcMmYycmK_1200x1200_8Pass,       2,      18, kNine,       1},
    {CcMmYycmK_1200x1200_8Pass,       kOther,  9, kNine,       1},
    {CcMmYycmK_4800x1200_16Pass,      kAny,    9, kNine,       1},
    {CcMmYyccmmKK_600x600_2Pass,      kAny,   12, kNine,       1},
};
// clang-format on

template <typename Row, std::size_t kCount>
constexpr const Row* FindRow(const Row (&rows)[kCount], std::int32_t descriptor,
                             std::int32_t alternateMode) {
  for (const Row& row : rows) {
    const bool fits = row.alternateMode == kAny || row.alternateMode == alternateMode;
    if (row.descriptor == descriptor && fits) return &row;
  }
  return nullptr;
}

}  // namespace

const HalftoneRoutine* FindHalftoneRoutine(std::int32_t descriptor, std::int32_t alternateMode) {
  return FindRow(kRoutines, descriptor, alternateMode);
}

const HalftoneBuffers* FindHalftoneBuffers(std::int32_t descriptor, std::int32_t alternateMode) {
  return FindRow(kBuffers, descriptor, alternateMode);
}

}  // namespace corvane
