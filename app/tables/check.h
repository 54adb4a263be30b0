// SPDX-License-Identifier: MIT
//
// Judges a colour table by what it prints: colours off the grid, through the interpolation of a
// page, seen with the ink model and held against the best that the inks can do.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/tables/best_inks.h"
#include "app/tables/file.h"

namespace corvane {

using Srgb = Triple;  // encoded, 0 to 1

// A value and the colour where it was found.
struct Finding {
  double value = 0;
  Srgb at{};
};

// Parts of the chroma that the inks could give a wanted colour.
struct ChromaKept {
  double median = 0;
  double low = 0;  // 5 % keep less
};

// A group of colours that people know from memory.
struct SceneCheck {
  const char* name = "";
  ChromaKept chroma;
  double difference = 0;  // mean CIEDE2000
  double grain = 0;       // mean
};

struct TableCheck {
  TableIndices indices{};

  // Holes: colours inside 80 % of the way to the edge of what can be printed.
  int inside = 0;
  int holes = 0;  // that differ by more than kHole
  Finding worstInside;
  // All that can be printed.
  int printable = 0;
  double mean = 0, most95 = 0;

  double bend999 = 0;  // 99.9 % of the second differences of Lab, 33 steps an axis
  Finding bend;        // the largest
  Finding notch;       // chroma missing on the way between two corners of the cube
  Finding fall;        // of L* in a step of 64 between two colours inside
  double corner = 0;   // least part of the chroma that the inks reach at the hue, of six corners
  std::array<double, 6> corners{};
  ChromaKept shadows;
  std::vector<SceneCheck> scenes;
  double highlightGrain = 0;

  double ink = 0, inkLimit = 0;  // most at a node, and what the medium takes
  double greyInk = 0;            // most on the neutral axis
  double neutral = 0;            // largest a*, b* on the neutral axis
  double blackFrom = 0;          // L* of the neutral axis where black ink begins
  bool blackAlone = false;       // neutrals hold no other ink
  // The largest difference to the same table of another quality at colours that can be printed;
  // nothing where no such table of the same inks was checked.
  std::optional<double> quality;
};

// What a table ought to hold to.
namespace aims {
inline constexpr double kHole = 4.0;
inline constexpr double kBend999 = 5.0, kBend = 8.0;
inline constexpr double kFall = 0.1;
inline constexpr double kCorner = 0.9;
inline constexpr double kShadowMedian = 0.9, kShadowLow = 0.8;
inline constexpr double kScene = 0.88;
inline constexpr double kQuality = 1.5;
}  // namespace aims

// The aims that a table misses, in words; empty when it holds to all.
std::vector<std::string> MissesOf(const TableCheck& check);

struct IndexedTable {
  TableIndices indices{};
  std::vector<std::uint8_t> bytes;  // channel after channel
};

// Checks colour tables of seven or nine inks, `jobs` at a time; the order of the answers is that of
// the tables. `between` is called between colours and may throw.
std::vector<TableCheck> CheckTables(std::span<const IndexedTable> tables, const InkData& inks,
                                    int jobs, const std::function<void()>& between);

// The colours of a table as printed: amounts at any sRGB colour, and their Lab against the paper.
class PrintedTable {
 public:
  PrintedTable(std::span<const std::uint8_t> table, const InkResponseTable& response);

  InkAmounts Amounts(const Srgb& srgb) const;
  Triple Lab(const Srgb& srgb) const { return response_.Lab(Amounts(srgb)); }
  // The noise of the drops in L*: by the law of granularity it grows with the root of the number of
  // drops that a small window holds by chance. docs/colour.md has the formula.
  double Grain(const Srgb& srgb) const;

 private:
  const InkResponseTable& response_;
  std::vector<InkAmounts> nodes_;
};

Triple WantedLab(const Srgb& srgb);

}  // namespace corvane
