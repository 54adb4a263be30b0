// SPDX-License-Identifier: MIT
//
// The print modes against the tables of the elements, and the rows that follow from them.
#include "printmode/page_shape.h"

#include <gtest/gtest.h>

#include <string>

#include "dotmanagement/filter_table.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

std::string Text(const RowPlanes& row) {
  std::string text;
  for (const RowPlane& plane : row.Sent()) {
    text += kInkNames[static_cast<int>(plane.ink)];
    text += plane.bit == 1 ? "' " : " ";
  }
  return text;
}

// The printhead gets what the mode says, whatever the alternate mode makes of the page on its way.
TEST(PrintModes, EndAtTheResolutionOfThePrinthead) {
  constexpr int kSlotLimit = 2400;  // what a plane of a 4800 dpi mode has before its last expansion
  for (const PrintMode& mode : kPrintModes) {
    EXPECT_EQ(FindPrintMode(mode.descriptor), &mode);
    for (int alternate = 0; alternate < kAlternateModes; ++alternate) {
      SCOPED_TRACE(testing::Message() << mode.descriptor << ", alternate mode " << alternate);
      const AlternateMode& page = mode.Alternate(static_cast<std::uint32_t>(alternate));
      const auto rows = RowsPerRow(Stage::Placed, mode, alternate, mode.verticalDpi);
      const auto halved = RowsPerRow(Stage::Placed, mode, alternate, mode.verticalDpi / 2);
      EXPECT_EQ(rows, page.placing.rows);
      EXPECT_EQ(halved, page.contoneRows == 0 ? 1u : 2u);
      const auto pixels = PixelsPerPixel(Stage::Placed, mode, alternate, 300);
      EXPECT_LE(300 * pixels, std::min<unsigned>(mode.horizontalDpi, kSlotLimit));

      // Dot management has a filter where rows change, one of cells where they become two.
      const FilterRow* const filter =
          FindFilter(mode.descriptor, static_cast<std::uint16_t>(alternate));
      EXPECT_EQ(filter != nullptr, page.placing.PlacesDots());
      if (filter == nullptr) continue;
      EXPECT_EQ(filter->filter == FilterKind::BetterGlossyCells, page.placing.rows == 2);
      EXPECT_LE(page.placing.secondExpansion, filter->filter == FilterKind::BestGlossy);
      const RowPlanes row = PlanesAfter(Stage::Placed, mode, alternate);
      const FurtherPlanes further = FurtherPlanesOf(filter->filter, mode.descriptor);
      EXPECT_EQ(row.Announced(), further == FurtherPlanes::None    ? 6
                                 : further == FurtherPlanes::Black ? 7
                                                                   : 9);
    }
  }
  for (const int descriptor : {-1, 0, 9, 55, 112}) {
    EXPECT_EQ(FindPrintMode(descriptor), nullptr);
    EXPECT_EQ(FindFilter(descriptor, 0), nullptr);
  }
  EXPECT_EQ(FindFilter(CcMmYyK_4800x1200_16Pass, 3), nullptr);
  // A filter that is not the mode's places colours alone.
  EXPECT_EQ(FurtherPlanesOf(FilterKind::BestGlossy, CcMmYyK_1200x1200_8Pass), FurtherPlanes::None);
}

TEST(PageShape, SaysThePlanesAndBytesAfterEachStage) {
  const std::string six = "C c M m Y y ";
  const struct {
    int mode, alternate;
    Stage stage;
    std::string planes;
    int spanned, announced;
    std::uint64_t planeBytes;  // of 83 pixels at 600 dpi
  } cases[] = {
      {8, 0, Stage::Contone, "K ", 1, 1, 83},
      {6, 0, Stage::Contone, "C c M m Y y K ", 7, 7, 83},
      {109, 0, Stage::Contone, "C c M m Y y K cd md ", 9, 9, 83},
      {52, 2, Stage::Halftoned, "C C' c c' M M' m m' Y Y' y y' ", 12, 12, 11},
      {52, 2, Stage::Placed, six, 6, 6, 22},
      {54, 1, Stage::Placed, six + "K ", 7, 7, 22},
      {108, 2, Stage::Placed, six + "cd md K ", 9, 9, 22},
      {83, 1, Stage::Placed, six + "K ", 7, 7, 42},
      {109, 1, Stage::Halftoned, six + "cd md K ", 9, 9, 21},
      {109, 0, Stage::Placed, six + "cd md ", 12, 9, 42},
      {109, 1, Stage::Placed, six + "cd md ", 12, 9, 42},
      {109, 2, Stage::Placed, six + "cd md K ", 9, 9, 42},
      {111, 0, Stage::Placed, six + "cd cd' md md' K K' ", 12, 12, 11},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.mode << ", alternate mode " << c.alternate);
    const PrintMode& mode = *FindPrintMode(c.mode);
    const RowPlanes row = PlanesAfter(c.stage, mode, c.alternate);
    EXPECT_EQ(Text(row), c.planes);
    EXPECT_EQ(row.Spanned(), c.spanned);
    EXPECT_EQ(row.Announced(), c.announced);
    EXPECT_EQ(PlaneBytes(c.stage, mode, c.alternate, 600, 83), c.planeBytes);
  }
  const RowPlanes doubled = PlanesAfter(Stage::Placed, *FindPrintMode(109), 0);
  EXPECT_EQ(doubled.Sent()[7].place, 8);
  EXPECT_EQ(doubled.Sent()[7].width, 2);
}

}  // namespace
}  // namespace corvane
