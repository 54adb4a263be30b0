// SPDX-License-Identifier: MIT
//
// The print modes of the printhead, their ink sets and the plane layouts of their rasters.
//
// A page has one print mode. With the page property "UseAlternateModes" (0, 1 or 2) it fixes what
// every raster between the elements looks like.
#pragma once

#include <cstddef>
#include <cstdint>

// The page-start property "CMYKBinaryDescriptor". Every other value is no print mode.
// Names give ink set, dots per inch (horizontal x vertical) and passes.
enum tagBinaryCMYKDescriptor : std::int32_t {
  K_300x600_1Pass = 5,
  CMY_300x600_1Pass = 6,
  CMYK_300x600_1Pass = 7,
  K_600x600_1Pass = 8,
  CcMmYyK_600x600_2Pass = 12,
  K_600x600_2Pass = 14,
  CcMmYyK_600x600_2Pass_Alternate = 20,
  CCccMMmmYYyy_600x600_4Pass = 33,
  CCccMMmmYYyyK_600x600_4Pass = 34,
  K_1200x600_4Pass = 41,
  K_1200x1200_4Pass = 48,
  CcMmYy_1200x1200_8Pass = 52,
  CcMmYyK_1200x1200_4Pass = 53,
  CcMmYyK_1200x1200_8Pass = 54,
  K_4800x1200_16Pass = 79,
  CcMmYy_4800x1200_16Pass = 82,
  CcMmYyK_4800x1200_16Pass = 83,
  CMYcmK_300x600_1Pass = 104,
  CCccMMmmYYyycmK_600x600_4Pass = 106,
  CcMmYycmK_1200x1200_8Pass = 108,
  CcMmYycmK_4800x1200_16Pass = 109,
  CcMmYyccmmKK_600x600_2Pass = 111,
};

namespace corvane {

// The inks, in the order of their contone planes and of all per-ink state: c, m and y are the light
// inks, cd and md the further cyan and magenta of the nine-ink set.
enum class Ink : std::uint8_t { C, c, M, m, Y, y, K, cd, md };
inline constexpr int kInkCount = 9;
inline constexpr const char* kInkNames[kInkCount] = {"C", "c", "M", "m", "Y", "y", "K", "cd", "md"};

// What the colour element makes of a pixel; the values are its algorithm types.
enum class InkSet : std::uint32_t { Black = 0, Seven = 4, Nine = 5 };

constexpr int PlanesOf(InkSet set) {
  return set == InkSet::Black ? 1 : set == InkSet::Seven ? 7 : 9;
}

struct PrintMode {
  tagBinaryCMYKDescriptor descriptor;
  const char* name;         // as the halftone log has it
  const char* printedInks;  // in the order of Ink
  InkSet inkSet;
  std::uint16_t horizontalDpi;
  std::uint16_t verticalDpi;
  std::uint8_t passes;
  // By "UseAlternateModes":
  std::uint8_t layout[3];        // layout code of the halftoned raster
  std::uint16_t halftoneDpi[3];  // binary pixels per inch, across, that halftoning makes
  std::uint16_t contoneRows[3];  // contone rows per inch; 0: as many as the page has
};

// The place of a "UseAlternateModes" value in the above: what is not 1 or 2 is as 0.
constexpr int AlternateModeIndex(std::uint32_t useAlternateModes) {
  return useAlternateModes <= 2 ? static_cast<int>(useAlternateModes) : 0;
}

// Values 52 and 82 go by the names of their siblings with black, as in the log.
inline constexpr PrintMode kPrintModes[] = {
    // clang-format off
    {K_300x600_1Pass,                 "K_300x600_1Pass",                 "K",                  InkSet::Black,  300,  600,  1, {10, 10, 10}, {300, 300, 300},    {0, 0, 0}},
    {CMY_300x600_1Pass,               "CMY_300x600_1Pass",               "C M Y",              InkSet::Seven,  300,  600,  1, {11, 11, 11}, {300, 300, 300},    {0, 0, 0}},
    {CMYK_300x600_1Pass,              "CMYK_300x600_1Pass",              "C M Y K",            InkSet::Seven,  300,  600,  1, {12, 12, 12}, {300, 300, 300},    {0, 0, 0}},
    {K_600x600_1Pass,                 "K_600x600_1Pass",                 "K",                  InkSet::Black,  600,  600,  1, {10, 10, 10}, {600, 600, 600},    {600, 600, 600}},
    {CcMmYyK_600x600_2Pass,           "CcMmYyK_600x600_2Pass",           "C c M m Y y K",      InkSet::Seven,  600,  600,  2, {17, 17, 17}, {600, 600, 600},    {600, 600, 600}},
    {K_600x600_2Pass,                 "K_600x600_2Pass",                 "K",                  InkSet::Black,  600,  600,  2, {10, 10, 10}, {600, 600, 600},    {600, 600, 600}},
    {CcMmYyK_600x600_2Pass_Alternate, "CcMmYyK_600x600_2Pass",           "C c M m Y y K",      InkSet::Seven,  600,  600,  2, {17, 17, 17}, {600, 600, 600},    {600, 600, 600}},
    {CCccMMmmYYyy_600x600_4Pass,      "CCccMMmmYYyy_600x600_4Pass",      "C c M m Y y",        InkSet::Seven,  600,  600,  4, {18, 18, 18}, {600, 600, 600},    {600, 600, 600}},
    {CCccMMmmYYyyK_600x600_4Pass,     "CCccMMmmYYyyK_600x600_4Pass",     "C c M m Y y K",      InkSet::Seven,  600,  600,  4, {19, 19, 19}, {600, 600, 600},    {600, 600, 600}},
    {K_1200x600_4Pass,                "K_1200x600_4Pass",                "K",                  InkSet::Black, 1200,  600,  4, {10, 10, 10}, {1200, 1200, 1200}, {600, 600, 600}},
    {K_1200x1200_4Pass,               "K_1200x1200_4Pass",               "K",                  InkSet::Black, 1200, 1200,  4, {10, 10, 10}, {1200, 1200, 1200}, {1200, 1200, 1200}},
    {CcMmYy_1200x1200_8Pass,          "CcMmYyK_1200x1200_8Pass",         "C c M m Y y",        InkSet::Seven, 1200, 1200,  8, {16, 16, 18}, {1200, 600, 600},   {1200, 1200, 600}},
    {CcMmYyK_1200x1200_4Pass,         "CcMmYyK_1200x1200_4Pass",         "C c M m Y y K",      InkSet::Seven, 1200, 1200,  4, {17, 17, 17}, {1200, 1200, 1200}, {1200, 1200, 1200}},
    {CcMmYyK_1200x1200_8Pass,         "CcMmYyK_1200x1200_8Pass",         "C c M m Y y K",      InkSet::Seven, 1200, 1200,  8, {17, 17, 19}, {1200, 600, 600},   {1200, 1200, 600}},
    {K_4800x1200_16Pass,              "K_4800x1200_16Pass",              "K",                  InkSet::Black, 4800, 1200, 16, {10, 10, 10}, {2400, 2400, 2400}, {1200, 1200, 1200}},
    {CcMmYy_4800x1200_16Pass,         "CcMmYyK_4800x1200_16Pass",        "C c M m Y y",        InkSet::Seven, 4800, 1200, 16, {16, 16, 16}, {1200, 2400, 1200}, {1200, 1200, 1200}},
    {CcMmYyK_4800x1200_16Pass,        "CcMmYyK_4800x1200_16Pass",        "C c M m Y y K",      InkSet::Seven, 4800, 1200, 16, {17, 17, 17}, {1200, 2400, 1200}, {1200, 1200, 1200}},
    {CMYcmK_300x600_1Pass,            "CMYcmK_300x600_1Pass",            "C M Y K cd md",      InkSet::Nine,   300,  600,  1, {15, 15, 15}, {300, 300, 300},    {0, 0, 0}},
    {CCccMMmmYYyycmK_600x600_4Pass,   "CCccMMmmYYyycmK_600x600_4Pass",   "C c M m Y y K cd md", InkSet::Nine,  600,  600,  4, {22, 22, 22}, {600, 600, 600},    {600, 600, 600}},
    {CcMmYycmK_1200x1200_8Pass,       "CcMmYycmK_1200x1200_8Pass",       "C c M m Y y K cd md", InkSet::Nine, 1200, 1200,  8, {23, 23, 25}, {1200, 600, 600},   {1200, 1200, 600}},
    {CcMmYycmK_4800x1200_16Pass,      "CcMmYycmK_4800x1200_16Pass",      "C c M m Y y K cd md", InkSet::Nine, 4800, 1200, 16, {23, 23, 23}, {2400, 1200, 2400}, {1200, 1200, 1200}},
    {CcMmYyccmmKK_600x600_2Pass,      "CcMmYyccmmKK_600x600_2Pass",      "C c M m Y y K cd md", InkSet::Nine,  600,  600,  2, {24, 24, 24}, {600, 600, 600},    {600, 600, 600}},
    // clang-format on
};
inline constexpr int kPrintModeCount = sizeof kPrintModes / sizeof kPrintModes[0];

// The print mode of a descriptor, or null when the value is none.
constexpr const PrintMode* FindPrintMode(std::int32_t descriptor) {
  for (const PrintMode& mode : kPrintModes) {
    if (mode.descriptor == descriptor) return &mode;
  }
  return nullptr;
}

// One binary plane: its ink and, where an ink has two planes, the bit of the drop count it holds.
struct PlaneInk {
  Ink ink;
  std::uint8_t bit;
};

inline constexpr int kMostBinaryPlanes = 18;

// The binary planes of a row, in order.
struct PlaneLayout {
  std::uint8_t code;
  std::uint8_t planeCount;
  PlaneInk planes[kMostBinaryPlanes];
};

// clang-format off
inline constexpr PlaneLayout kPlaneLayouts[] = {
    {10, 1, {{Ink::K, 0}}},
    {11, 3, {{Ink::C, 0}, {Ink::M, 0}, {Ink::Y, 0}}},
    {12, 4, {{Ink::C, 0}, {Ink::M, 0}, {Ink::Y, 0}, {Ink::K, 0}}},
    {15, 6, {{Ink::C, 0}, {Ink::M, 0}, {Ink::Y, 0}, {Ink::cd, 0}, {Ink::md, 0}, {Ink::K, 0}}},
    {16, 6, {{Ink::C, 0}, {Ink::c, 0}, {Ink::M, 0}, {Ink::m, 0}, {Ink::Y, 0}, {Ink::y, 0}}},
    {17, 7, {{Ink::C, 0}, {Ink::c, 0}, {Ink::M, 0}, {Ink::m, 0}, {Ink::Y, 0}, {Ink::y, 0}, {Ink::K, 0}}},
    {18, 12, {{Ink::C, 0}, {Ink::C, 1}, {Ink::c, 0}, {Ink::c, 1}, {Ink::M, 0}, {Ink::M, 1},
              {Ink::m, 0}, {Ink::m, 1}, {Ink::Y, 0}, {Ink::Y, 1}, {Ink::y, 0}, {Ink::y, 1}}},
    {19, 13, {{Ink::C, 0}, {Ink::C, 1}, {Ink::c, 0}, {Ink::c, 1}, {Ink::M, 0}, {Ink::M, 1},
              {Ink::m, 0}, {Ink::m, 1}, {Ink::Y, 0}, {Ink::Y, 1}, {Ink::y, 0}, {Ink::y, 1}, {Ink::K, 0}}},
    {22, 18, {{Ink::C, 0}, {Ink::C, 1}, {Ink::c, 0}, {Ink::c, 1}, {Ink::M, 0}, {Ink::M, 1},
              {Ink::m, 0}, {Ink::m, 1}, {Ink::Y, 0}, {Ink::Y, 1}, {Ink::y, 0}, {Ink::y, 1},
              {Ink::cd, 0}, {Ink::cd, 1}, {Ink::md, 0}, {Ink::md, 1}, {Ink::K, 0}, {Ink::K, 1}}},
    {23, 9, {{Ink::C, 0}, {Ink::c, 0}, {Ink::M, 0}, {Ink::m, 0}, {Ink::Y, 0}, {Ink::y, 0},
             {Ink::cd, 0}, {Ink::md, 0}, {Ink::K, 0}}},
    {24, 12, {{Ink::C, 0}, {Ink::c, 0}, {Ink::M, 0}, {Ink::m, 0}, {Ink::Y, 0}, {Ink::y, 0},
              {Ink::cd, 0}, {Ink::cd, 1}, {Ink::md, 0}, {Ink::md, 1}, {Ink::K, 0}, {Ink::K, 1}}},
    {25, 18, {{Ink::C, 0}, {Ink::C, 1}, {Ink::c, 0}, {Ink::c, 1}, {Ink::M, 0}, {Ink::M, 1},
              {Ink::m, 0}, {Ink::m, 1}, {Ink::Y, 0}, {Ink::Y, 1}, {Ink::y, 0}, {Ink::y, 1},
              {Ink::cd, 0}, {Ink::cd, 1}, {Ink::md, 0}, {Ink::md, 1}, {Ink::K, 0}, {Ink::K, 1}}},
};
// clang-format on

// The layout of a binary raster's `RasterFormat`, or null when the code is none.
constexpr const PlaneLayout* FindPlaneLayout(std::uint32_t code) {
  for (const PlaneLayout& layout : kPlaneLayouts) {
    if (layout.code == code) return &layout;
  }
  return nullptr;
}

}  // namespace corvane
