// SPDX-License-Identifier: MIT
#include "app/report/zoom_areas.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <numbers>
#include <utility>

namespace corvane {
namespace {

double ChromaOf(const Triple& lab) { return std::hypot(lab[1], lab[2]); }

bool Within(double value, double low, double high) { return value >= low && value <= high; }

// How much of a light ink gives way to its dark one.
double HandOver(const InkAmounts& amounts) {
  constexpr std::pair<Ink, Ink> kPairs[] = {{Ink::c, Ink::C},  {Ink::m, Ink::M},  {Ink::y, Ink::Y},
                                            {Ink::c, Ink::cd}, {Ink::m, Ink::md}, {Ink::cd, Ink::C},
                                            {Ink::md, Ink::M}};
  constexpr double kEnough = 0.25;
  double most = 0;
  for (const auto& [light, dark] : kPairs) {
    most = std::max(most, std::min({amounts[static_cast<std::size_t>(light)],
                                    amounts[static_cast<std::size_t>(dark)], kEnough}));
  }
  return most / kEnough;
}

bool IsSkin(const Triple& lab) {
  const double hue = std::atan2(lab[2], lab[1]) * 180 / std::numbers::pi;
  return Within(lab[0], 45, 88) && Within(ChromaOf(lab), 12, 40) && Within(hue, 35, 75);
}

// A sum over any rectangle of cells in four steps.
class Sums {
 public:
  Sums(const CellGrid& grid, const std::function<double(std::size_t cell)>& value)
      : stride_(std::size_t{grid.columns} + 1), sums_(stride_ * (std::size_t{grid.rows} + 1)) {
    for (std::size_t row = 0; row < grid.rows; ++row) {
      double line = 0;
      for (std::size_t column = 0; column < grid.columns; ++column) {
        line += value(row * grid.columns + column);
        sums_[(row + 1) * stride_ + column + 1] = sums_[row * stride_ + column + 1] + line;
      }
    }
  }

  double Square(std::uint32_t column, std::uint32_t row, std::uint32_t side) const {
    const auto at = [&](std::size_t x, std::size_t y) { return sums_[y * stride_ + x]; };
    return at(column + side, row + side) - at(column, row + side) - at(column + side, row) +
           at(column, row);
  }

 private:
  std::size_t stride_;
  std::vector<double> sums_;
};

struct Square {
  std::uint32_t column = 0, row = 0;
};

bool Overlap(const Square& a, const Square& b, std::uint32_t side) {
  return a.column < b.column + side && b.column < a.column + side && a.row < b.row + side &&
         b.row < a.row + side;
}

class Picker {
 public:
  Picker(const CellFacts& facts, const CellGrid& grid, std::uint32_t side)
      : facts_(facts), grid_(grid), side_(std::min({side, grid.columns, grid.rows})) {}

  // Takes the square with the largest mean value, if that is at least `least`.
  void Pick(const char* name, double least, const std::function<double(std::size_t)>& value) {
    const Sums sums(grid_, value);
    const std::uint32_t step = std::max(side_ / 4, 1u);
    double best = least * side_ * side_;
    const Square* found = nullptr;
    Square at, place;
    for (at.row = 0; at.row + side_ <= grid_.rows; at.row += step) {
      for (at.column = 0; at.column + side_ <= grid_.columns; at.column += step) {
        const double sum = sums.Square(at.column, at.row, side_);
        if (sum < best || (found != nullptr && sum == best)) continue;
        if (std::ranges::any_of(taken_,
                                [&](const Square& other) { return Overlap(at, other, side_); })) {
          continue;
        }
        best = sum;
        place = at;
        found = &place;
      }
    }
    if (found == nullptr) return;
    taken_.push_back(place);
    const double size = side_ / grid_.perInch;
    const double left = place.column / grid_.perInch, top = place.row / grid_.perInch;
    areas_.push_back({name,
                      {left, top, std::min(size, grid_.pageWidth - left),
                       std::min(size, grid_.pageHeight - top)}});
  }

  // How much darker ink stands beside paper: the edges of letters.
  double Edge(std::size_t cell) const {
    const Triple& lab = facts_.lab[cell];
    if (lab[0] > 60 || ChromaOf(lab) > 25) return 0;
    const std::size_t right = cell + 1, below = cell + grid_.columns;
    double edge = cell > 0 ? facts_.lab[cell - 1][0] - lab[0] : 0;
    if (right < facts_.lab.size()) edge = std::max(edge, facts_.lab[right][0] - lab[0]);
    if (below < facts_.lab.size()) edge = std::max(edge, facts_.lab[below][0] - lab[0]);
    return edge > 35 ? 1 : 0;
  }

  std::vector<PickedArea> Areas() { return std::move(areas_); }

 private:
  const CellFacts& facts_;
  const CellGrid& grid_;
  std::uint32_t side_;
  std::vector<Square> taken_;
  std::vector<PickedArea> areas_;
};

}  // namespace

std::vector<PickedArea> PickAreas(const CellFacts& facts, const CellGrid& grid, std::uint32_t side,
                                  const WantedCheck* wanted) {
  Picker picker(facts, grid, side);
  const auto& lab = facts.lab;
  if (wanted != nullptr) {
    picker.Pick("worst difference", 1.0, [&](std::size_t cell) {
      const bool edge = wanted->verdicts[cell] == static_cast<std::uint8_t>(Verdict::Edge);
      return edge ? 0.0 : wanted->difference[cell] / 100.0;
    });
  }
  picker.Pick("text", 0.04, [&](std::size_t cell) { return picker.Edge(cell); });
  picker.Pick("skin", 0.3, [&](std::size_t cell) { return IsSkin(lab[cell]) ? 1.0 : 0.0; });
  picker.Pick("hand-over", 0.05, [&](std::size_t cell) { return HandOver(facts.amounts[cell]); });
  picker.Pick("highlights", 0.2, [&](std::size_t cell) {
    return Within(lab[cell][0], 86, 97.5) && facts.totalInk[cell] > 0.01f ? 1.0 : 0.0;
  });
  picker.Pick("shadows", 0.2,
              [&](std::size_t cell) { return std::max(0.0, 40 - lab[cell][0]) / 40; });
  picker.Pick("most ink", 0.2, [&](std::size_t cell) { return double{facts.totalInk[cell]}; });
  picker.Pick("strongest colour", 15, [&](std::size_t cell) { return ChromaOf(lab[cell]); });
  if (wanted == nullptr) {
    picker.Pick("grey", 0.3, [&](std::size_t cell) {
      return Within(lab[cell][0], 40, 75) && ChromaOf(lab[cell]) < 8 ? 1.0 : 0.0;
    });
  }
  return picker.Areas();
}

}  // namespace corvane
