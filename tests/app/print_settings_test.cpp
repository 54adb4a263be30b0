// SPDX-License-Identifier: MIT
#include "app/print_settings.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "app/print_planes.h"
#include "app/table_builder.h"

namespace corvane {
namespace {

// A mode that prints no black ink gets no table that counts on it; no other loses its black.
TEST(PrintSettings, DefaultsGiveTablesWithBlackToTheModesThatPrintIt) {
  const TableBuilder builder(DefaultInkData());
  for (const PrintMode& mode : kPrintModes) {
    if (mode.inkSet == InkSet::Black) continue;
    TableKey key;
    key.inkClass = mode.inkSet == InkSet::Nine ? 3 : DefaultPaperCharacteristics(mode) == 3 ? 1 : 2;
    for (int alternate = 0; alternate < kAlternateModes; ++alternate) {
      key.quality = DefaultPrintQuality(mode, alternate) - 1;
      const std::vector<PlaneInk> planes = PrintheadPlanes(mode, alternate);
      const bool printsBlack = std::any_of(
          planes.begin(), planes.end(), [](const PlaneInk& plane) { return plane.ink == Ink::K; });
      EXPECT_EQ(builder.RulesOf(key).blackInk, printsBlack) << mode.descriptor;
    }
  }
}

}  // namespace
}  // namespace corvane
