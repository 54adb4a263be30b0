// SPDX-License-Identifier: MIT
#include "app/inks/ink_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "app/support/failure.h"
#include "printmode/print_modes.h"
#include "tests/harness/paths.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

constexpr int kGlossy = 2;

InkAmounts Of(std::initializer_list<Ink> inks, double amount = 1.0) {
  InkAmounts amounts{};
  for (const Ink ink : inks) amounts[static_cast<int>(ink)] = amount;
  return amounts;
}

void ExpectLab(const Triple& bands, const Triple& lab) {
  const Triple is = LabFromBands(bands);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(is[i], lab[i], 0.01);
}

TEST(PrintModel, GivesTheSolidsAndOverprintsThatItWasMadeFrom) {
  const InkData& inks = DefaultInkData();
  const PrintModel model(inks, kGlossy);
  ExpectLab(model.Bands(InkAmounts{}), {100, 0, 0});
  ExpectLab(model.Bands(Of({Ink::C})), inks.solids[0]);
  ExpectLab(model.Bands(Of({Ink::K})), inks.solids[3]);
  ExpectLab(model.Bands(Of({Ink::C, Ink::M})), *inks.cyanMagenta);
  ExpectLab(model.Bands(Of({Ink::M, Ink::Y})), *inks.magentaYellow);
  ExpectLab(model.Bands(Of({Ink::C, Ink::M, Ink::Y})), *inks.cyanMagentaYellow);
}

TEST(PrintModel, DarkensWithInkAndLessWithLighterInks) {
  for (int media = 0; media < kMediaCount; ++media) {
    const PrintModel model(DefaultInkData(), media);
    for (const Ink ink : {Ink::C, Ink::m, Ink::K, Ink::cd}) {
      double last = 1.0;
      for (int step = 1; step <= 16; ++step) {
        const double green = model.Bands(Of({ink}, step / 16.0))[1];
        EXPECT_LT(green, last);
        last = green;
      }
    }
    const double dark = model.InkDensity(Ink::C, 0.5)[0];
    const double medium = model.InkDensity(Ink::cd, 0.5)[0];
    const double light = model.InkDensity(Ink::c, 0.5)[0];
    EXPECT_GT(dark, medium);
    EXPECT_GT(medium, light);
  }
}

// Dots that hardly overlap darken a tint by less than the same ink spread evenly, and a paper that
// spreads light ever more makes up for it.
TEST(PrintModel, ApproachesEvenInkAsLightSpreads) {
  InkData inks = DefaultInkData();
  double last = 0.0;
  for (const double n : {3.0, 8.0, 60.0}) {
    inks.yuleNielsen = n;
    const double density = PrintModel(inks, kGlossy).InkDensity(Ink::K, 0.5)[1];
    EXPECT_GT(density, last);
    last = density;
  }
  const double solid = PrintModel(inks, kGlossy).InkDensity(Ink::K, 1.0)[1];
  EXPECT_NEAR(last, solid / 2.0, 0.05);
}

TEST(DropVolume, LaysTheSameInkPerAreaInEveryMode) {
  const InkData& inks = DefaultInkData();
  for (const PrintMode& mode : kPrintModes) {
    const Ink ink = mode.inkSet == InkSet::Black ? Ink::K : Ink::C;
    const double drops = DropsPerSquareInch(mode, ink);
    ASSERT_GT(drops, 0.0) << mode.name;
    EXPECT_NEAR(drops * DropPicolitres(inks, mode, ink), 3.6e6, 1.0);
  }
  const auto picolitres = [&](std::int32_t mode, Ink ink) {
    return DropPicolitres(inks, *FindPrintMode(mode), ink);
  };
  EXPECT_DOUBLE_EQ(picolitres(12, Ink::C), 20.0);
  EXPECT_DOUBLE_EQ(picolitres(54, Ink::c), 10.0);
  EXPECT_DOUBLE_EQ(picolitres(83, Ink::m), 5.0);
  EXPECT_DOUBLE_EQ(picolitres(109, Ink::K), 2.5);
}

TEST(InkFile, TheExampleIsTheDefaultSet) {
  const InkData read = ReadInkData(std::filesystem::path(corvane::harness::SourceDirectory()) /
                                   "examples/inks.json");
  const InkData& built = DefaultInkData();
  EXPECT_EQ(read.name, built.name);
  EXPECT_EQ(read.measured, built.measured);
  EXPECT_EQ(read.solids, built.solids);
  EXPECT_EQ(read.cyanMagentaYellow, built.cyanMagentaYellow);
  for (int media = 0; media < kMediaCount; ++media) {
    EXPECT_EQ(read.media[media].name, built.media[media].name);
    const InkAmounts tint = Of({Ink::C, Ink::m, Ink::Y, Ink::md}, 0.4);
    const Triple ours = PrintModel(read, media).Bands(tint);
    const Triple theirs = PrintModel(built, media).Bands(tint);
    for (int band = 0; band < 3; ++band) EXPECT_NEAR(ours[band], theirs[band], 1e-6);
  }
}

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "no error";
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

TEST(InkFile, NamesTheEntryThatIsWrong) {
  std::ifstream stream(std::filesystem::path(corvane::harness::SourceDirectory()) /
                       "examples/inks.json");
  const std::string good((std::istreambuf_iterator<char>(stream)), {});
  const struct {
    const char *from, *to, *error;
  } mutations[] = {
      {"\"name\"", "name", "not JSON at byte"},
      {"\"solids\"", "\"solid\"", "\"solids\" is missing"},
      {"\"yuleNielsen\": 12", "\"yuleNielsen\": 0.5", "yuleNielsen: is not in 1 to 100"},
      {"\"C\": {\"lab\": [54, -37, -50]}", "\"C\": {\"lab\": [54, -37]}",
       "C: lab: is not a list of 3"},
      {"\"K\": {\"lab\"", "\"K\": {\"rgb\"", "K: holds neither \"lab\" nor \"xyz\""},
      {"\"model\"", "\"guess\"", "source: is neither \"model\" nor \"measurement\""},
      {"\"inkLimit\": 240", "\"inkLimit\": \"much\"", "media 2: inkLimit: is not a number"},
  };
  for (const auto& mutation : mutations) {
    const ScratchText file("inks.json", Replaced(good, mutation.from, mutation.to));
    const std::string error = ErrorOf([&] { ReadInkData(file.Path()); });
    EXPECT_THAT(error, testing::HasSubstr(mutation.error));
    EXPECT_THAT(error, testing::HasSubstr(file.Path().string()));
  }
  EXPECT_THAT(ErrorOf([] { ReadInkData("/nowhere/inks.json"); }),
              testing::HasSubstr("/nowhere/inks.json: No such file"));
}

// The curves of modes that come with the program: each for a mode that there is, rising, and for
// inks whose tone it moves by little.
TEST(InkCurveFile, ReadsTheTonesOfModes) {
  int files = 0;
  const auto folder = std::filesystem::path(corvane::harness::SourceDirectory()) / "examples/tones";
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const InkCurves curves = ReadInkCurves(entry.path());
    const std::string name = entry.path().stem().string();
    const PrintMode* mode = FindPrintMode(std::stoi(name));
    ASSERT_NE(mode, nullptr) << name;
    EXPECT_LT(std::stoi(name.substr(name.find('-') + 1)), kAlternateModes) << name;
    EXPECT_FALSE(curves.IsIdentity()) << name;
    for (const auto& curve : curves.values) {
      EXPECT_TRUE(std::is_sorted(curve.begin(), curve.end())) << name;
      EXPECT_EQ(curve[0], 0) << name;
      for (int value = 0; value < 256; ++value) EXPECT_NEAR(curve[value], value, 24) << name;
    }
    ++files;
  }
  EXPECT_EQ(files, 7);
}

TEST(InkCurveFile, JoinsPointsAndRefusesCurvesThatFall) {
  const ScratchText good("curves.json",
                         R"({"C": [[0, 0], [100, 50], [255, 255]], "cd": [[0,0],[255,200]]})");
  const InkCurves curves = ReadInkCurves(good.Path());
  EXPECT_FALSE(curves.IsIdentity());
  EXPECT_EQ(curves.values[0][50], 25);
  EXPECT_EQ(curves.values[0][255], 255);
  EXPECT_EQ(curves.values[7][255], 200);
  EXPECT_EQ(curves.values[2], InkCurves().values[2]);

  const struct {
    const char *text, *error;
  } bad[] = {
      {R"({"Q": [[0,0],[255,255]]})", "\"Q\" is no ink"},
      {R"({"C": [[0,0],[200,255]]})", "C: does not run from 0 to 255"},
      {R"({"C": [[0,0],[90,80],[80,90],[255,255]]})", "C: has inputs that do not rise"},
      {R"({"C": [[0,9],[90,8],[255,255]]})", "C: has outputs that fall"},
      {R"([1])", "is not an object of curves"},
  };
  for (const auto& curve : bad) {
    const ScratchText file("curves.json", curve.text);
    EXPECT_THAT(ErrorOf([&] { ReadInkCurves(file.Path()); }), testing::HasSubstr(curve.error));
  }
}

}  // namespace
}  // namespace corvane
