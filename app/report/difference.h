// SPDX-License-Identifier: MIT
//
// Two prints against one another, dot by dot.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "app/inks/ink_model.h"
#include "app/output/separations.h"
#include "app/preview/dots.h"
#include "app/report/cells.h"

namespace corvane {

// Drops that the second print has and the first has not, and the reverse, in the order of Ink.
struct DropChange {
  std::array<std::uint64_t, kInkCount> more{}, fewer{};

  std::uint64_t Drops() const;
  void Add(const DropChange& other);
};

// A place where prints differ.
struct DifferentRegion {
  // Its pixels, both ends included: rows, and columns of the plane with the most pixels per inch.
  std::uint32_t left = 0, top = 0, right = 0, bottom = 0;
  PageWindow window;  // the same in inches
  DropChange change;
  double mostDifference = 0, meanDifference = 0;  // CIEDE2000 of its cells
};

struct PrintComparison {
  // What keeps the planes from being compared, in words; empty for planes of one form.
  std::vector<std::string> otherForm;
  std::uint32_t rows = 0, rowsThatDiffer = 0;
  DropChange change;
  double cellsPerInch = 0;               // that colours were compared in
  std::vector<DifferentRegion> regions;  // those with the most drops first, up to kMostRegions
  std::size_t furtherRegions = 0;

  bool Equal() const { return otherForm.empty() && rowsThatDiffer == 0; }
};

inline constexpr std::size_t kMostRegions = 50;

// Reads both prints once, and once more where they differ. `media` is 0..5.
PrintComparison ComparePrints(SeparationReader& first, SeparationReader& second,
                              const InkData& inks, int media);

// "C +3 -1, K +2".
std::string ChangeText(const DropChange& change);

std::string ComparisonText(const PrintComparison& comparison, const std::string& first,
                           const std::string& second);
std::string ComparisonJson(const PrintComparison& comparison, const std::string& first,
                           const std::string& second);

}  // namespace corvane
