// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "app/calibration/agreement.h"
#include "app/calibration/cgats.h"
#include "app/calibration/chart_page.h"
#include "app/calibration/fit.h"
#include "app/calibration/reference.h"
#include "app/calibration/spectrum.h"
#include "app/support/failure.h"
#include "tests/app/calibration/simulated_printer.h"
#include "tests/app/calibration/wrong_measurements.h"
#include "tests/app/support/failure_of.h"

namespace corvane {
namespace {

using test::MakeSimulatedPrinter;
using test::MeasureChart;
using test::SimulatedPrinter;
using testing::HasSubstr;

const std::vector<Ink> kFour = {Ink::C, Ink::M, Ink::Y, Ink::K};
const std::vector<Ink> kSeven = {Ink::C, Ink::c, Ink::M, Ink::m, Ink::Y, Ink::y, Ink::K};
const std::vector<Ink> kNine = {Ink::C, Ink::c, Ink::M,  Ink::m, Ink::Y,
                                Ink::y, Ink::K, Ink::cd, Ink::md};

std::vector<MeasuredPatch> MeasuredOf(const Measurement& measurement) {
  std::vector<MeasuredPatch> measured;
  for (const ReadPatch& patch : measurement.patches) measured.push_back(patch.measured);
  return measured;
}

InkData Calibrated(const Measurement& measurement, int media = 2) {
  return FitInks(MeasuredOf(measurement),
                 {measurement.choice.inks, media, measurement.choice.inkLimit}, DefaultInkData());
}

TEST(Cgats, ReadsWhatItWritesAndWhatOtherProgramsWrite) {
  Cgats written{"CTI3", {CgatsTable{{{"COLOR_REP", "CMYK_LAB"}}, {"SAMPLE_ID", "LAB_L"}, {}}}};
  written.tables[0].rows.push_back({{"1", "50.5"}, 0});
  written.tables.push_back(written.tables[0]);
  const Cgats read = ParseCgats(CgatsText(written), "x");
  ASSERT_EQ(read.tables.size(), 2u);
  EXPECT_EQ(read.tables[1].Keyword("COLOR_REP"), "CMYK_LAB");
  EXPECT_EQ(read.tables[1].rows[0].values, written.tables[0].rows[0].values);

  const Cgats other = ParseCgats(
      "CGATS.17\r\nORIGINATOR\t\"A program\"\r\n# a remark\r\nKEYWORD \"OWN\"\r\nNUMBER_OF_FIELDS "
      "2\r\n"
      "BEGIN_DATA_FORMAT\r\nSAMPLE_ID\tLAB_L\r\nEND_DATA_FORMAT\r\nNUMBER_OF_SETS "
      "1\r\nBEGIN_DATA\r\n"
      "1\t2.5\r\nEND_DATA\r\n",
      "x");
  EXPECT_EQ(other.tables[0].rows[0].values[1], "2.5");
  EXPECT_EQ(other.tables[0].rows[0].line, 11u);
}

TEST(ChartPatches, KeepToTheirInksAndLimitAndHoldPatchesBack) {
  for (const std::vector<Ink>& inks : {std::vector<Ink>{Ink::K}, kFour, kSeven, kNine}) {
    for (const double limit : {2.0, 3.0}) {
      std::map<Contone, int> seen;
      std::map<PatchGroup, int> groups;
      for (const ChartPatch& patch : ChartPatches(inks, limit)) {
        ++seen[patch.levels];
        ++groups[patch.group];
        EXPECT_LE(TotalInk(patch.levels), limit + 1e-9);
        for (int ink = 0; ink < kInkCount; ++ink) {
          const bool has = std::find(inks.begin(), inks.end(), static_cast<Ink>(ink)) != inks.end();
          EXPECT_TRUE(has || patch.levels[ink] == 0) << PatchText(patch.levels);
        }
      }
      for (const auto& [levels, count] : seen) {
        EXPECT_EQ(count, levels == Contone{} ? 8 : 1) << PatchText(levels);
      }
      // Colours that are printed without light inks, too; few happen to be there already.
      const bool isColour = inks.size() > 1;
      EXPECT_GE(groups[PatchGroup::HeldBack], isColour ? 110 : 8);
      EXPECT_GE(groups[PatchGroup::Neutral], isColour ? 20 : 0);
    }
    EXPECT_LE(UpdatePatches(inks, 3.0).size(), 40u);
  }
}

TEST(ChartLayout, PlacesEveryPatchOnceInsideTheSheet) {
  for (const char* paper : {"A4", "A3", "100x150mm"}) {
    for (const ChartReading reading : {ChartReading::Strip, ChartReading::HandHeld}) {
      const PaperSize size = ParsePaperSize(paper);
      const ChartLayout layout(size, reading, 561);
      std::set<std::string> names;
      for (std::size_t i = 0; i < layout.Filled(); ++i) {
        const PatchPlace place = layout.PlaceOf(i);
        EXPECT_LT(place.page, layout.Pages());
        EXPECT_LE(place.x + place.width, size.widthMm - 10);
        EXPECT_LE(place.y + place.height, size.heightMm - 10);
        names.insert(layout.LocationOf(i));
      }
      EXPECT_EQ(names.size(), layout.Filled());
    }
  }
  EXPECT_THROW(ChartLayout(ParsePaperSize("30x40mm"), ChartReading::Strip, 40), UsageFailure);
}

TEST(InkPage, PaintsPatchesWhereTheyLie) {
  const PaperSize paper = ParsePaperSize("A4");
  const std::vector<ChartPatch> patches = ChartPatches(kSeven, 3.0);
  const ChartLayout layout(paper, ChartReading::Strip, patches.size());
  const Sheet sheet = MakeSheet(paper, 150, 150);
  std::vector<InkPage> pages = ChartPages(patches, layout, sheet, kSeven, "A chart");
  ASSERT_EQ(static_cast<int>(pages.size()), layout.Pages());
  std::vector<std::uint8_t> planes(kSeven.size() * sheet.width);
  std::size_t painted = 0;
  for (int page = 0; page < layout.Pages(); ++page) {
    for (std::uint32_t row = 0; row < sheet.height; ++row) {
      pages[static_cast<std::size_t>(page)].Row(row, kSeven, planes);
      for (std::size_t i = 0; i < patches.size(); ++i) {
        const PatchPlace place = layout.PlaceOf(i);
        if (place.page != page) continue;
        const double middle = (place.y + place.height / 2) / 25.4 * 150;
        if (row != static_cast<std::uint32_t>(middle)) continue;
        const auto x = static_cast<std::size_t>((place.x + place.width / 2) / 25.4 * 150);
        for (std::size_t plane = 0; plane < kSeven.size(); ++plane) {
          EXPECT_EQ(planes[plane * sheet.width + x],
                    patches[i].levels[static_cast<int>(kSeven[plane])]);
        }
        ++painted;
      }
    }
  }
  EXPECT_EQ(painted, patches.size());
}

TEST(InkPage, TheAlignmentLinesOfEveryInkLieApartOnSmallSheets) {
  for (const char* paper : {"A6", "4x6in", "80x120mm"}) {
    const Sheet sheet = MakeSheet(ParsePaperSize(paper), 600, 600);
    InkPage page = AlignmentPage(sheet, kNine, "Mode: alignment");
    std::vector<std::uint8_t> planes(kNine.size() * sheet.width);
    const auto margin = static_cast<std::ptrdiff_t>(sheet.width / 100);
    std::vector<int> thickness(kNine.size());  // of the line along the sheet that a row is in
    for (std::uint32_t row = 0; row < sheet.height; ++row) {
      page.Row(row, kNine, planes);
      for (std::size_t plane = 0; plane < kNine.size(); ++plane) {
        const auto begin = planes.begin() + static_cast<std::ptrdiff_t>(plane * sheet.width);
        const auto end = begin + static_cast<std::ptrdiff_t>(sheet.width);
        EXPECT_TRUE(std::all_of(end - margin, end, [](int level) { return level == 0; }))
            << paper << ", row " << row;
        if (kNine[plane] == Ink::K) continue;  // has labels, too
        const bool inLine = std::count(begin, end, 255) > 150;
        thickness[plane] = inLine ? thickness[plane] + 1 : 0;
        EXPECT_LE(thickness[plane], 3) << paper << ", row " << row;
      }
    }
  }
}

TEST(Reference, ChartsAndTheirMeasurementsAreReadAgain) {
  const ChartChoice choice{ChartKind::Whole, kNine, 283.37 / 100, 5};
  const PrintModel model(DefaultInkData(), 2);
  const PaperSize paper = ParsePaperSize("A4");
  const ChartLayout layout(paper, ChartReading::HandHeld, PatchesOf(choice).size());
  // What an instrument's program would write of a perfect print of what the files expect.
  for (Cgats target : {TargetValues(choice, model), PlacedTarget(choice, model, layout, paper)}) {
    target = ParseCgats(CgatsText(target), "chart");
    const Measurement read = MeasurementOf(target, "chart", std::nullopt);
    EXPECT_EQ(read.choice.inkLimit, choice.inkLimit);
    EXPECT_EQ(read.choice.media, choice.media);
    EXPECT_EQ(read.patches.size(), PatchesOf(choice).size());
    for (const ReadPatch& patch : read.patches) {
      const Triple lab = AgainstPaper(patch.measured.lab, LabFromBands(model.PaperBands()));
      EXPECT_LT(DeltaE2000(lab, LabFromBands(model.Bands(AmountsOf(patch.measured.levels)))), 0.05);
    }
  }
}

TEST(Reference, TakesNoListOfPatchesForAMeasurement) {
  Cgats file = MeasurementFile(MeasureChart({ChartKind::Update, kFour, 3.0}, 0, 0.0, 1));
  const std::filesystem::path path = testing::TempDir() + "patches.ti2";
  for (const char* kind : {"CTI1", "CTI2", "CTI3"}) {
    file.kind = kind;
    std::ofstream(path) << CgatsText(file);
    const std::string failure = FailureOf([&] { ReadMeasurement(path, std::nullopt); });
    EXPECT_EQ(failure.ends_with("is the chart's list of patches, not its measurement"),
              file.kind != "CTI3")
        << failure;
  }
  std::filesystem::remove(path);
}

TEST(Reference, TakesSpectraInRoundedStepsAndPlacesOfTwoLettersAndANumber) {
  Cgats file = MeasurementFile(MeasureChart({ChartKind::Update, kFour, 3.0}, 0, 0.0, 1));
  CgatsTable& table = file.tables[0];
  for (int i = 0; i <= 105; ++i) {
    table.fields.push_back("SPEC_" + std::to_string(std::lround(380 + i * 10 / 3.0)));
    for (CgatsRow& row : table.rows) row.values.emplace_back("50");
  }
  std::size_t row = 0;
  for (const char* place : {"A0", "A-2147483648", "A99999999999", "AAA1", "ZZZZZZZZZZZZ1", "7"}) {
    table.rows[row++].values[table.Field("SAMPLE_LOC").value()] = place;
  }
  const Measurement read = MeasurementOf(ParseCgats(CgatsText(file), "m"), "m", std::nullopt);
  for (std::size_t i = 0; i < read.patches.size(); ++i) {
    EXPECT_EQ(read.patches[i].strip.has_value(), i >= row) << read.patches[i].name;
    EXPECT_NEAR(read.patches[i].measured.lab[0], 76.07, 0.01);
  }
}

TEST(Reference, FindsTheLimitOfAChartFromItsPatches) {
  Measurement measurement = MeasureChart({ChartKind::Whole, kFour, 2.4}, 0, 0.0, 1);
  Cgats file = MeasurementFile(measurement);
  std::erase_if(file.tables[0].keywords,
                [](const auto& keyword) { return keyword.first == "TOTAL_INK_LIMIT"; });
  EXPECT_EQ(MeasurementOf(file, "m", std::nullopt).choice.inkLimit, 2.4);
}

TEST(Spectrum, WhiteIsD50AndNarrowStepsAgreeWithWideOnes) {
  const auto lab = [](double first, double step) {
    Spectrum spectrum{first, step, {}};
    for (double nm = first; nm <= 730; nm += step) {
      spectrum.reflectance.push_back(0.2 + 0.6 / (1 + std::exp((560 - nm) / 25)));
    }
    return LabFromXyz(XyzOfSpectrum(spectrum));
  };
  EXPECT_LT(DeltaE2000(lab(380, 10), lab(380, 5)), 0.1);
  EXPECT_LT(DeltaE2000(lab(400, 10), lab(380, 10)), 0.1);
  const Triple white = LabFromXyz(XyzOfSpectrum({380, 10, std::vector<double>(36, 1.0)}));
  EXPECT_NEAR(white[0], 100, 1e-6);
  EXPECT_NEAR(std::hypot(white[1], white[2]), 0, 1e-6);
}

struct Loop {
  int printer;
  const std::vector<Ink>* inks;

  friend std::ostream& operator<<(std::ostream& stream, const Loop& loop) {
    return stream << "printer " << loop.printer;
  }
};
class CalibrationOf : public testing::TestWithParam<Loop> {};

TEST_P(CalibrationOf, APrinterPredictsWhatItDidNotSee) {
  const Measurement measurement =
      MeasureChart({ChartKind::Whole, *GetParam().inks, 3.0}, GetParam().printer, 0.3, 5);
  const InkData inks = Calibrated(measurement);
  const Agreement agreement = CompareWith(measurement, inks, 2);
  EXPECT_LT(agreement.heldBack.mean, 1.0);
  EXPECT_LT(agreement.heldBack.most95, 2.5);

  // Tone curves, as parts of the solid's density, and the file that carries all of it.
  const SimulatedPrinter printer = MakeSimulatedPrinter(GetParam().printer);
  const std::filesystem::path file = testing::TempDir() + "calibrated.json";
  std::ofstream(file) << InkDataText(inks);
  const InkData read = ReadInkData(file);
  std::filesystem::remove(file);
  EXPECT_TRUE(read.media[2].measured && !read.media[4].measured);
  const PrintModel model(read, 2);
  for (const Ink ink : *GetParam().inks) {
    EXPECT_LT(test::ToneError(printer, model, ink, 20), 0.01) << kInkNames[static_cast<int>(ink)];
  }
}

INSTANTIATE_TEST_SUITE_P(Printers, CalibrationOf,
                         testing::Values(Loop{1, &kSeven}, Loop{3, &kFour}, Loop{4, &kSeven}),
                         [](const auto& info) {
                           return "printer" + std::to_string(info.param.printer);
                         });

TEST(Calibration, IsTheSameEveryTime) {
  const Measurement measurement = MeasureChart({ChartKind::Whole, kFour, 3.0}, 0, 0.3, 5);
  EXPECT_EQ(InkDataText(Calibrated(measurement)), InkDataText(Calibrated(measurement)));
}

TEST(Calibration, OneBadPatchBendsNothing) {
  Measurement measurement = MeasureChart({ChartKind::Whole, kFour, 3.0}, 0, 0.3, 5);
  const Agreement before = CompareWith(measurement, Calibrated(measurement), 2);
  for (ReadPatch& patch : measurement.patches) {
    if (patch.measured.group != PatchGroup::Ramp) continue;
    patch.measured.lab[0] += 9;
    break;
  }
  const Agreement after = CompareWith(measurement, Calibrated(measurement), 2);
  EXPECT_LT(after.heldBack.mean, before.heldBack.mean + 0.1);
}

TEST(Calibration, FindsWhereMoreInkIsOfNoUse) {
  const ChartChoice choice{ChartKind::Whole, kFour, 3.0};
  Measurement measurement = MeasureChart(choice, 0, 0.0, 5);
  // A paper that takes no more than 220 % and a cyan that runs at 70 %.
  const SimulatedPrinter printer = MakeSimulatedPrinter(0);
  for (ReadPatch& patch : measurement.patches) {
    InkAmounts amounts = AmountsOf(patch.measured.levels);
    amounts[static_cast<int>(Ink::C)] = std::min(amounts[static_cast<int>(Ink::C)], 0.7);
    double total = 0;
    for (const double amount : amounts) total += amount;
    for (double& amount : amounts) amount *= std::min(1.0, 2.2 / std::max(total, 1e-9));
    patch.measured.lab = printer.Absolute(amounts);
  }
  const InkData inks = Calibrated(measurement);
  EXPECT_NEAR(inks.inkLimit[static_cast<int>(Ink::C)], 0.7, 0.1);
  EXPECT_EQ(inks.inkLimit[static_cast<int>(Ink::M)], 1.0);
  EXPECT_NEAR(inks.media[2].inkLimit, 2.25, 0.26);
}

TEST(Calibration, KeepsWhatTheChartDoesNotShow) {
  // Plain paper has a density and gain of its own, which the colours of the other inks take along.
  constexpr int kPlain = 0;
  const std::vector<Ink> colours = {Ink::C, Ink::c, Ink::M, Ink::m, Ink::Y, Ink::y};
  const SimulatedPrinter printer = test::PrinterOf(DefaultInkData(), kPlain);
  const auto calibrate = [&](const std::vector<Ink>& inks, const InkData& base) {
    return FitInks(test::Measure(printer, ChartPatches(inks, 2.0), 0.0, 1), {inks, kPlain, 2.0},
                   base);
  };
  const InkData measured = calibrate(kSeven, DefaultInkData());
  for (const InkData& base : {DefaultInkData(), measured}) {
    for (const std::vector<Ink>& inks : {std::vector<Ink>{Ink::K}, colours}) {
      const PrintModel model(calibrate(inks, base), kPlain);
      double sum = 0, count = 0;
      for (const ChartPatch& patch : ChartPatches(kSeven, 2.0)) {
        const InkAmounts amounts = AmountsOf(patch.levels);
        sum += DeltaE2000(LabFromBands(model.Bands(amounts)), printer.Relative(amounts));
        ++count;
      }
      EXPECT_LT(sum / count, 0.3) << base.measured << ", " << inks.size();
    }
  }
}

TEST(Calibration, FortyPatchesFollowAnAgedPrinter) {
  for (const int number : {1, 4}) {
    const ChartChoice whole{ChartKind::Whole, kSeven, 3.0};
    const InkData known = Calibrated(MeasureChart(whole, number, 0.3, 5));
    SimulatedPrinter aged = MakeSimulatedPrinter(number);
    for (std::size_t ink = 0; ink < kInkCount; ++ink) aged.gain[ink] = ink % 2 == 0 ? 1.15 : 0.85;
    const std::vector<MeasuredPatch> few = test::Measure(aged, UpdatePatches(kSeven, 3.0), 0.3, 6);
    const PrintModel updated(UpdateInks(few, {kSeven, 2, 3.0}, known), 2), before(known, 2);
    double mean = 0, unchanged = 0, count = 0;
    for (const ChartPatch& patch : PatchesOf(whole)) {
      if (patch.group != PatchGroup::HeldBack) continue;
      const InkAmounts amounts = AmountsOf(patch.levels);
      const Triple truth = aged.Relative(amounts);
      mean += DeltaE2000(LabFromBands(updated.Bands(amounts)), truth);
      unchanged += DeltaE2000(LabFromBands(before.Bands(amounts)), truth);
      ++count;
    }
    EXPECT_LT(mean / count, 1.8) << number;
    EXPECT_LT(mean, unchanged / 2) << number;
    // Film has the same density and gain as the glossy paper that was measured.
    EXPECT_THROW(UpdateInks(few, {kSeven, 4, 3.0}, known), Failure) << number;
  }
  EXPECT_THROW(UpdateInks(test::Measure(MakeSimulatedPrinter(0), UpdatePatches(kSeven, 3), 0, 1),
                          {kSeven, 2, 3.0}, DefaultInkData()),
               Failure);
}

TEST(Calibration, RefusesWhatIsNoMeasurementOfTheChart) {
  const Measurement good = MeasureChart({ChartKind::Whole, kFour, 3.0}, 0, 0.3, 5);
  EXPECT_EQ(test::ErrorOf(CgatsText(MeasurementFile(good))), "");
  EXPECT_GE(test::WrongMeasurements().size(), 50u);
  for (const test::WrongMeasurement& wrong : test::WrongMeasurements()) {
    const std::string error = test::ErrorOf(wrong.make(good));
    EXPECT_THAT(error, HasSubstr("m.ti3")) << wrong.name;
    EXPECT_THAT(error, HasSubstr(wrong.says)) << wrong.name;
  }
}

TEST(AgreementPage, IsOneFileWithThreePictures) {
  const Measurement measurement = MeasureChart({ChartKind::Update, kFour, 3.0}, 0, 0.3, 5);
  InkData inks = DefaultInkData();
  inks.name = "<b>&";
  const std::string page =
      AgreementPage(CompareWith(measurement, inks, 2), inks, 2, measurement.choice, "A & B");
  std::size_t pictures = 0;
  for (std::size_t at = 0; (at = page.find("<svg", at)) != std::string::npos; ++at) ++pictures;
  EXPECT_EQ(pictures, 3u);
  EXPECT_THAT(page, HasSubstr("<title>A &amp; B</title>"));
  EXPECT_THAT(page, testing::Not(HasSubstr("<b>&")));
  EXPECT_THAT(page, testing::Not(HasSubstr("nan")));
}

}  // namespace
}  // namespace corvane
