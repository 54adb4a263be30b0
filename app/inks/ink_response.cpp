// SPDX-License-Identifier: MIT
#include "app/inks/ink_response.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace corvane {
InkResponseTable::InkResponseTable(const PrintModel& model) : model_(model) {
  for (int ink = 0; ink < kInkCount; ++ink) {
    for (int step = 0; step <= kSteps + 1; ++step) {
      density_[ink][step] =
          model.InkDensity(static_cast<Ink>(ink), static_cast<double>(step) / kSteps);
    }
  }
}

Triple InkResponseTable::Bands(const InkAmounts& amounts,
                               std::array<Triple, kInkCount>* densitySlopes) const {
  Triple density{};
  InkAmounts printed;
  for (int ink = 0; ink < kInkCount; ++ink) {
    printed[ink] = std::clamp(amounts[ink], 0.0, 1.0);
    const double position = printed[ink] * kSteps;
    if (position == 0.0 && densitySlopes == nullptr) continue;
    const int step = static_cast<int>(position);
    for (int band = 0; band < 3; ++band) {
      const double rise = density_[ink][step + 1][band] - density_[ink][step][band];
      density[band] += density_[ink][step][band] + rise * (position - step);
      if (densitySlopes != nullptr) (*densitySlopes)[ink][band] = rise * kSteps;
    }
  }
  if (model_.HasOverprints()) {
    const Triple overprint = model_.OverprintDensity(printed, densitySlopes);
    for (int band = 0; band < 3; ++band) density[band] += overprint[band];
  }
  Triple bands;
  for (int band = 0; band < 3; ++band) bands[band] = std::exp(-std::numbers::ln10 * density[band]);
  return bands;
}

Triple InkResponseTable::Lab(const InkAmounts& amounts) const {
  return LabFromBands(Bands(amounts, nullptr));
}

InkResponse InkResponseTable::Respond(const InkAmounts& amounts) const {
  std::array<Triple, kInkCount> densitySlopes;
  const Triple bands = Bands(amounts, &densitySlopes);
  const Triple xyz = XyzFromBands(bands);
  InkResponse response;
  response.lab = LabFromXyz(xyz);
  std::array<Triple, 3> labOfBand;
  for (int band = 0; band < 3; ++band) {
    Triple slope{};
    slope[band] = -std::numbers::ln10 * bands[band];
    labOfBand[band] = LabSlope(slope, xyz);
  }
  for (int ink = 0; ink < kInkCount; ++ink) {
    for (int i = 0; i < 3; ++i) {
      response.slopes[ink][i] = densitySlopes[ink][0] * labOfBand[0][i] +
                                densitySlopes[ink][1] * labOfBand[1][i] +
                                densitySlopes[ink][2] * labOfBand[2][i];
    }
  }
  return response;
}

}  // namespace corvane
