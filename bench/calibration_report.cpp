// SPDX-License-Identifier: MIT
//
// Calibrates simulated printers and says how true they print then (docs/calibration.md).
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "app/calibration/agreement.h"
#include "app/tables/best_inks.h"
#include "app/tables/builder.h"
#include "app/tables/lookup.h"
#include "tests/app/calibration/simulated_printer.h"
#include "tests/app/calibration/wrong_measurements.h"

namespace corvane {
namespace {

constexpr int kMedia = 2, kColours = 1500, kGreys = 64;

Triple LabOfSrgb(const Triple& srgb) {
  return LabFromBands(BandsFromLinearSrgb(LinearFromSrgb(srgb)));
}

struct Printed {
  DifferenceSummary colours, greys;
};

// Colours through the table that is built for the fitted inks, on the true printer.
Printed PrintColours(const test::SimulatedPrinter& printer, const InkData& fitted, bool nine) {
  const TableKey key{nine ? 3 : 2, kMedia, 0, 1, 1};
  const TableBuilder builder(fitted);
  const std::vector<std::uint8_t> table = builder.Build(key);
  const PrintModel model(fitted, kMedia);
  const BestInks best(model, {nine, true, builder.InkLimit(key)});
  const auto difference = [&](const Triple& srgb) {
    Rgb8 rgb;
    for (int i = 0; i < 3; ++i) rgb[i] = static_cast<std::uint8_t>(std::lround(srgb[i] * 255));
    const Triple sent = {rgb[0] / 255.0, rgb[1] / 255.0, rgb[2] / 255.0};
    return DeltaE2000(printer.Relative(AmountsOf(LookUp(table, rgb))), LabOfSrgb(sent));
  };
  std::mt19937 random(11);
  const auto part = [&] { return static_cast<double>(random()) / 4294967296.0; };
  std::vector<double> colours, greys;
  while (colours.size() < kColours) {
    const Triple srgb = {part(), part(), part()};
    if (best.CanPrint(LabOfSrgb(srgb))) colours.push_back(difference(srgb));
  }
  for (int i = 0; i < kGreys; ++i) {
    const double value = i / (kGreys - 1.0);
    if (LabOfSrgb({value, value, value})[0] < best.Black() + 2) continue;
    greys.push_back(difference({value, value, value}));
  }
  return {SummaryOf(std::move(colours)), SummaryOf(std::move(greys))};
}

double WorstToneError(const test::SimulatedPrinter& printer, const PrintModel& model,
                      const std::vector<Ink>& inks) {
  constexpr int kSteps = 50;
  double worst = 0;
  for (const Ink ink : inks) worst = std::max(worst, test::ToneError(printer, model, ink, kSteps));
  return worst;
}

double UpdateError(const test::SimulatedPrinter& printer, const InkData& known,
                   const ChartChoice& choice, double noise) {
  test::SimulatedPrinter aged = printer;
  for (int ink = 0; ink < kInkCount; ++ink) aged.gain[ink] = ink % 2 == 0 ? 1.15 : 0.85;
  const auto few = test::Measure(aged, UpdatePatches(choice.inks, choice.inkLimit), noise, 23);
  const PrintModel model(UpdateInks(few, {choice.inks, kMedia, choice.inkLimit}, known), kMedia);
  std::vector<double> differences;
  for (const ChartPatch& patch : PatchesOf(choice)) {
    if (patch.group != PatchGroup::HeldBack) continue;
    const InkAmounts amounts = AmountsOf(patch.levels);
    differences.push_back(DeltaE2000(LabFromBands(model.Bands(amounts)), aged.Relative(amounts)));
  }
  return SummaryOf(std::move(differences)).mean;
}

void Report(int number, bool nine, double noise) {
  std::vector<Ink> inks = {Ink::C, Ink::c, Ink::M, Ink::m, Ink::Y, Ink::y, Ink::K};
  if (nine) inks.insert(inks.end(), {Ink::cd, Ink::md});
  const ChartChoice choice{ChartKind::Whole, inks, 3.0};
  const test::SimulatedPrinter printer = test::MakeSimulatedPrinter(number);
  const Measurement measurement = test::MeasureChart(choice, number, noise, 17);
  std::vector<MeasuredPatch> measured;
  for (const ReadPatch& patch : measurement.patches) measured.push_back(patch.measured);
  const InkData fitted = FitInks(measured, {inks, kMedia, choice.inkLimit}, DefaultInkData());
  const Agreement agreement = CompareWith(measurement, fitted, kMedia);
  const Printed printed = PrintColours(printer, fitted, nine);
  fmt::print(
      "| {} | {} | {:.1f} | {:.2f} | {:.2f} | {:.2f} | {:.2f} | {:.2f} | {:.2f} | {:.2f} % | "
      "{:.2f} |\n",
      number, inks.size(), noise, agreement.heldBack.mean, agreement.heldBack.most95,
      agreement.heldBack.most, printed.colours.mean, printed.colours.most95, printed.greys.mean,
      100 * WorstToneError(printer, PrintModel(fitted, kMedia), inks),
      UpdateError(printer, fitted, choice, noise));
  std::fflush(stdout);
}

}  // namespace
}  // namespace corvane

int main() {
  fmt::print(
      "| Printer | Inks | Noise | Held back, mean | 95 % | worst | Colours through the table, "
      "mean | 95 % | Greys, mean | Tone curve | Updated, mean |\n"
      "|---|---|---|---|---|---|---|---|---|---|---|\n");
  for (int number = 0; number < corvane::test::kSimulatedPrinters; ++number) {
    for (const double noise : {0.3, 1.0}) {
      for (const bool nine : {false, true}) corvane::Report(number, nine, noise);
    }
  }
}
