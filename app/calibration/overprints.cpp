// SPDX-License-Identifier: MIT
#include "app/calibration/overprints.h"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace corvane {
namespace {

using Powers = std::array<int, kDyeCount>;

constexpr std::array<Powers, 4> kStacks = {
    {{1, 1, 0, 0}, {1, 0, 1, 0}, {0, 1, 1, 0}, {1, 1, 1, 0}}};

bool IsStack(const OverprintTerm& term, const Powers& stack) {
  return term.dyes == stack && term.inks == std::array<int, kInkCount>{};
}

// Adds `sign` times what the named solids add to the terms of the four stacks.
void MoveSolids(const InkData& inks, int media, double sign, std::vector<OverprintTerm>& terms) {
  InkData plain = inks;
  plain.overprints.clear();
  const PrintModel solids(plain, media);
  const double density = inks.media[media].density;
  for (std::size_t stack = 0; stack < kStacks.size(); ++stack) {
    auto term = std::find_if(terms.begin(), terms.end(), [&](const OverprintTerm& other) {
      return IsStack(other, kStacks[stack]);
    });
    if (term == terms.end()) term = terms.insert(term, OverprintTerm{kStacks[stack], {}, {}});
    for (int band = 0; band < 3; ++band) {
      term->density[band] += sign * solids.Overprints()[stack][band] / density;
    }
  }
}

}  // namespace

void NameOverprintedSolids(InkData& inks, int media) {
  const PrintModel model(inks, media);
  std::optional<Triple>* const named[4] = {&inks.cyanMagenta, &inks.cyanYellow, &inks.magentaYellow,
                                           &inks.cyanMagentaYellow};
  for (std::size_t stack = 0; stack < kStacks.size(); ++stack) {
    constexpr Ink kDark[3] = {Ink::C, Ink::M, Ink::Y};
    InkAmounts amounts{};
    for (int dye = 0; dye < 3; ++dye) amounts[static_cast<int>(kDark[dye])] = kStacks[stack][dye];
    *named[stack] = LabFromBands(model.Bands(amounts));
  }
  MoveSolids(inks, media, -1.0, inks.overprints);
}

void DissolveOverprintedSolids(InkData& inks, int media) {
  MoveSolids(inks, media, 1.0, inks.overprints);
  inks.cyanMagenta = inks.cyanYellow = inks.magentaYellow = inks.cyanMagentaYellow = std::nullopt;
}

}  // namespace corvane
