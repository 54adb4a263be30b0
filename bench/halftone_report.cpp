// SPDX-License-Identifier: MIT
//
// Shows what the threshold sets of the halftone engine do:
//
//     corvane_halftone_report [DIRECTORY]
//
// prints for each set how near flat levels come to their coverage and how the first row of a patch
// starts; with a directory it also draws a gradient and magnified patches of each set into it.
#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "halftone/engine.h"
#include "halftone/kernel_table.h"
#include "halftone/threshold_tables.h"

namespace corvane {
namespace {

struct ReportedSet {
  CoverageSet set;
  const char* name;
  std::uint16_t shift;
};

constexpr ReportedSet kReportedSets[] = {
    {CoverageSet::Set6_25, "6.25", 0}, {CoverageSet::Set12_5, "12.5", 1},
    {CoverageSet::Set25, "25", 2},     {CoverageSet::Set50, "50", 3},
    {CoverageSet::Set100, "100", 4},   {CoverageSet::Set200, "200", 5},
    {CoverageSet::Set1x2, "1x2", 3},   {CoverageSet::Set1x2K, "1x2-K", 4},
};

// The drops per pixel that a level stands for.
double IdealCoverage(const ReportedSet& reported, int level) {
  if (reported.set != CoverageSet::Set200) {
    return static_cast<double>(level << reported.shift) / kFullDrop;
  }
  const double certain = level >= 128 ? 1.0 : 0.0;
  return certain + static_cast<double>((level % 128) << reported.shift) / kTwoDropUnit;
}

// A page of one ink, one binary pixel per contone pixel.
class InkPage {
 public:
  InkPage(const ReportedSet& reported, int width)
      : width_(width),
        shift_(reported.shift),
        line_(static_cast<std::size_t>(width) + 2),
        output_(2 * PlaneBytes()) {
    const bool twoDrop = reported.set == CoverageSet::Set200;
    kernel_.inks[0].ink = kernel_.inks[0].state = Ink::K;
    kernel_.inks[0].group = InkGroup::Black;
    kernel_.inks[0].set = reported.set;
    kernel_.inks[0].decay = ZeroLevelDecay::Keep31Of32;
    kernel_.inks[0].foldedPlane = kNoPlane;
    kernel_.inks[0].partner = kNoPartner;
    kernel_.inks[0].twoDrop = twoDrop;
    kernel_.inkCount = 1;
    kernel_.planeCount = twoDrop ? 2 : 1;
    errorRows_[static_cast<int>(Ink::K)] = line_.data();
  }

  // Halftones the next row, the first of the page being row 1, which runs forward.
  void Convert(const std::vector<std::uint8_t>& levels) {
    ++row_;
    std::uint32_t phase = static_cast<std::uint32_t>(kModulation[row_ % kModulationLength]);
    const auto width = static_cast<std::uint32_t>(width_);
    const RowState state = {.ShiftCMY = 0,
                            .Shiftcmy = 0,
                            .ShiftK = shift_,
                            .BothDirections = false,
                            .NumPix = 1,
                            .width = width,
                            .outputWidth = width,
                            .ErrorRows = errorRows_,
                            .CarriedError = carriedError_.data(),
                            .DotCount = dotCount_.data(),
                            .RowPhase = &phase,
                            .output = output_.data(),
                            .data = levels.data(),
                            .stride = width,
                            .row = row_,
                            .first = 0,
                            .end = width};
    RunKernelPlain(kernel_, state);
  }

  // Begins with this row as the next one.
  void StartAt(std::uint32_t row) { row_ = row - 1; }

  std::uint32_t Drops() const { return dotCount_[static_cast<int>(Ink::K)]; }

  int DropsAt(int x) const {
    const int first = output_[x / 8] >> (7 - x % 8) & 1;
    const int second = output_[PlaneBytes() + x / 8] >> (7 - x % 8) & 1;
    return kernel_.planeCount == 2 ? first + 2 * second : first;
  }

 private:
  std::size_t PlaneBytes() const { return (static_cast<std::size_t>(width_) - 1) / 8 + 1; }

  int width_;
  std::uint16_t shift_;
  std::uint32_t row_ = 0;
  Kernel kernel_{};
  std::vector<std::int16_t> line_;
  std::vector<std::uint8_t> output_;
  std::array<std::int16_t*, kInkCount> errorRows_{};
  std::array<std::int16_t, kInkCount> carriedError_{};
  std::array<std::uint32_t, kInkCount> dotCount_{};
};

// ---- Figures

// The largest difference from the ideal coverage over the flat levels.
struct CoverageError {
  double largest = 0;
  int level = 0;

  void Take(double difference, int ofLevel) {
    if (std::abs(difference) > largest) *this = {std::abs(difference), ofLevel};
  }
};

// Of the first 200 rows of a patch, and of the 200 rows behind them.
struct Coverage {
  CoverageError first;
  CoverageError following;
};

Coverage MeasureCoverage(const ReportedSet& reported) {
  constexpr int kWidth = 1024;
  constexpr int kRows = 200;
  Coverage coverage;
  for (int level = 0; level < kLevelCount; ++level) {
    InkPage page(reported, kWidth);
    const std::vector<std::uint8_t> levels(kWidth, static_cast<std::uint8_t>(level));
    const auto coverageOfRows = [&] {
      const std::uint32_t before = page.Drops();
      for (int row = 0; row < kRows; ++row) page.Convert(levels);
      return static_cast<double>(page.Drops() - before) / (kWidth * kRows);
    };
    const double ideal = IdealCoverage(reported, level);
    coverage.first.Take(coverageOfRows() - ideal, level);
    coverage.following.Take(coverageOfRows() - ideal, level);
  }
  return coverage;
}

// How the drops in the first row of a patch, started at eight phases, compare with the ideal, over
// the levels from 8 up.
struct FirstRow {
  double meanDeviation = 0;
  int emptyLevels = 0;
};

FirstRow MeasureFirstRow(const ReportedSet& reported) {
  constexpr int kFirstLevel = 8;
  constexpr int kWidth = 8192;
  constexpr int kStarts = 8;
  FirstRow result;
  int levelsMeasured = 0;
  for (int level = kFirstLevel; level < kLevelCount; ++level) {
    const std::vector<std::uint8_t> levels(kWidth, static_cast<std::uint8_t>(level));
    std::uint32_t drops = 0;
    bool hasEmptyRow = false;
    for (int start = 0; start < kStarts; ++start) {
      InkPage page(reported, kWidth);
      page.StartAt(2u * static_cast<unsigned>(start) + 1);
      page.Convert(levels);
      drops += page.Drops();
      hasEmptyRow |= page.Drops() == 0;
    }
    const double ideal = IdealCoverage(reported, level) * kWidth * kStarts;
    result.meanDeviation += std::abs(drops / ideal - 1);
    result.emptyLevels += hasEmptyRow ? 1 : 0;
    ++levelsMeasured;
  }
  result.meanDeviation /= levelsMeasured;
  return result;
}

void PrintFigures() {
  std::printf("       largest error of coverage (level)   first row of a patch\n");
  std::printf("set    rows 1 to 200    rows 201 to 400    mean deviation    empty levels\n");
  for (const ReportedSet& reported : kReportedSets) {
    const Coverage coverage = MeasureCoverage(reported);
    const FirstRow row = MeasureFirstRow(reported);
    std::printf("%-5s  %.5f (%3d)    %.5f (%3d)      %.4f            %d\n", reported.name,
                coverage.first.largest, coverage.first.level, coverage.following.largest,
                coverage.following.level, row.meanDeviation, row.emptyLevels);
  }
}

// ---- Pictures

constexpr std::uint8_t kPaper = 255;
constexpr std::uint8_t kFrame = 192;

// A grey picture of 8 bits a pixel.
struct Picture {
  Picture(int pictureWidth, int pictureHeight)
      : width(pictureWidth),
        height(pictureHeight),
        pixels(static_cast<std::size_t>(pictureWidth) * pictureHeight, kFrame) {}

  std::uint8_t& At(int x, int y) { return pixels[static_cast<std::size_t>(y) * width + x]; }

  int width;
  int height;
  std::vector<std::uint8_t> pixels;
};

// Black for the most drops that an ink of the set has, paper for none.
std::uint8_t GreyOf(const ReportedSet& reported, int drops) {
  const int most = reported.set == CoverageSet::Set200 ? 2 : 1;
  return static_cast<std::uint8_t>(kPaper - kPaper * drops / most);
}

void DrawGradient(const ReportedSet& reported, int height, Picture* picture) {
  const int width = picture->width;
  std::vector<std::uint8_t> levels(static_cast<std::size_t>(width));
  for (int x = 0; x < width; ++x) levels[x] = static_cast<std::uint8_t>(x * kLevelCount / width);
  InkPage page(reported, width);
  for (int y = 0; y < height; ++y) {
    page.Convert(levels);
    for (int x = 0; x < width; ++x) picture->At(x, y) = GreyOf(reported, page.DropsAt(x));
  }
}

// The first rows of a patch, each pixel a square of `scale` pixels.
void DrawPatch(const ReportedSet& reported, int level, int left, int top, int size, int scale,
               Picture* picture) {
  constexpr int kMargin = 64;  // columns beside the drawn ones
  const int width = size + 2 * kMargin;
  const std::vector<std::uint8_t> levels(static_cast<std::size_t>(width),
                                         static_cast<std::uint8_t>(level));
  InkPage page(reported, width);
  for (int y = 0; y < size * scale; ++y) {
    if (y % scale == 0) page.Convert(levels);
    for (int x = 0; x < size * scale; ++x) {
      picture->At(left + x, top + y) = GreyOf(reported, page.DropsAt(kMargin + x / scale));
    }
  }
}

bool WritePng(const Picture& picture, const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(picture.width);
  image.height = static_cast<png_uint_32>(picture.height);
  image.format = PNG_FORMAT_GRAY;
  if (png_image_write_to_file(&image, path.c_str(), 0, picture.pixels.data(), 0, nullptr) != 0) {
    return true;
  }
  std::fprintf(stderr, "%s: %s\n", path.c_str(), image.message);
  return false;
}

// The gradient above patches of a sixteenth, a quarter and half of the levels.
bool DrawSet(const ReportedSet& reported, const std::string& directory) {
  constexpr int kWidth = 768;
  constexpr int kGradientHeight = 64;
  constexpr int kGap = 24;
  constexpr int kPatchSize = 60;
  constexpr int kScale = 4;
  Picture picture(kWidth, kGradientHeight + kGap + kPatchSize * kScale);
  DrawGradient(reported, kGradientHeight, &picture);
  int left = 0;
  for (const int level : {16, 64, 128}) {
    DrawPatch(reported, level, left, kGradientHeight + kGap, kPatchSize, kScale, &picture);
    left += kPatchSize * kScale + kGap;
  }
  return WritePng(picture, directory + "/halftone-" + reported.name + ".png");
}

}  // namespace
}  // namespace corvane

int main(int argumentCount, char** arguments) {
  corvane::PrintFigures();
  if (argumentCount < 2) return 0;
  for (const corvane::ReportedSet& reported : corvane::kReportedSets) {
    if (!corvane::DrawSet(reported, arguments[1])) return 1;
  }
  return 0;
}
