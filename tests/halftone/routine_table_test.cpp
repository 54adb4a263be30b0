// SPDX-License-Identifier: MIT
#include "halftone/routine_table.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "printmode/page_shape.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

// A kernel's name says the coverage of its ink groups, and so does the shift: 4 is 100 per cent.
int ShiftOf(const HalftoneRoutine& routine, InkGroup group) {
  return group == InkGroup::CMY   ? routine.ShiftCMY
         : group == InkGroup::cmy ? routine.Shiftcmy
                                  : routine.ShiftK;
}

// Every print mode with the values of "UseAlternateModes" that matter, and one that does not.
TEST(RoutineTable, FitsLayoutCoverageAndBuffersOfEveryKernel) {
  for (const PrintMode& mode : kPrintModes) {
    for (const int alternate : {0, 1, 2, 7}) {
      SCOPED_TRACE(testing::Message() << mode.descriptor << " alternate " << alternate);
      const HalftoneRoutine* routine = FindHalftoneRoutine(mode.descriptor, alternate);
      ASSERT_NE(routine, nullptr);
      EXPECT_STREQ(routine->loggedModes[0],
                   routine->descriptor == K_600x600_2Pass ? "K_600x600_1Pass" : mode.name);

      const PlaneLayout* layout = FindPlaneLayout(mode.Alternate(alternate).layout);
      const Kernel& kernel = KernelOf(routine->kernel);
      ASSERT_NE(layout, nullptr);
      EXPECT_EQ(kernel.planeCount, layout->planeCount);
      EXPECT_GE(routine->rowPlanes, kernel.planeCount);
      for (int i = 0; i < kernel.inkCount; ++i) {
        const KernelInk& ink = kernel.inks[i];
        SCOPED_TRACE(kInkNames[static_cast<int>(ink.ink)]);
        EXPECT_LT(ink.outputPlane + (ink.twoDrop ? 1 : 0), routine->rowPlanes);
        EXPECT_EQ(std::ranges::count(routine->errorLines, ink.state), 1);
        if (ink.outputPlane >= layout->planeCount) continue;  // not sent
        EXPECT_EQ(layout->planes[ink.outputPlane].ink, ink.ink);
        EXPECT_EQ(layout->planes[ink.outputPlane].bit, 0);
        if (ink.set >= CoverageSet::Set1x2) continue;
        EXPECT_EQ(ShiftOf(*routine, ink.group), static_cast<int>(ink.set));
      }
    }
  }
}

TEST(RoutineTable, HasNoRowForOtherDescriptors) {
  for (const int descriptor : {-1, 0, 9, 13, 21, 55, 105, 110, 112}) {
    EXPECT_EQ(FindHalftoneRoutine(descriptor, 0), nullptr) << descriptor;
  }
}

// A page takes the same ink whatever its alternate mode: what is halftoned on a coarser grid is
// laid down with more drops.
TEST(RoutineTable, LaysTheSameDropsPerAreaInEveryAlternateMode) {
  const auto dropsPerInch = [](const PrintMode& mode, int alternate, Ink ink) {
    const AlternateMode& page = mode.Alternate(alternate);
    const int rows = page.contoneRows != 0 ? page.contoneRows : mode.verticalDpi;
    return page.halftoneDpi * rows *
           CoverageOf(*FindHalftoneRoutine(mode.descriptor, alternate), ink);
  };
  for (const PrintMode& mode : kPrintModes) {
    const RowPlanes printed = PlanesAfter(Stage::Halftoned, mode, 0);
    for (int i = 0; i < kInkCount; ++i) {
      const Ink ink = static_cast<Ink>(i);
      const double drops = dropsPerInch(mode, 0, ink);
      EXPECT_EQ(drops > 0, printed.Holds(ink)) << mode.descriptor << kInkNames[i];
      EXPECT_EQ(dropsPerInch(mode, 1, ink), drops) << mode.descriptor << kInkNames[i];
      EXPECT_EQ(dropsPerInch(mode, 2, ink), drops) << mode.descriptor << kInkNames[i];
    }
  }
  EXPECT_EQ(dropsPerInch(*FindPrintMode(7), 0, Ink::C), 300 * 600 * 0.75);   // with its light ink
  EXPECT_EQ(dropsPerInch(*FindPrintMode(41), 0, Ink::K), 1200 * 600 * 0.5);  // in two passes
  EXPECT_EQ(dropsPerInch(*FindPrintMode(111), 0, Ink::md), 600 * 600 * 2.0);
}

}  // namespace
}  // namespace corvane
