// SPDX-License-Identifier: MIT
//
// What a print mode of the printhead consists of: its ink set, its resolutions and the plane
// layouts of its rasters. The modes themselves are in printmode/print_modes.cpp.
//
// A page has one print mode. With the page property "UseAlternateModes" (0, 1 or 2) it fixes what
// every raster between the elements looks like (printmode/page_shape.h).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

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

constexpr std::optional<Ink> FindInk(std::string_view name) {
  for (int i = 0; i < kInkCount; ++i) {
    if (name == kInkNames[i]) return static_cast<Ink>(i);
  }
  return std::nullopt;
}

// What the colour element makes of a pixel; the values are its algorithm types.
enum class InkSet : std::uint32_t { Black = 0, Seven = 4, Nine = 5 };

constexpr int PlanesOf(InkSet set) {
  return set == InkSet::Black ? 1 : set == InkSet::Seven ? 7 : 9;
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

// What dot management does with a halftoned row. The first expansion doubles the pixels of all
// planes, and where it makes two rows of a row, an ink's two planes become one plane in each. The
// second doubles those of cd and md once more; K it does not carry over.
struct Placing {
  bool firstExpansion;
  bool secondExpansion;
  std::uint8_t rows;  // that a row becomes

  constexpr bool PlacesDots() const { return firstExpansion || secondExpansion; }
};

// The room of a row after the second expansion, in planes of the usual width.
inline constexpr std::uint8_t kSecondExpansionPlanes = 12;

// What a page looks like on its way, by its property "UseAlternateModes".
struct AlternateMode {
  std::uint8_t layout;        // code of the halftoned row
  std::uint16_t halftoneDpi;  // binary pixels per inch, across, that halftoning makes
  std::uint16_t contoneRows;  // contone rows per inch; 0: as many as the page has
  Placing placing;
};

inline constexpr int kAlternateModes = 3;  // values of "UseAlternateModes": 0, 1 and 2

// The place of a "UseAlternateModes" value among them: what is not 1 or 2 is as 0. Only dot
// management, which asks `FindFilter`, places no dots for such a value where it places some for 0.
constexpr int AlternateModeIndex(std::uint32_t useAlternateModes) {
  return useAlternateModes < kAlternateModes ? static_cast<int>(useAlternateModes) : 0;
}

struct PrintMode {
  tagBinaryCMYKDescriptor descriptor;
  const char* name;  // as the halftone log has it
  InkSet inkSet;
  std::uint16_t horizontalDpi;  // of the printhead
  std::uint16_t verticalDpi;
  std::uint8_t passes;
  std::array<AlternateMode, kAlternateModes> alternates;

  const AlternateMode& Alternate(std::uint32_t useAlternateModes) const {
    return alternates[static_cast<std::size_t>(AlternateModeIndex(useAlternateModes))];
  }
};

}  // namespace corvane
