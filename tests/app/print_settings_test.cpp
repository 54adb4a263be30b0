// SPDX-License-Identifier: MIT
#include "app/print_settings.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "app/print_planes.h"
#include "app/table_builder.h"

namespace corvane {
namespace {

// A mode that prints no black ink never gets a table that counts on it.
TEST(PrintSettings, DefaultsGiveModesWithoutBlackTablesWithoutIt) {
  const TableBuilder builder(DefaultInkData());
  for (const PrintMode& mode : kPrintModes) {
    if (mode.inkSet == InkSet::Black) continue;
    TableKey key;
    key.quality = DefaultPrintQuality(mode) - 1;
    key.inkClass = mode.inkSet == InkSet::Nine ? 3 : DefaultPaperCharacteristics(mode) == 3 ? 1 : 2;
    for (int alternate = 0; alternate < kAlternateModes; ++alternate) {
      const std::vector<PlaneInk> planes = PrintheadPlanes(mode, alternate);
      const bool printsBlack = std::any_of(
          planes.begin(), planes.end(), [](const PlaneInk& plane) { return plane.ink == Ink::K; });
      if (printsBlack) continue;
      EXPECT_FALSE(builder.RulesOf(key).blackInk) << mode.descriptor;
    }
  }
}

}  // namespace
}  // namespace corvane
