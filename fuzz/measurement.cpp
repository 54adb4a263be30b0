// SPDX-License-Identifier: MIT
//
// Tables of patches in the form of CGATS.17, and the measurement of a chart that one holds.
#include "app/calibration/cgats.h"
#include "app/calibration/reference.h"
#include "fuzz/fuzz.h"

FUZZ_TARGET(measurement, input) {
  using namespace corvane;
  fuzz::Succeeds([&] {
    const Cgats cgats = ParseCgats(fuzz::TextOf(input), "table");
    FUZZ_EXPECT(!cgats.tables.empty());
    FUZZ_EXPECT(!CgatsText(cgats).empty());
    FUZZ_EXPECT(!MeasurementOf(cgats, "measurement", {}).patches.empty());
  });
}
