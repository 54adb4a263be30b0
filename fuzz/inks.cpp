// SPDX-License-Identifier: MIT
//
// Ink data, linearisation curves and prices: the JSON files about inks.
#include "app/inks/ink_model.h"
#include "fuzz/fuzz.h"

FUZZ_TARGET(inks, input) {
  using namespace corvane;
  const std::string path = fuzz::FileOf(input);
  fuzz::Succeeds([&] { ReadInkCurves(path); });
  fuzz::Succeeds([&] {
    const InkData inks = ReadInkData(path);
    for (int media = 0; media < kMediaCount; ++media) {
      const PrintModel model(inks, media);
      for (const double amount : {0.0, 0.5, 1.0}) {
        InkAmounts amounts;
        amounts.fill(amount);
        for (const double band : model.Bands(amounts)) FUZZ_EXPECT(band == band);
      }
    }
  });
}
