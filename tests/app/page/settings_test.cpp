// SPDX-License-Identifier: MIT
#include "app/page/settings.h"

#include <gtest/gtest.h>

#include "app/tables/builder.h"
#include "printmode/page_shape.h"
#include "printmode/print_modes.h"

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
      const bool printsBlack = PlanesAfter(Stage::Placed, mode, alternate).Holds(Ink::K);
      EXPECT_EQ(builder.RulesOf(key).blackInk, printsBlack) << mode.descriptor;
    }
  }
}

}  // namespace
}  // namespace corvane
