// SPDX-License-Identifier: MIT
//
// Makes the contents of a colour-table file: for every node of a table the ink amounts whose colour
// comes nearest to the wanted one.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "app/inks/ink_model.h"
#include "app/tables/builder_separation.h"
#include "app/tables/file.h"

namespace corvane {

// The index tuple of a table; docs/colour.md says what each index means.
struct TableKey {
  int inkClass = 0;    // 0 black, 1 seven inks without black ink, 2 seven inks, 3 nine inks
  int media = 0;       // 0..5
  int preference = 0;  // 0 natural, 1 vivid
  int quality = 0;     // 0 draft, 1 normal, 2 high, 3 best
  int intent = 0;      // 0 perceptual, 1 colorimetric

  friend auto operator<=>(const TableKey&, const TableKey&) = default;
};

// Tables of a whole file, one for every tuple of `kTableExtents`.
inline constexpr int kTableCount = 4 * 6 * 2 * 4 * 2;

// The tuple of a table's place in the file: the last index varies fastest.
TableKey TableKeyOf(int place);
int PlaceOf(const TableKey& key);

// Bytes of the decoded table: 256, 34391 or 44217.
std::size_t TableBytes(const TableKey& key);

struct TableSettings {
  std::optional<double> inkLimit;       // total ink, 1 = one ink at full strength; else the media's
  std::optional<double> blackStrength;  // grey component replacement 0..1; else the quality's
  InkCurves curves;                     // linearisation, applied to the finished ink amounts
  std::filesystem::path iccProfile;  // separate through this profile instead; empty: the ink model
};

class TableBuilder {
 public:
  // Throws Failure for settings outside their range and for a profile that cannot be used.
  explicit TableBuilder(InkData inks, TableSettings settings = {});
  ~TableBuilder();

  // The first of the tuples whose tables are identical to that of `key`: only those need building.
  TableKey Representative(const TableKey& key) const;

  // The table of a tuple, channel after channel. Several threads may build at a time.
  std::vector<std::uint8_t> Build(const TableKey& key) const;

  const InkData& Inks() const;

  // How colours become ink amounts in a table, and the largest sum of these, 1 = one ink at full
  // strength.
  SeparationRules RulesOf(const TableKey& key) const;
  double InkLimit(const TableKey& key) const { return RulesOf(key).inkLimit; }

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace corvane
