// SPDX-License-Identifier: MIT
#include "tests/app/calibration/simulated_printer.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

#include "app/calibration/spectrum.h"

namespace corvane::test {
namespace {

// An ink as the parts of light that a full layer takes away, by wavelength.
struct SpectralInk {
  double centre, width, density;  // nm; of a band with soft edges
  double side;                    // density of an even grey on top
  double gain;                    // dot gain at half coverage
};

struct SpectralPrinter {
  std::array<SpectralInk, kInkCount> inks;
  double yuleNielsen;
  double saturation;  // how layers of ink hide one another
  double surface;     // light that never enters the ink
};

double LayerDensity(const SpectralInk& ink, double wavelength) {
  const double distance = (wavelength - ink.centre) / ink.width;
  return ink.side + ink.density * std::exp(-distance * distance * (1.0 + 0.2 * distance));
}

// A parabola's gain, largest at half coverage.
double Coverage(const SpectralInk& ink, double amount) {
  return std::clamp(amount + 4.0 * ink.gain * amount * (1.0 - amount), 0.0, 1.0);
}

Triple XyzOf(const SpectralPrinter& printer, const InkAmounts& amounts) {
  std::vector<double> reflectance;
  for (int wavelength = 380; wavelength <= 730; wavelength += 10) {
    double layers = 0;
    for (int i = 0; i < kInkCount; ++i) {
      const SpectralInk& ink = printer.inks[i];
      const double root = std::pow(10.0, -LayerDensity(ink, wavelength) / printer.yuleNielsen);
      const double covered = Coverage(ink, amounts[i]);
      layers -= printer.yuleNielsen * std::log10(1.0 - covered + covered * root);
    }
    const double density = layers / (1.0 + printer.saturation * layers);
    reflectance.push_back(printer.surface + (1.0 - printer.surface) * std::pow(10.0, -density));
  }
  return XyzOfSpectrum({380, 10, reflectance});
}

SimulatedPrinter Spectral(std::string name, const Triple& paper, const SpectralPrinter& printer) {
  const Triple white = XyzOf(printer, {});
  const auto lab = [printer, white](const InkAmounts& amounts) {
    Triple xyz = XyzOf(printer, amounts);
    const Triple d50 = XyzFromLab({100, 0, 0});
    for (int i = 0; i < 3; ++i) xyz[i] *= d50[i] / white[i];
    return LabFromXyz(xyz);
  };
  return {std::move(name), paper, lab, {1, 1, 1, 1, 1, 1, 1, 1, 1}};
}

SpectralPrinter FirstSpectral() {
  const SpectralInk c{640, 95, 1.5, 0.06, 0.12}, m{545, 48, 1.55, 0.05, 0.16},
      y{430, 52, 1.4, 0.01, 0.10}, k{560, 400, 1.7, 0.1, 0.18};
  const auto thin = [](SpectralInk ink, double part, double gain) {
    ink.density *= part;
    ink.side *= part;
    ink.gain = gain;
    return ink;
  };
  return {{c, thin(c, 0.35, 0.08), m, thin(m, 0.3, 0.12), y, thin(y, 0.4, 0.05), k,
           thin(c, 0.65, 0.1), thin(m, 0.6, 0.1)},
          2.0,
          0.06,
          0.004};
}

SpectralPrinter SecondSpectral() {
  SpectralPrinter printer = FirstSpectral();
  printer.yuleNielsen = 4.0;
  printer.saturation = 0.02;
  printer.surface = 0.008;
  for (SpectralInk& ink : printer.inks) {
    ink.gain = 0.9 * ink.gain + 0.05;
    ink.width *= 0.93;
  }
  printer.inks[0].centre = 655;
  printer.inks[2].centre = 535;
  return printer;
}

InkData OtherInks(int number) {
  InkData inks = DefaultInkData();
  switch (number) {
    case 0:
      inks.yuleNielsen = 2.5;
      inks.clustering = 2.0;
      inks.solids = {{{56, -34, -47}, {46, 70, 2}, {87, -4, 90}, {12, 1, 1}}};
      inks.cyanMagenta = Triple{27, 18, -44};
      inks.cyanYellow = Triple{49, -60, 26};
      inks.magentaYellow = Triple{46, 63, 45};
      inks.cyanMagentaYellow = Triple{19, -1, 2};
      inks.strength = {1, 0.4, 1, 0.28, 1, 0.5, 1, 0.7, 0.6};
      inks.media[2].dotGain = 0.2;
      inks.media[2].white = {94, 0.6, -5};
      break;
    case 1:
      inks.yuleNielsen = 1.4;
      inks.clustering = 0.1;
      inks.solids = {{{58, -40, -40}, {50, 72, -12}, {91, -10, 88}, {16, 0, -1}}};
      inks.cyanMagenta = Triple{30, 25, -45};
      inks.cyanMagentaYellow = Triple{20, 3, -2};
      inks.cyanYellow = inks.magentaYellow = std::nullopt;
      inks.cyanMagentaYellow = std::nullopt;
      inks.strength = {1, 0.25, 1, 0.4, 1, 0.3, 1, 0.55, 0.5};
      inks.media[2].dotGain = -0.15;
      inks.media[2].white = {96, 0, 1};
      break;
    default:
      inks.yuleNielsen = 25;
      inks.clustering = 10;
      inks.solids = {{{50, -32, -52}, {45, 76, -2}, {88, -5, 99}, {9, 1, -2}}};
      inks.strength = {1, 0.3, 1, 0.35, 1, 0.33, 1, 0.6, 0.7};
      inks.media[2].dotGain = 0.45;
      inks.media[2].white = {92, 1, 3};
      break;
  }
  return inks;
}

}  // namespace

Triple SimulatedPrinter::Relative(const InkAmounts& amounts) const {
  InkAmounts laid;
  for (int i = 0; i < kInkCount; ++i) laid[i] = amounts[i] * gain[i];
  return lab(laid);
}

Triple SimulatedPrinter::Absolute(const InkAmounts& amounts) const {
  Triple bands = BandsFromLab(Relative(amounts));
  const Triple white = BandsFromLab(paper);
  for (int i = 0; i < 3; ++i) bands[i] *= white[i];
  return LabFromBands(bands);
}

SimulatedPrinter PrinterOf(const InkData& inks, int media) {
  const auto model = std::make_shared<PrintModel>(inks, media);
  return {inks.name,
          inks.media[media].white,
          [model](const InkAmounts& amounts) { return LabFromBands(model->Bands(amounts)); },
          {1, 1, 1, 1, 1, 1, 1, 1, 1}};
}

SimulatedPrinter MakeSimulatedPrinter(int number) {
  if (number == 3) return Spectral("spectra, n 2", {95, 0, -4}, FirstSpectral());
  if (number == 4) return Spectral("spectra, n 4", {93.5, 0.5, 1}, SecondSpectral());
  return PrinterOf(OtherInks(number), 2);
}

std::vector<MeasuredPatch> Measure(const SimulatedPrinter& printer,
                                   const std::vector<ChartPatch>& patches, double noise,
                                   std::uint32_t seed) {
  // Sums of uniform deviates, for the standard's normal distribution differs between libraries.
  std::mt19937 random(seed);
  const auto deviate = [&] {
    double sum = -6.0;
    for (int i = 0; i < 12; ++i) sum += static_cast<double>(random()) / 4294967296.0;
    return sum;
  };
  const double deviation = noise / std::sqrt(8.0 / std::numbers::pi);  // of one coordinate
  std::vector<MeasuredPatch> measured;
  for (const ChartPatch& patch : patches) {
    Triple lab = printer.Absolute(AmountsOf(patch.levels));
    for (double& value : lab) value += deviation * deviate();
    measured.push_back({patch.levels, patch.group, lab});
  }
  return measured;
}

double ToneError(const SimulatedPrinter& printer, const PrintModel& model, Ink ink, int steps) {
  const Dye dye = DyeOf(ink);
  const std::size_t band = dye == Dye::Black ? 1 : static_cast<std::size_t>(dye);
  const auto density = [&](const Triple& lab) {
    return -std::log10(std::max(BandsFromLab(lab)[band], 1e-5));
  };
  InkAmounts amounts{};
  double& amount = amounts[static_cast<int>(ink)];
  double sum = 0;
  for (int step = 1; step <= steps; ++step) {
    amount = static_cast<double>(step) / steps;
    sum +=
        std::abs(density(LabFromBands(model.Bands(amounts))) - density(printer.Relative(amounts)));
  }
  amount = 1;
  return sum / steps / density(printer.Relative(amounts));
}

}  // namespace corvane::test
