// SPDX-License-Identifier: MIT
//
// Stands in for a printer and an instrument: reads a chart's .ti2 and writes the .ti3 that
// measuring its print would give. docs/calibration.md shows it at work.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "app/calibration/reference.h"
#include "app/page/settings.h"
#include "app/support/failure.h"
#include "app/support/output_stage.h"
#include "tests/app/calibration/simulated_printer.h"

namespace corvane {
namespace {

struct Options {
  std::string chart, output, inks, media = "glossy";
  int printer = 0;
  double noise = 0.3, gain = 1;
  std::uint32_t seed = 1;
};

int Run(const Options& options) {
  std::ifstream stream(options.chart);
  std::stringstream text;
  text << stream.rdbuf();
  Measurement measurement =
      MeasurementOf(ParseCgats(text.str(), options.chart), options.chart, std::nullopt);
  test::SimulatedPrinter printer =
      options.inks.empty()
          ? test::MakeSimulatedPrinter(options.printer)
          : test::PrinterOf(ReadInkData(options.inks), SettingValue(kMediaType, options.media) - 1);
  printer.gain.fill(options.gain);
  const std::vector<MeasuredPatch> measured =
      test::Measure(printer, PatchesOf(measurement.choice), options.noise, options.seed);
  for (std::size_t i = 0; i < measured.size(); ++i) measurement.patches[i].measured = measured[i];
  WriteOutput(options.output, CgatsText(MeasurementFile(measurement)));
  fmt::print(stderr, "{}: {} patches of \"{}\"\n", options.output, measured.size(), printer.name);
  return 0;
}

}  // namespace
}  // namespace corvane

int main(int argc, char** argv) {
  corvane::Options options;
  CLI::App app("Measures a chart on a simulated printer", "corvane_simulated_printer");
  app.add_option("CHART", options.chart, "chart.ti2")->required()->check(CLI::ExistingFile);
  app.add_option("-o,--output", options.output, "Measurement (.ti3)")->required();
  app.add_option("--printer", options.printer, "One of its own, 0 to 4")->check(CLI::Range(0, 4));
  app.add_option("--inks", options.inks, "The printer that an ink file describes, instead");
  app.add_option("--media", options.media, "Of the ink file");
  app.add_option("--noise", options.noise, "Mean length of the errors in Lab");
  app.add_option("--gain", options.gain, "What inks lay, against a new printer");
  app.add_option("--seed", options.seed, "Of the errors");
  CLI11_PARSE(app, argc, argv);
  try {
    return corvane::Run(options);
  } catch (const corvane::Failure& failure) {
    fmt::print(stderr, "{}\n", failure.what());
    return 1;
  }
}
