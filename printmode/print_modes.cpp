// SPDX-License-Identifier: MIT
#include "printmode/print_modes.h"

namespace corvane {
namespace {

// Of the modes whose pages do not depend on "UseAlternateModes".
constexpr std::array<AlternateMode, kAlternateModes> Always(const AlternateMode& alternate) {
  return {alternate, alternate, alternate};
}

constexpr Placing kUnchanged = {false, false, 1};
constexpr Placing kDoubled = {true, false, 1};
constexpr Placing kTwoRows = {true, false, 2};
constexpr Placing kSecondAlone = {false, true, 1};
constexpr Placing kBoth = {true, true, 1};

// Values 52 and 82 go by the names of their siblings with black, as in the log.
constexpr PrintMode kRows[] = {
    // clang-format off
    // descriptor, name, ink set, dots per inch across and down, passes, and for alternate modes 0, 1
    //   and 2: layout of the halftoned row, its pixels per inch, contone rows per inch, placing
    {K_300x600_1Pass,                 "K_300x600_1Pass",                  InkSet::Black,  300,  600,  1, Always({10,  300,    0, kUnchanged})},
    {CMY_300x600_1Pass,               "CMY_300x600_1Pass",                InkSet::Seven,  300,  600,  1, Always({11,  300,    0, kUnchanged})},
    {CMYK_300x600_1Pass,              "CMYK_300x600_1Pass",               InkSet::Seven,  300,  600,  1, Always({12,  300,    0, kUnchanged})},
    {K_600x600_1Pass,                 "K_600x600_1Pass",                  InkSet::Black,  600,  600,  1, Always({10,  600,  600, kUnchanged})},
    {CcMmYyK_600x600_2Pass,           "CcMmYyK_600x600_2Pass",            InkSet::Seven,  600,  600,  2, Always({17,  600,  600, kUnchanged})},
    {K_600x600_2Pass,                 "K_600x600_2Pass",                  InkSet::Black,  600,  600,  2, Always({10,  600,  600, kUnchanged})},
    {CcMmYyK_600x600_2Pass_Alternate, "CcMmYyK_600x600_2Pass",            InkSet::Seven,  600,  600,  2, Always({17,  600,  600, kUnchanged})},
    {CCccMMmmYYyy_600x600_4Pass,      "CCccMMmmYYyy_600x600_4Pass",       InkSet::Seven,  600,  600,  4, Always({18,  600,  600, kUnchanged})},
    {CCccMMmmYYyyK_600x600_4Pass,     "CCccMMmmYYyyK_600x600_4Pass",      InkSet::Seven,  600,  600,  4, Always({19,  600,  600, kUnchanged})},
    {K_1200x600_4Pass,                "K_1200x600_4Pass",                 InkSet::Black, 1200,  600,  4, Always({10, 1200,  600, kUnchanged})},
    {K_1200x1200_4Pass,               "K_1200x1200_4Pass",                InkSet::Black, 1200, 1200,  4, Always({10, 1200, 1200, kUnchanged})},
    {CcMmYy_1200x1200_8Pass,          "CcMmYyK_1200x1200_8Pass",          InkSet::Seven, 1200, 1200,  8,
     {{{16, 1200, 1200, kUnchanged},
       {16,  600, 1200, kDoubled},
       {18,  600,  600, kTwoRows}}}},
    {CcMmYyK_1200x1200_4Pass,         "CcMmYyK_1200x1200_4Pass",          InkSet::Seven, 1200, 1200,  4, Always({17, 1200, 1200, kUnchanged})},
    {CcMmYyK_1200x1200_8Pass,         "CcMmYyK_1200x1200_8Pass",          InkSet::Seven, 1200, 1200,  8,
     {{{17, 1200, 1200, kUnchanged},
       {17,  600, 1200, kDoubled},
       {19,  600,  600, kTwoRows}}}},
    {K_4800x1200_16Pass,              "K_4800x1200_16Pass",               InkSet::Black, 4800, 1200, 16, Always({10, 2400, 1200, kUnchanged})},
    {CcMmYy_4800x1200_16Pass,         "CcMmYyK_4800x1200_16Pass",         InkSet::Seven, 4800, 1200, 16,
     {{{16, 1200, 1200, kDoubled},
       {16, 2400, 1200, kUnchanged},
       {16, 1200, 1200, kUnchanged}}}},
    {CcMmYyK_4800x1200_16Pass,        "CcMmYyK_4800x1200_16Pass",         InkSet::Seven, 4800, 1200, 16,
     {{{17, 1200, 1200, kDoubled},
       {17, 2400, 1200, kUnchanged},
       {17, 1200, 1200, kUnchanged}}}},
    {CMYcmK_300x600_1Pass,            "CMYcmK_300x600_1Pass",             InkSet::Nine,   300,  600,  1, Always({15,  300,    0, kUnchanged})},
    {CCccMMmmYYyycmK_600x600_4Pass,   "CCccMMmmYYyycmK_600x600_4Pass",    InkSet::Nine,   600,  600,  4, Always({22,  600,  600, kUnchanged})},
    {CcMmYycmK_1200x1200_8Pass,       "CcMmYycmK_1200x1200_8Pass",        InkSet::Nine,  1200, 1200,  8,
     {{{23, 1200, 1200, kUnchanged},
       {23,  600, 1200, kDoubled},
       {25,  600,  600, kTwoRows}}}},
    {CcMmYycmK_4800x1200_16Pass,      "CcMmYycmK_4800x1200_16Pass",       InkSet::Nine,  4800, 1200, 16,
     {{{23, 2400, 1200, kSecondAlone},
       {23, 1200, 1200, kBoth},
       {23, 2400, 1200, kUnchanged}}}},
    {CcMmYyccmmKK_600x600_2Pass,      "CcMmYyccmmKK_600x600_2Pass",       InkSet::Nine,   600,  600,  2, Always({24,  600,  600, kUnchanged})},
    // clang-format on
};

}  // namespace

constinit const std::span<const PrintMode> kPrintModes = kRows;

const PrintMode* FindPrintMode(std::int32_t descriptor) {
  for (const PrintMode& mode : kRows) {
    if (mode.descriptor == descriptor) return &mode;
  }
  return nullptr;
}

}  // namespace corvane
