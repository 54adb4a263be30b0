// SPDX-License-Identifier: MIT
//
// Drops on paper, seen through the ink model: each drop a round spot of its size, the light
// averaged to the wanted resolution.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "app/inks/ink_model.h"
#include "app/preview/point_loops.h"

namespace corvane {

// A binary plane of the rows of drops.
struct DropPlane {
  Ink ink = Ink::K;
  int drops = 1;           // that a set bit stands for
  std::size_t offset = 0;  // of the plane in a row, bytes
  std::uint32_t width = 0;
  double horizontalDpi = 0;
  double picolitres = 0;  // of a drop
};

// A rectangle of the page, in inches.
struct PageWindow {
  double left = 0, top = 0, width = 0, height = 0;
};

// One row of the picture.
struct RenderedRow {
  std::vector<Triple> bands;    // reflectance against the paper (app/inks/color_math.h)
  std::vector<float> totalInk;  // 1 = one ink at full strength
};

// Renders the rows of a page as they come, with a few of them in memory.
class DotRenderer {
 public:
  using Output = std::function<void(const RenderedRow& row)>;

  // `dpi` is that of the picture; its rows go to `output` from the top. The model must outlive the
  // renderer.
  DotRenderer(const PrintModel& model, const std::vector<DropPlane>& planes, double verticalDpi,
              const PageWindow& window, double dpi, Output output);

  std::uint32_t Width() const { return width_; }    // of the picture, pixels
  std::uint32_t Height() const { return height_; }  // of the picture, rows

  // The page's next row, from the top; those outside the window cost next to nothing.
  void AddRow(const std::uint8_t* row);
  // After the page's last row.
  void Finish();

 private:
  // Spots are drawn on a grid of points, fine against them. Points are summed to samples, a few an
  // inch more than light tells apart that has spread in the paper; the kernels of spread and
  // reduction lie over several samples, so that it does not matter where dots lie against them.
  struct Stamp {
    int rows = 0, blocks = 0;  // blocks of kLanes points across
    int left = 0, top = 0;     // of its first point, against the one that holds the spot's centre
    std::vector<std::uint16_t> layers;
  };
  struct Plane {
    DropPlane shape;
    std::size_t ring;           // in rings_
    std::vector<Stamp> stamps;  // by the centre's place within its point
    std::int64_t step;          // from pixel to pixel, in 2^-32 points
    std::int64_t start;         // the centre of pixel 0
    std::uint32_t first, end;   // pixels that can touch the window
  };
  struct Ring {
    Ink ink;
    std::vector<Triple> tints;  // with measured inks: TintBeyondLayers by the amount, in steps
    std::vector<std::uint16_t> layers;  // ringRows_ rows of points
  };

  // What is summed over points, spread and reduced: what each band absorbs of the n-th root of the
  // light, all ink, and with measured inks each ink by itself. All are 0 where there is no ink.
  static constexpr std::size_t kBands = 3, kTotal = 3, kOwn = 4;
  struct Channel {
    std::vector<float> sums;                           // of the row of samples in work
    std::array<std::vector<float>, kSpreadTaps> last;  // rows of samples, by row number
    std::array<std::vector<float>, 2> pixels;          // the row of pixels before, and this one
  };

  Plane MakePlane(const DropPlane& shape);
  void SetGrid(const PageWindow& window, double dpi);
  void SetChannels();
  void AddDrops(const Plane& plane, const std::uint8_t* bits, double centre);
  void FinishPointRows(std::int64_t end);
  void RenderPointRow(std::size_t ringRow);
  void FinishSampleRow();
  void ReduceSampleRow(std::int64_t row);
  void AddSampleRow(std::int64_t row, std::size_t weight, std::size_t kept);
  Triple BeyondLayers(std::size_t kept, std::size_t pixel) const;
  void FinishPixelRow(std::int64_t row, std::size_t kept);
  float Reduced(const Channel& channel, std::size_t kept, std::size_t pixel) const;

  const PrintModel& model_;
  const PointLoops& loops_ =
      *CORVANE_OF_LEVEL(SelectedCpuLevel(), &plain::kPointLoops, kPointLoops);
  Output output_;
  double verticalDpi_, windowTop_;
  std::uint32_t width_, height_;
  int pad_ = 0;  // pixels around the picture that the kernels reach
  int pointsPerSample_ = 1, samplesPerPixel_ = 1;
  double pointDpi_ = 0;
  std::int64_t pointWidth_ = 0, pointHeight_ = 0;
  float spread_[kSpreadReach + 1] = {1};  // weights by the distance in samples
  std::vector<float> reduction_;          // weights of the samples of a pixel and those around
  int margin_ = 0;                        // points that a spot can reach beyond its centre's
  std::size_t ringStride_ = 0, ringRows_ = 0;
  std::vector<Plane> planes_;
  std::vector<Ring> rings_;
  std::vector<std::uint8_t> ringRowUsed_;

  std::int64_t rowNumber_ = 0;
  std::int64_t pointRow_ = 0;  // the next to be rendered
  int pointRowsInSample_ = 0;
  std::int64_t sampleRow_ = 0;  // the next to be summed
  std::int64_t lastUsedSampleRow_ = -kSpreadTaps;
  std::array<std::vector<float>, kDyeCount> dyes_;
  std::vector<float> roots_;
  std::vector<std::uint16_t> pointTotals_;
  std::vector<Channel> channels_;
  std::vector<float> spreadRow_, workRow_;
  RenderedRow row_;
};

}  // namespace corvane
