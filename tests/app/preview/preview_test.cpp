// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <vector>

#include "app/commands/preview.h"
#include "app/inks/ink_use.h"
#include "app/preview/dots.h"
#include "app/preview/sink.h"
#include "app/support/failure.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

constexpr int kGlossy = 2;
constexpr std::uint32_t kWidth = 600;  // pixels of the page: an inch at 600 dpi

struct Picture {
  std::vector<RenderedRow> rows;

  Triple MeanBands() const {
    Triple mean{};
    for (const RenderedRow& row : rows) {
      for (const Triple& bands : row.bands) {
        for (std::size_t i = 0; i < 3; ++i) {
          mean[i] += bands[i] / static_cast<double>(rows.size() * row.bands.size());
        }
      }
    }
    return mean;
  }
  double MeanInk() const {
    double sum = 0;
    std::size_t pixels = 0;
    for (const RenderedRow& row : rows) {
      for (const float ink : row.totalInk) sum += static_cast<double>(ink);
      pixels += row.totalInk.size();
    }
    return sum / static_cast<double>(pixels);
  }
};

using IsDrop = bool (*)(std::uint32_t x, std::uint32_t y);

bool Nowhere(std::uint32_t, std::uint32_t) { return false; }
bool Everywhere(std::uint32_t, std::uint32_t) { return true; }
bool Chequered(std::uint32_t x, std::uint32_t y) { return (x + y) % 2 == 0; }
// Spots of four drops, as the coarser modes lay them.
bool InFours(std::uint32_t x, std::uint32_t y) { return x % 4 < 2 && y % 4 < 2; }
// A drop somewhere in each square of five pixels, as error diffusion strews them.
bool Scattered(std::uint32_t x, std::uint32_t y) {
  const std::uint32_t place = (x / 5 * 73856093u ^ y / 5 * 19349663u) * 2654435761u >> 16;
  return x % 5 == place % 5 && y % 5 == place / 5 % 5;
}
bool OneInSixteen(std::uint32_t x, std::uint32_t y) { return x % 4 == 1 && y % 4 == 2; }

// A page of one ink, an inch square.
Picture Render(const PrintModel& model, IsDrop isDrop, double picolitres, double dpi,
               const PageWindow& window = {0, 0, 1, 1}, int drops = 1, Ink ink = Ink::C) {
  Picture picture;
  DropPlane plane;
  plane.ink = ink;
  plane.drops = drops;
  plane.width = kWidth;
  plane.horizontalDpi = kWidth;
  plane.picolitres = picolitres;
  DotRenderer renderer(model, {plane}, kWidth, window, dpi,
                       [&](const RenderedRow& row) { picture.rows.push_back(row); });
  std::vector<std::uint8_t> row(kWidth / 8);
  for (std::uint32_t y = 0; y < kWidth; ++y) {
    std::fill(row.begin(), row.end(), std::uint8_t{0});
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      if (isDrop(x, y)) row[x / 8] = static_cast<std::uint8_t>(row[x / 8] | 0x80 >> x % 8);
    }
    renderer.AddRow(row.data());
  }
  renderer.Finish();
  EXPECT_EQ(picture.rows.size(), renderer.Height());
  return picture;
}

TEST(DotRenderer, LeavesPaperWithoutDropsWhite) {
  const PrintModel model(DefaultInkData(), kGlossy);
  const Picture picture = Render(model, Nowhere, 10, 150);
  ASSERT_EQ(picture.rows.size(), 150u);
  EXPECT_EQ(picture.rows[70].bands[70], (Triple{1, 1, 1}));
  EXPECT_EQ(picture.MeanInk(), 0);
}

// Whatever the resolution of the picture, the drops of a tint lay down the ink that they hold.
TEST(DotRenderer, KeepsTheAmountOfInk) {
  const PrintModel model(DefaultInkData(), kGlossy);
  for (const double dpi : {72.0, 150.0, 300.0, 720.0}) {
    const Picture inner = Render(model, OneInSixteen, 10, dpi, {0.25, 0.25, 0.5, 0.5});
    EXPECT_NEAR(inner.MeanInk(), 1.0 / 16, 0.001) << dpi;
  }
  const Picture doubled = Render(model, OneInSixteen, 10, 150, {0.25, 0.25, 0.5, 0.5}, 2);
  EXPECT_NEAR(doubled.MeanInk(), 2.0 / 16, 0.001);
}

// Evenly laid drops come out as the model has them: what tables are made with and what previews
// show is one thing.
TEST(DotRenderer, AgreesWithTheModelOfTints) {
  const PrintModel model(DefaultInkData(), kGlossy);
  const struct {
    IsDrop drops;
    double amount;
  } tints[] = {{Everywhere, 1.0}, {Chequered, 0.5}, {OneInSixteen, 1.0 / 16}};
  for (const Ink ink : {Ink::C, Ink::c, Ink::K}) {
    for (const auto& tint : tints) {
      const Picture picture = Render(model, tint.drops, 10, 150, {0.25, 0.25, 0.5, 0.5}, 1, ink);
      InkAmounts amounts{};
      amounts[static_cast<std::size_t>(ink)] = tint.amount;
      const Triple shown = LabFromBands(picture.MeanBands());
      const Triple expected = LabFromBands(model.Bands(amounts));
      EXPECT_LT(DeltaE2000(shown, expected), 3.0) << kInkNames[static_cast<int>(ink)];
    }
  }
}

// Where dots lie against the renderer's own grid is no property of a print.
TEST(DotRenderer, LooksTheSameWhereverItsGridLies) {
  const PrintModel model(DefaultInkData(), kGlossy);
  for (const double dpi : {72.0, 100.0, 150.0, 300.0}) {
    const Triple lab =
        LabFromBands(Render(model, InFours, 10, dpi, {0.2, 0.2, 0.5, 0.5}).MeanBands());
    for (const double pixels : {0.5, 1.0, 2.5}) {
      const PageWindow moved = {0.2 + pixels / 600, 0.2 + pixels / 600, 0.5, 0.5};
      const Triple other = LabFromBands(Render(model, InFours, 10, dpi, moved).MeanBands());
      EXPECT_LT(DeltaE2000(lab, other), 0.25) << dpi << ", moved by " << pixels;
    }
  }
}

// The pattern of drops is finer than these pixels: it must not come back as noise.
TEST(DotRenderer, KeepsFlatPatchesQuiet) {
  const PrintModel model(DefaultInkData(), kGlossy);
  const Picture picture = Render(model, Scattered, 10, 75, {0.1, 0.1, 0.8, 0.8}, 1, Ink::K);
  double sum = 0, squares = 0, count = 0;
  for (const RenderedRow& row : picture.rows) {
    for (const Triple& bands : row.bands) {
      const double lightness = LabFromBands(bands)[0];
      sum += lightness, squares += lightness * lightness, ++count;
    }
  }
  EXPECT_LT(std::sqrt(squares / count - sum / count * (sum / count)), 1.3);
}

// A part of the page shows what the whole page shows there, up to its edge.
TEST(DotRenderer, ShowsPartsAsTheWhole) {
  const PrintModel model(DefaultInkData(), kGlossy);
  const Picture whole = Render(model, Scattered, 10, 150);
  const Picture part = Render(model, Scattered, 10, 150, {0.2, 0.4, 0.2, 0.2});
  ASSERT_EQ(part.rows.size(), 30u);
  for (std::size_t y = 0; y < 30; ++y) {
    for (std::size_t x = 0; x < 30; ++x) {
      ASSERT_NEAR(part.rows[y].bands[x][0], whole.rows[60 + y].bands[30 + x][0], 0.01)
          << x << ' ' << y;
    }
  }
}

// Measured tints and overprints look as a calibration predicts them, not as layers of dye would.
TEST(DotRenderer, ShowsMeasuredInks) {
  InkData inks = DefaultInkData();
  inks.tints[static_cast<std::size_t>(Ink::C)] = {
      {0.25, {82, -6, -12}}, {0.5, {70, -14, -26}}, {1, {48, -20, -44}}};
  OverprintTerm term;
  term.dyes = {2, 0, 0, 0};
  term.density = {0.3, 0.1, -0.1};
  inks.overprints = {term};
  const PrintModel measured(inks, kGlossy), layers(DefaultInkData(), kGlossy);
  const PageWindow inner = {0.25, 0.25, 0.5, 0.5};
  InkAmounts amounts{};
  amounts[static_cast<std::size_t>(Ink::C)] = 0.5;
  const Triple dots = LabFromBands(Render(layers, Chequered, 10, 150, inner).MeanBands());
  const double ofDots = DeltaE2000(dots, LabFromBands(layers.Bands(amounts)));
  const Triple shown = LabFromBands(Render(measured, Chequered, 10, 150, inner).MeanBands());
  EXPECT_LT(DeltaE2000(shown, LabFromBands(measured.Bands(amounts))), ofDots + 0.5);
  EXPECT_GT(DeltaE2000(shown, dots), 5);
}

TEST(DotRenderer, ShowsEachDropRoundAndInItsPlace) {
  const PrintModel model(DefaultInkData(), kGlossy);
  constexpr double kDpi = 4800;
  const auto oneDrop = [](std::uint32_t x, std::uint32_t y) { return x == 300 && y == 301; };
  const double left = 300.5 / 600 - 0.01, top = 301.5 / 600 - 0.01;
  const Picture picture = Render(model, oneDrop, 10, kDpi, {left, top, 0.02, 0.02});
  const double radius = std::sqrt(model.SpotArea(10) / 3.14159265) / 25400 * kDpi;
  for (std::size_t y = 0; y < picture.rows.size(); ++y) {
    for (std::size_t x = 0; x < picture.rows[y].bands.size(); ++x) {
      const double distance = std::hypot(static_cast<double>(x) + 0.5 - 0.01 * kDpi,
                                         static_cast<double>(y) + 0.5 - 0.01 * kDpi);
      const double red = picture.rows[y].bands[x][0];
      if (distance > radius + 1.5) {
        ASSERT_EQ(red, 1.0) << x << ' ' << y;
      } else if (distance < radius - 1.5) {
        ASSERT_LT(red, 0.5) << x << ' ' << y;
      }
    }
  }
}

TEST(PreviewText, SaysWhatItCannotRead) {
  const PageWindow window = ParseZoom("25.4,50.8,12.7,2.54");
  EXPECT_DOUBLE_EQ(window.left, 1.0);
  EXPECT_DOUBLE_EQ(window.height, 0.1);
  for (const char* bad : {"", "1,2,3", "1,2,3,x", "1,2,0,4", "-1,2,3,4", "1,2,3,4,5"}) {
    EXPECT_THROW(ParseZoom(bad), UsageFailure) << bad;
  }
  EXPECT_EQ(ParseInkList("C,md,K"), (std::vector{Ink::C, Ink::md, Ink::K}));
  EXPECT_THROW(ParseInkList("C,Q"), UsageFailure);
  EXPECT_THAT(PreviewNote({}), testing::HasSubstr("a model, not a proof"));

  PreviewCommandOptions command;
  command.separations = "nowhere.tif";
  EXPECT_THROW(RunPreview(command), UsageFailure);
  const auto picture = std::filesystem::temp_directory_path() / "corvane-preview-test.png";
  command.preview.picture = picture.string();
  EXPECT_THROW(RunPreview(command), Failure);
  EXPECT_FALSE(std::filesystem::exists(picture));
}

TEST(InkUse, CountsDropsPixelsAndVolume) {
  PageShape page;
  page.mode = FindPrintMode(12);
  page.rows = 10;
  for (const Ink ink : {Ink::C, Ink::K}) {
    PlaneShape plane;
    plane.ink = ink;
    plane.width = 100;
    page.planes.push_back(plane);
  }
  std::array<std::uint64_t, kInkCount> drops{};
  drops[static_cast<std::size_t>(Ink::C)] = 250;
  drops[static_cast<std::size_t>(Ink::K)] = 1000;
  const std::vector<InkUse> uses = InkUseOf(page, drops, DefaultInkData());
  ASSERT_EQ(uses.size(), 2u);
  EXPECT_EQ(uses[0].ink, Ink::C);
  EXPECT_DOUBLE_EQ(uses[0].percent, 25.0);
  EXPECT_DOUBLE_EQ(uses[0].nanolitres, 5.0);
  EXPECT_EQ(uses[1].drops, 1000u);
  EXPECT_DOUBLE_EQ(uses[1].percent, 100.0);
  EXPECT_DOUBLE_EQ(uses[1].nanolitres, 10.0);
}

}  // namespace
}  // namespace corvane
